#include "catalogue/color_filter.h"

#include "image/bitmap_context.h"
#include "image/graphics_utilities.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"
#include "filter/processing.h"

#include <cstdio>

namespace brenvia {

void BVColorFilter::setParameters(const Value& parameters) {
  BVBlendFilter::setParameters(parameters);
  if (auto hex = stringFor(parameters, kBVFilterColorHexKey)) {
    setColorHex(*hex);
    return;
  }
  hex_.clear();
  auto component = [&](std::string_view key) {
    return double(float(numberFor(parameters, key).value_or(0.0)) / 255.0f);
  };
  red_ = component(kBVFilterColorRedKey);
  green_ = component(kBVFilterColorGreenKey);
  blue_ = component(kBVFilterColorBlueKey);
}

void BVColorFilter::setColorHex(std::string hex) {
  hex_ = std::move(hex);
  if (hex_.empty()) return;
  CGColorRef color = CGColorCreateWithHex(hex_);
  if (!color) {
    BVLog("[BVColorFilter] `" + hex_ + "` is not a hex colour; the colour stays as it was.");
    return;
  }
  const double* components = CGColorGetComponents(color);
  red_ = components[0];
  green_ = components[1];
  blue_ = components[2];
}

CIFilterArray BVColorFilter::CIFiltersForSize(CGSize size) {
  CIFilterArray operations = BVBlendFilter::CIFiltersForSize(size);
  if (operations.empty() || !alternateCIFilters().empty()) return operations;
  std::shared_ptr<BVProcessing> running = processor();
  const CGRect canvas = running ? running->processingRect() : CGRectMake(0, 0, size.width, size.height);
  // The opacity goes into the colour layer itself, so the blend operation sees a translucent colour.
  CIImageRef layer = CIImage::imageWithColor(CIColor::colorWithRed(red_, green_, blue_, alpha()));
  operations.front()->setValue(layer->imageByCroppingToRect(canvas), kCIInputImageKey);
  return CIFiltersWithMaskIfNeeded(operations, operations.front(), size);
}

void BVColorFilter::applyToCGContext(BVBitmapContext* context) {
  BVBlendFilter::applyToCGContext(context);
  const CGContextRef& c = context->context();
  CGContextSetRGBFillColor(c, red_, green_, blue_, 1.0);
  CGContextFillRect(c, CGContextGetClipBoundingBox(c));
}

BVFilterRef BVColorFilter::copy() const {
  auto made = std::static_pointer_cast<BVColorFilter>(BVBlendFilter::copy());
  made->setColorRed(colorRed());
  made->setColorGreen(colorGreen());
  made->setColorBlue(colorBlue());
  return made;
}

std::string BVColorFilter::description() const {
  char buffer[256];
  std::snprintf(buffer, sizeof buffer, "<%s: %p; %s %i%%; red = %i; green = %i; blue = %i>", className().c_str(),
                static_cast<const void*>(this), mode() ? mode()->c_str() : "(null)", int(alpha() * 100),
                int(red_ * 255), int(green_ * 255), int(blue_ * 255));
  return buffer;
}

}  // namespace brenvia
