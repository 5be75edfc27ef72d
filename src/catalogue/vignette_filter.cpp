#include "catalogue/vignette_filter.h"

#include "catalogue/catalogue_keys.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"
#include "filter/processing.h"

#include <algorithm>
#include <charconv>

namespace brenvia {
namespace {

std::string shortest(double x) {
  char buffer[32];
  auto end = std::to_chars(buffer, buffer + sizeof buffer, x).ptr;
  return std::string(buffer, end);
}

}  // namespace

void BVVignetteFilter::setParameters(const Value& parameters) {
  BVFilter::setParameters(parameters);
  auto read = [&](std::string_view key, double& field) {
    const Value* member = BVMember(parameters, key);
    if (auto number = member ? BVDouble(*member) : std::nullopt) field = *number;
  };
  read(kBVFilterIntensityKey, intensity_);
  read(kBVFilterFocusKey, focus_);
}

CIFilterArray BVVignetteFilter::CIFiltersForSize(CGSize size) {
  BVFilter::CIFiltersForSize(size);
  std::shared_ptr<BVProcessing> running = processor();
  const CGRect canvas = running ? running->processingRect() : CGRectMake(0, 0, size.width, size.height);
  const CIVector center = CIVector::vectorWithXY(CGRectGetMidX(canvas), CGRectGetMidY(canvas));
  return {CIFilter::filterWithName("CIVignetteEffect", {{"inputIntensity", intensity_},
                                                        {"inputCenter", center},
                                                        {"inputRadius", std::min(size.width, size.height) * focus_}})};
}

void BVVignetteFilter::applyToCGContext(BVBitmapContext*) {
  BVLog(
      "[BVVignetteFilter] Vignette filter is not supported with CGContext. Use the Core Image chain or implement via "
      "gradients.");
}

BVFilterRef BVVignetteFilter::copy() const {
  auto made = std::static_pointer_cast<BVVignetteFilter>(BVFilter::copy());
  made->setIntensity(intensity());
  made->setFocus(focus());
  return made;
}

std::string BVVignetteFilter::description() const {
  std::string text = className();
  text.insert(text.begin(), '<');
  text.append("; Intensity: ").append(shortest(intensity_)).append(", Focus: ").append(shortest(focus_)).append(">");
  return text;
}

}  // namespace brenvia
