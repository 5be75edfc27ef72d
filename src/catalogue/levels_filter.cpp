#include "catalogue/levels_filter.h"

#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace brenvia {
namespace {

// The low byte of the number taken as a 32-bit integer; numbers beyond that range saturate first.
void readLevel(const Value& parameters, std::string_view key, uint8_t& level) {
  const Value* member = BVMember(parameters, key);
  std::optional<double> number = member ? BVDouble(*member) : std::nullopt;
  if (!number) return;
  const double whole = std::trunc(std::clamp(*number, -2147483648.0, 2147483647.0));
  level = uint8_t(uint32_t(int32_t(whole)));
}

double unit(uint8_t level) { return double(float(level) / 255.0f); }

std::shared_ptr<CIFilter> channelMatrix(double scale, double bias) {
  return CIFilter::filterWithName("CIColorMatrix", {{"inputRVector", CIVector{scale, 0, 0, 0}},
                                                    {"inputGVector", CIVector{0, scale, 0, 0}},
                                                    {"inputBVector", CIVector{0, 0, scale, 0}},
                                                    {"inputBiasVector", CIVector{bias, bias, bias, 0}}});
}

}  // namespace

void BVLevelsFilter::initWithParameters(const Value& parameters) {
  inputBlack_ = 0;
  inputWhite_ = 255;
  outputBlack_ = 0;
  outputWhite_ = 255;
  BVFilter::initWithParameters(parameters);
}

void BVLevelsFilter::setParameters(const Value& parameters) {
  BVFilter::setParameters(parameters);
  readLevel(parameters, kBVFilterLevelsInputBlackKey, inputBlack_);
  readLevel(parameters, kBVFilterLevelsInputWhiteKey, inputWhite_);
  readLevel(parameters, kBVFilterLevelsOutputBlackKey, outputBlack_);
  readLevel(parameters, kBVFilterLevelsOutputWhiteKey, outputWhite_);
}

CIFilterArray BVLevelsFilter::CIFiltersForSize(CGSize size) {
  BVFilter::CIFiltersForSize(size);
  const double ib = unit(inputBlack_), ob = unit(outputBlack_), ow = unit(outputWhite_);
  // An empty input range would divide by zero; one level wide it makes a hard threshold at the
  // black point instead, and the matrices stay finite.
  const double d = inputWhite_ == inputBlack_ ? unit(1) : unit(inputWhite_) - ib;
  return {channelMatrix(1 / d, -ib / d), channelMatrix(ow - ob, ob)};
}

void BVLevelsFilter::applyToCGContext(BVBitmapContext*) {
  BVLog(
      "[BVLevelsFilter] Levels is not supported with CGContext. Use the Core Image chain or implement vImage for "
      "Levels.");
}

BVFilterRef BVLevelsFilter::copy() const {
  auto made = std::static_pointer_cast<BVLevelsFilter>(BVFilter::copy());
  made->setInputBlack(inputBlack());
  made->setInputWhite(inputWhite());
  made->setOutputBlack(outputBlack());
  made->setOutputWhite(outputWhite());
  return made;
}

std::string BVLevelsFilter::description() const {
  char buffer[256];
  std::snprintf(buffer, sizeof buffer, "<%s: %p; Input Black: %i, Input White: %i, Output Black: %i, Output White: %i>",
                className().c_str(), static_cast<const void*>(this), inputBlack_, inputWhite_, outputBlack_,
                outputWhite_);
  return buffer;
}

}  // namespace brenvia
