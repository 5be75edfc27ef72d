#include "catalogue/color_filter.h"

#include "filter/processing.h"
#include "image/bitmap_context.h"
#include "image/graphics_utilities.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"

namespace brenvia {
namespace {

CGColorRef colorOf(const std::string& hex) { return hex.empty() ? nullptr : CGColorCreateWithHex(hex); }

double unit(double level) { return double(float(level) / 255.0f); }

}  // namespace

const BVParameterTable<BVColorSettings>& BVColorFilter::parameterTable() {
  using S = BVColorSettings;
  constexpr BVParameterRange level{0, 255};
  static const BVParameterTable<S> table{
      {kBVFilterColorHexKey, &S::colorHex, "the colour as #rgb, #rrggbb or #rrggbbaa"},
      {kBVFilterColorRedKey, &S::colorRed, "red without colorHex", level, BVParameterRead::Always},
      {kBVFilterColorGreenKey, &S::colorGreen, "green without colorHex", level, BVParameterRead::Always},
      {kBVFilterColorBlueKey, &S::colorBlue, "blue without colorHex", level, BVParameterRead::Always},
  };
  return table;
}

void BVColorFilter::readParameters(const Value& parameters, const BVParameterReader& reader) {
  BVFilterOf::readParameters(parameters, reader);
  const std::optional<std::string>& hex = settings().colorHex;
  if (hex && !hex->empty() && !colorOf(*hex) && reader.reportsUnusableValues) {
    BVLog("[BVColorFilter] `" + *hex + "` is not a hex colour; the colour stays as it was.");
  }
}

// A recipe with `colorHex` takes its colour from there only; an empty string or one that is no colour leaves the colour
// black, as a new filter has it.
std::array<double, 3> BVColorFilter::components() const {
  if (const std::optional<std::string>& hex = settings().colorHex) {
    CGColorRef color = colorOf(*hex);
    if (!color) return {0, 0, 0};
    const double* c = CGColorGetComponents(color);
    return {c[0], c[1], c[2]};
  }
  return {unit(settings().colorRed), unit(settings().colorGreen), unit(settings().colorBlue)};
}

CIFilterArray BVColorFilter::CIFiltersForSize(CGSize size) {
  CIFilterArray operations = BVBlendFilter::CIFiltersForSize(size);
  if (operations.empty() || !alternateCIFilters().empty()) return operations;
  std::shared_ptr<BVProcessing> running = processor();
  const CGRect canvas = running ? running->processingRect() : CGRectMake(0, 0, size.width, size.height);
  // The opacity goes into the colour layer itself, so the blend operation sees a translucent colour.
  const auto [r, g, b] = components();
  CIImageRef layer = CIImage::imageWithColor(CIColor::colorWithRed(r, g, b, alpha()));
  operations.front()->setValue(layer->imageByCroppingToRect(canvas), kCIInputImageKey);
  return CIFiltersWithMaskIfNeeded(operations, operations.front(), size);
}

void BVColorFilter::applyToCGContext(BVBitmapContext* context) {
  BVBlendFilter::applyToCGContext(context);
  const CGContextRef& c = context->context();
  const auto [r, g, b] = components();
  CGContextSetRGBFillColor(c, r, g, b, 1.0);
  CGContextFillRect(c, CGContextGetClipBoundingBox(c));
}

}  // namespace brenvia
