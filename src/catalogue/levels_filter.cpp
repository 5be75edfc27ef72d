#include "catalogue/levels_filter.h"

#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"

namespace brenvia {
namespace {

double unit(uint8_t level) { return double(float(level) / 255.0f); }

std::shared_ptr<CIFilter> channelMatrix(double scale, double bias) {
  return CIFilter::filterWithName("CIColorMatrix", {{"inputRVector", CIVector{scale, 0, 0, 0}},
                                                    {"inputGVector", CIVector{0, scale, 0, 0}},
                                                    {"inputBVector", CIVector{0, 0, scale, 0}},
                                                    {"inputBiasVector", CIVector{bias, bias, bias, 0}}});
}

}  // namespace

const BVParameterTable<BVLevelsSettings>& BVLevelsFilter::parameterTable() {
  using S = BVLevelsSettings;
  static const BVParameterTable<S> table{
      {kBVFilterLevelsInputBlackKey, &S::inputBlack, "input level that becomes black"},
      {kBVFilterLevelsInputWhiteKey, &S::inputWhite, "input level that becomes white"},
      {kBVFilterLevelsOutputBlackKey, &S::outputBlack, "output level of black"},
      {kBVFilterLevelsOutputWhiteKey, &S::outputWhite, "output level of white"},
  };
  return table;
}

CIFilterArray BVLevelsFilter::CIFiltersForSize(CGSize) {
  const auto& [inputBlack, inputWhite, outputBlack, outputWhite] = settings();
  const double ib = unit(inputBlack), ob = unit(outputBlack), ow = unit(outputWhite);
  // An empty input range would divide by zero; one level wide it makes a hard threshold at the
  // black point instead, and the matrices stay finite.
  const double d = inputWhite == inputBlack ? unit(1) : unit(inputWhite) - ib;
  return {channelMatrix(1 / d, -ib / d), channelMatrix(ow - ob, ob)};
}

void BVLevelsFilter::applyToCGContext(BVBitmapContext*) {
  BVLog(
      "[BVLevelsFilter] Levels is not supported with CGContext. Use the Core "
      "Image chain or implement vImage for "
      "Levels.");
}

}  // namespace brenvia
