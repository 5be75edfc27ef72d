#include "filter/blend_filter.h"

#include "filter/input.h"
#include "filter/mask.h"
#include "filter/processing.h"
#include "image/bitmap_context.h"
#include "image/graphics_utilities.h"
#include "image/image.h"
#include "operators/alpha_filter.h"
#include "operators/chroma_key_filter.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/clock.h"
#include "platform/foundation/log.h"

#include <algorithm>
#include <cstdio>
#include <limits>

namespace brenvia {
namespace {

// A float truncated to an unsigned 32-bit number, saturating instead of wrapping.
uint32_t truncatedUnsigned(float x) {
  if (!(x > 0.0f)) return 0;
  if (x >= 4294967296.0f) return std::numeric_limits<uint32_t>::max();
  return uint32_t(x);
}

bool isCompositing(const CIFilter& f) {
  const CIOperationRole role = f.classAttributes().role;
  return role == CIOperationRole::Compositing || role == CIOperationRole::Opacity;
}

bool isOpacity(const CIFilter& f) { return f.classAttributes().role == CIOperationRole::Opacity; }

// The recipe's value for an input of the operation's class: numbers and strings as they are,
// colours from hex; nothing for other classes and for values of the wrong kind.
std::optional<CIValue> attributeValue(const std::string& attributeClass, const Value& value) {
  if (attributeClass == "NSNumber" || attributeClass == "NSString") {
    if (value.is_number() || value.is_boolean()) return CIValue(*BVNumber(value));
    if (value.is_string()) return CIValue(value.get<std::string>());
    return std::nullopt;
  }
  if (attributeClass == "CIColor" && value.is_string()) {
    if (CGColorRef color = CGColorCreateWithHex(value.get<std::string>())) return CIColor::colorWithCGColor(color);
  }
  return std::nullopt;
}

std::shared_ptr<CIFilter> operationFromDictionary(const Value& dictionary) {
  const Value* name = BVMember(dictionary, kBVFilterNameKey);
  if (!name || !name->is_string()) {
    BVLog("[BVBlendFilter] An alternate operation needs a name: " + dictionary.dump());
    return nullptr;
  }
  auto operation = CIFilter::filterWithName(name->get<std::string>());
  if (!operation) {
    BVLog("[BVBlendFilter] Unknown alternate operation `" + name->get<std::string>() + "`.");
    return nullptr;
  }
  const Value* attributes = BVMember(dictionary, kBVFilterAttributesKey);
  if (!attributes || !attributes->is_object()) return operation;
  for (const auto& input : operation->classAttributes().inputs) {
    const Value* value = BVMember(*attributes, input.key);
    if (!value) continue;
    if (auto converted = attributeValue(input.attributeClass, *value)) operation->setValue(*converted, input.key);
  }
  return operation;
}

// The recipe's replacement operations: an array of {name, attributes}, one such dictionary, or the older pair of keys.
CIFilterArray alternateOperationsOf(const Value& p) {
  CIFilterArray made;
  auto add = [&made](const Value& dictionary) {
    if (auto operation = operationFromDictionary(dictionary)) made.push_back(std::move(operation));
  };
  const Value* alternates = BVMember(p, kBVFilterAlternateCIFilters);
  const Value* oldName = BVMember(p, "alternateCIFilter");
  const Value* oldAttributes = BVMember(p, "alternateCIAttributes");
  if (alternates && alternates->is_array()) {
    for (const Value& dictionary : *alternates) add(dictionary);
  } else if (alternates && alternates->is_object()) {
    add(*alternates);
  } else if (oldName && oldAttributes) {
    add(Value{{std::string(kBVFilterNameKey), *oldName}, {std::string(kBVFilterAttributesKey), *oldAttributes}});
  }
  return made;
}

}  // namespace

const BVParameterTable<BVBlendSettings>& BVBlendFilter::parameterTable() {
  using S = BVBlendSettings;
  static const BVParameterTable<S> table{
      {kBVFilterAlphaKey, &S::alpha, "opacity of what the filter lays over the picture", BVParameterRange{0, 1}},
      {kBVFilterModeKey, &S::mode, "blend mode name (normal, multiply, screen, overlay, softLight, ...)"},
      {kBVFilterAlphaMinimumKey, &S::alphaMinimum, "lowest random opacity, with alphaMaximum", BVParameterRange{0, 1}},
      {kBVFilterAlphaMaximumKey, &S::alphaMaximum, "random opacity below this, in hundredths", BVParameterRange{0, 1}},
      {kBVFilterAbsoluteAlphaMinimumKey, &S::absoluteAlphaMinimum, "a random opacity below this becomes 0",
       BVParameterRange{0, 1}},
      {kBVFilterMaskKey, BVParameterKind::Dictionary, "where the filter shows"},
      {kBVFilterChromaKey, BVParameterKind::Dictionary, "{colorHex, threshold}: a colour keyed out of the overlay"},
      {kBVFilterAlternateCIFilters, BVParameterKind::Array, "operations replacing the blend: [{name, attributes}]"},
  };
  return table;
}

BVBlendFilter::~BVBlendFilter() {
  if (unhandledMaskDetected_) {
    BVLog(
        "[BVBlendFilter] An unhandled mask was detected. Processing results "
        "are undefined. Please make sure that "
        "you call CIFilterForMaskWithCompositing at the end of "
        "CIFiltersForSize:");
  }
}

void BVBlendFilter::readParameters(const Value& parameters, const BVParameterReader& reader) {
  BVFilterOf::readParameters(parameters, reader);
  const Value* mask = BVMember(parameters, kBVFilterMaskKey);
  mask_ = mask ? BVMask::initWithDictionary(*mask) : nullptr;
  const Value* chromaKey = BVMember(parameters, kBVFilterChromaKey);
  chromaKey_ = chromaKey ? *chromaKey : Value();
}

void BVBlendFilter::copySettingsTo(BVFilter& other) const {
  BVFilterOf::copySettingsTo(other);
  static_cast<BVBlendFilter&>(other).setAlpha(alpha());
}

std::shared_ptr<CIFilter> BVBlendFilter::chromaKeyOperation() const {
  const Value* hex = BVMember(chromaKey_, kBVFilterColorHexKey);
  CGColorRef color = hex && hex->is_string() ? CGColorCreateWithHex(hex->get<std::string>()) : nullptr;
  if (!color) return nullptr;
  auto keying = CIFilter::filterWithName(kBVChromaKeyCIFilterName);
  keying->setValue(CIColor::colorWithCGColor(color), "inputChromaKeyColor");
  if (auto threshold = numberFor(chromaKey_, kBVFilterThresholdKey)) keying->setValue(*threshold, "inputThreshold");
  return keying;
}

double BVBlendFilter::alpha() const {
  std::shared_ptr<BVProcessing> running = processor();
  std::shared_ptr<BVInput> input = running ? running->input() : nullptr;
  if (!input || !input->alphaSliders || input->alphaSliders->empty()) return settings().alpha;
  double sum = 0;
  int count = 0;
  const double own = settings().alpha;
  for (const std::string& tag : tags()) {
    auto slider = input->alphaSliders->find(tag);
    if (slider == input->alphaSliders->end()) continue;
    const double s = double(float(slider->second));
    // A slider at 0.5 keeps the recipe's alpha and 1 doubles it; an opaque filter follows the slider.
    sum += own == 1.0 ? s : own * 2 * s;
    ++count;
  }
  return count ? double(float(sum / count)) : own;
}

void BVBlendFilter::prepareToApply() {
  BVFilterOf::prepareToApply();
  if (settings().alphaMinimum && settings().alphaMaximum && shouldRandomizeAlpha()) randomizeAlpha();
}

// The draw is in whole hundredths from the minimum up to, not including, the maximum.
void BVBlendFilter::randomizeAlpha() {
  const float minimum = float(*settings().alphaMinimum);
  const float maximum = float(*settings().alphaMaximum);
  const uint32_t lower = truncatedUnsigned(minimum * 100.0f), span = truncatedUnsigned((maximum - minimum) * 100.0f);
  const float drawn = float(randomInt32Uniform(span) + lower) * 0.01f;
  setAlpha(drawn);
  const std::optional<double>& absoluteMinimum = settings().absoluteAlphaMinimum;
  if (absoluteMinimum && double(drawn) < *absoluteMinimum) setAlpha(0);
}

// A live preview changes a random alpha at most once per randomization frequency.
bool BVBlendFilter::shouldRandomizeAlpha() {
  std::shared_ptr<BVProcessing> running = processor();
  std::optional<double> frequency = running ? running->randomizationFrequency() : std::nullopt;
  if (!frequency) return true;
  const double now = BVMonotonicSeconds();
  if (now <= lastTimeAlphaChanged_ + *frequency) return false;
  lastTimeAlphaChanged_ = now;
  return true;
}

CIFilterArray BVBlendFilter::CIFiltersForSize(CGSize) {
  if (!supportsCIFilter()) return {};
  if (CIFilterArray alternates = alternateCIFilters(); !alternates.empty()) return alternates;
  auto blend = CIFilter::filterWithName(CIFilterNameFromBVBlendMode(mode().value_or("")));
  if (mask_) {
    unhandledMaskDetected_ = true;
    return {blend};
  }
  std::shared_ptr<CIFilter> keying = chromaKeyOperation();
  return {keying ? keying : blend};
}

CIFilterArray BVBlendFilter::alternateCIFilters() const {
  if (!alternatePrototypes_) alternatePrototypes_ = alternateOperationsOf(parameters());
  CIFilterArray copies;
  for (const auto& prototype : *alternatePrototypes_) copies.push_back(prototype->copy());
  return copies;
}
CIImageRef BVBlendFilter::overlayImageWithAlpha(const BVImage& image) const {
  return overlayImageWithAlpha(CIImage::imageWithCGImage(image.CGImage()));
}

CIImageRef BVBlendFilter::overlayImageWithAlpha(const CIImageRef& image) const {
  if (!image) return nullptr;
  const double a = alpha();
  return a == 1.0 ? image : BVAlphaCIFilterImageWithAlpha(a, image);
}

void BVBlendFilter::offsetOverlayImageIfNeeded(CIImageRef& image) const {
  std::shared_ptr<BVProcessing> running = processor();
  if (!image || !running) return;
  const CGPoint origin = running->processingRect().origin;
  if (origin.x != 0 || origin.y != 0) {
    image = image->imageByApplyingTransform(CGAffineTransformMakeTranslation(origin.x, origin.y));
  }
}

CIFilterArray BVBlendFilter::CIFiltersWithMaskIfNeeded(const CIFilterArray& filters,
                                                       const std::shared_ptr<CIFilter>& imageFilter, CGSize) {
  if (!mask_) return filters;
  unhandledMaskDetected_ = false;
  std::shared_ptr<CIFilter> maskFilter = mask_->maskCIFilterForFilter(*this);
  if (!maskFilter) return filters;
  if (imageFilter) {
    maskFilter->setValue(imageFilter->valueForKey(kCIInputImageKey), kCIInputImageKey);
    imageFilter->setValue(maskFilter->outputImage(), kCIInputImageKey);
    return filters;
  }
  // Before the last compositing step, and before an opacity step right ahead of it, so the mask
  // cuts the effect before anything is laid over the background.
  auto last = std::find_if(filters.rbegin(), filters.rend(), [](const auto& f) { return isCompositing(*f); });
  CIFilterArray placed = filters;
  if (last == filters.rend()) {
    placed.push_back(maskFilter);
    return placed;
  }
  size_t at = size_t(filters.rend() - last) - 1;
  if (at > 0 && isOpacity(*filters[at - 1])) --at;
  placed.insert(placed.begin() + std::ptrdiff_t(at), maskFilter);
  return placed;
}

void BVBlendFilter::applyToCGContext(BVBitmapContext* context) {
  const CGContextRef& c = context->context();
  if (mask_) {
    std::shared_ptr<BVImage> picture = mask_->maskImageForFilter(*this);
    if (CGImageRef pixels = picture ? picture->CGImage() : nullptr) {
      CGContextClipToMask(c, CGContextGetClipBoundingBox(c), pixels);
    }
  } else if (!chromaKey_.is_null()) {
    BVLog(
        "[BVBlendFilter] Chroma Key is not supported with CGContext. Use the "
        "Core Image chain or implement vImage.");
  }
  const std::string name = mode().value_or("");
  CGContextSetBlendMode(c, name == kBVBlendModeClear ? kCGBlendModeNormal : CGBlendModeWithString(name));
  CGContextSetAlpha(c, alpha());
}

void BVBlendFilter::clearProcessingCaches() {
  BVFilterOf::clearProcessingCaches();
  if (mask_ && mask_->imageName()) mask_->clearProcessingCache();
}

}  // namespace brenvia
