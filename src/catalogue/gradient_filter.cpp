#include "catalogue/gradient_filter.h"

#include "image/bitmap_context.h"
#include "platform/coreimage/ci_filter.h"

#include <cstdio>

namespace brenvia {

const BVParameterTable<BVGradientSettings>& BVGradientFilter::parameterTable() {
  static const BVParameterTable<BVGradientSettings> table{
      {kBVFilterGradientKey, BVParameterKind::Dictionary,
       "{type: linear or radial, colors, locations, rotation, radiusScaling, direction, start and end points or "
       "centres and radii}"},
  };
  return table;
}

void BVGradientFilter::readParameters(const Value& parameters, const BVParameterReader& reader) {
  BVFilterOf::readParameters(parameters, reader);
  const Value* gradient = BVMember(parameters, kBVFilterGradientKey);
  gradient_ = BVGradient::gradientWithParameters(gradient ? *gradient : Value::object());
  cachedGradientImages_.clear();
}

void BVGradientFilter::copySettingsTo(BVFilter& other) const {
  BVFilterOf::copySettingsTo(other);
  static_cast<BVGradientFilter&>(other).gradient_ = gradient_->copy();
}

CIFilterArray BVGradientFilter::CIFiltersForSize(CGSize size) {
  CIFilterArray operations = BVBlendFilter::CIFiltersForSize(size);
  if (operations.empty() || !alternateCIFilters().empty()) return operations;
  char key[64];
  std::snprintf(key, sizeof key, "%.0fx%.0f", size.width, size.height);
  CIImageRef& drawn = cachedGradientImages_[key];
  if (!drawn) {
    CGContextRef context = CGBitmapContextCreateWithSize(size);
    if (!context) return {};
    CGContextSetAlpha(context, alpha());
    gradient_->drawInContext(context);
    drawn = CIImage::imageWithCGImage(CGBitmapContextCreateImage(context));
  }
  CIImageRef overlay = drawn;
  offsetOverlayImageIfNeeded(overlay);
  operations.front()->setValue(overlay, kCIInputImageKey);
  return CIFiltersWithMaskIfNeeded(operations, operations.front(), size);
}

void BVGradientFilter::applyToCGContext(BVBitmapContext* context) {
  BVBlendFilter::applyToCGContext(context);
  gradient_->drawInContext(context->context());
}

}  // namespace brenvia
