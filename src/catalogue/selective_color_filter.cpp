#include "catalogue/selective_color_filter.h"

#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"

#include <cstdio>

namespace brenvia {

void BVSelectiveColorFilter::initWithParameters(const Value& parameters) {
  red_ = green_ = blue_ = yellow_ = orange_ = purple_ = 1.0;
  BVFilter::initWithParameters(parameters);
}

void BVSelectiveColorFilter::setParameters(const Value& parameters) {
  BVFilter::setParameters(parameters);
  auto read = [&](std::string_view key, double& field) {
    if (auto number = numberFor(parameters, key)) field = *number;
  };
  read(kBVFilterRedAdjustmentKey, red_);
  read(kBVFilterGreenAdjustmentKey, green_);
  read(kBVFilterBlueAdjustmentKey, blue_);
  read(kBVFilterYellowAdjustmentKey, yellow_);
  read(kBVFilterOrangeAdjustmentKey, orange_);
  read(kBVFilterPurpleAdjustmentKey, purple_);
}

CIFilterArray BVSelectiveColorFilter::CIFiltersForSize(CGSize size) {
  BVFilter::CIFiltersForSize(size);
  const double r = (red_ + yellow_ + orange_ + purple_ * 0.5) / 3.5;
  const double g = (yellow_ + green_ + orange_ * 0.5) / 2.5;
  const double b = (purple_ + blue_) * 0.5;
  return {CIFilter::filterWithName("CIColorMatrix", {{"inputRVector", CIVector{r, 0, 0, 0}},
                                                     {"inputGVector", CIVector{0, g, 0, 0}},
                                                     {"inputBVector", CIVector{0, 0, b, 0}}})};
}

void BVSelectiveColorFilter::applyToCGContext(BVBitmapContext*) {
  BVLog(
      "[BVSelectiveColorFilter] Selective Color is not supported with CGContext. Use the Core Image chain or "
      "implement vImage.");
}

BVFilterRef BVSelectiveColorFilter::copy() const {
  auto made = std::static_pointer_cast<BVSelectiveColorFilter>(BVFilter::copy());
  made->setRedAdjustment(redAdjustment());
  made->setGreenAdjustment(greenAdjustment());
  made->setBlueAdjustment(blueAdjustment());
  made->setYellowAdjustment(yellowAdjustment());
  made->setOrangeAdjustment(orangeAdjustment());
  made->setPurpleAdjustment(purpleAdjustment());
  return made;
}

std::string BVSelectiveColorFilter::description() const {
  char buffer[256];
  std::snprintf(buffer, sizeof buffer,
                "<%s: %p; Red: %0.3f, Green: %0.3f, Blue: %0.3f, Yellow: %0.3f, Orange: %0.3f, Purple: %0.3f>",
                className().c_str(), static_cast<const void*>(this), red_, green_, blue_, yellow_, orange_, purple_);
  return buffer;
}

}  // namespace brenvia
