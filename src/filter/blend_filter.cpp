#include "filter/blend_filter.h"

#include "image/bitmap_context.h"
#include "image/graphics_utilities.h"
#include "image/image.h"
#include "masks/mask.h"
#include "operators/alpha_filter.h"
#include "operators/chroma_key_filter.h"
#include "operators/library_operators.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/clock.h"
#include "platform/foundation/log.h"
#include "filter/input.h"
#include "filter/processing.h"

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
  const auto& categories = f.classAttributes().categories;
  return f.name() == kBVAlphaCIFilterName ||
         std::find(categories.begin(), categories.end(), kCICategoryCompositeOperation) != categories.end();
}

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

}  // namespace

BVBlendFilter::BVBlendFilter() { BVRegisterLibraryOperators(); }

BVBlendFilter::~BVBlendFilter() {
  if (unhandledMaskDetected_) {
    BVLog("[BVBlendFilter] An unhandled mask was detected. Processing results are undefined. Please make sure that "
          "you call CIFilterForMaskWithCompositing at the end of CIFiltersForSize:");
  }
}

void BVBlendFilter::initWithParameters(const Value& parameters) {
  BVFilter::initWithParameters(parameters);
  if (!BVMember(parameters, kBVFilterAlphaKey)) alpha_ = 1.0;
}

void BVBlendFilter::setParameters(const Value& parameters) {
  BVFilter::setParameters(parameters);
  mode_ = stringFor(parameters, kBVFilterModeKey);
  if (auto alpha = numberFor(parameters, kBVFilterAlphaKey)) setAlpha(*alpha);
  mask_ = nullptr;
  if (const Value* mask = BVMember(parameters, kBVFilterMaskKey); mask && !mask->is_null()) {
    BVLog("[BVBlendFilter] Masks are not supported yet; the filter is applied without its mask.");
  }
  const Value* chromaKey = BVMember(parameters, kBVFilterChromaKey);
  setChromaKey(chromaKey ? *chromaKey : Value());
}

void BVBlendFilter::setChromaKey(const Value& chromaKey) {
  chromaKey_ = chromaKey;
  cachedChromaKeyFilter_ = nullptr;
  const Value* hex = BVMember(chromaKey, kBVFilterColorHexKey);
  CGColorRef color = hex && hex->is_string() ? CGColorCreateWithHex(hex->get<std::string>()) : nullptr;
  if (!color) return;
  cachedChromaKeyFilter_ = CIFilter::filterWithName(kBVChromaKeyCIFilterName);
  cachedChromaKeyFilter_->setValue(CIColor::colorWithCGColor(color), "inputChromaKeyColor");
  if (auto threshold = numberFor(chromaKey, kBVFilterThresholdKey)) {
    cachedChromaKeyFilter_->setValue(*threshold, "inputThreshold");
  }
}

double BVBlendFilter::alpha() const {
  std::shared_ptr<BVProcessing> running = processor();
  std::shared_ptr<BVInput> input = running ? running->input() : nullptr;
  if (!input || !input->alphaSliders || input->alphaSliders->empty()) return alpha_;
  double sum = 0;
  int count = 0;
  for (const std::string& tag : tags()) {
    auto slider = input->alphaSliders->find(tag);
    if (slider == input->alphaSliders->end()) continue;
    const double s = double(float(slider->second));
    // A slider at 0.5 keeps the recipe's alpha and 1 doubles it; an opaque filter follows the slider.
    sum += alpha_ == 1.0 ? s : alpha_ * 2 * s;
    ++count;
  }
  return count ? double(float(sum / count)) : alpha_;
}

void BVBlendFilter::prepareToApply() {
  BVFilter::prepareToApply();
  const Value& p = parameters();
  if (numberFor(p, kBVFilterAlphaMinimumKey) && numberFor(p, kBVFilterAlphaMaximumKey) && shouldRandomizeAlpha()) {
    randomizeAlpha();
  }
}

// The draw is in whole hundredths from the minimum up to, not including, the maximum.
void BVBlendFilter::randomizeAlpha() {
  const Value& p = parameters();
  const float minimum = float(*numberFor(p, kBVFilterAlphaMinimumKey));
  const float maximum = float(*numberFor(p, kBVFilterAlphaMaximumKey));
  const uint32_t lower = truncatedUnsigned(minimum * 100.0f), span = truncatedUnsigned((maximum - minimum) * 100.0f);
  const float drawn = float(randomInt32Uniform(span) + lower) * 0.01f;
  setAlpha(drawn);
  auto absoluteMinimum = numberFor(p, kBVFilterAbsoluteAlphaMinimumKey);
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

CIFilterArray BVBlendFilter::CIFiltersForSize(CGSize size) {
  BVFilter::CIFiltersForSize(size);
  if (!supportsCIFilter()) return {};
  if (!alternateCIFilters().empty()) return alternateCIFilters();
  auto blend = CIFilter::filterWithName(CIFilterNameFromBVBlendMode(mode_.value_or("")));
  if (mask_) {
    unhandledMaskDetected_ = true;
    return {blend};
  }
  return {cachedChromaKeyFilter_ ? cachedChromaKeyFilter_ : blend};
}

const CIFilterArray& BVBlendFilter::alternateCIFilters() {
  if (alternateCIFilters_) return *alternateCIFilters_;
  CIFilterArray made;
  auto add = [&made](const Value& dictionary) {
    if (auto operation = operationFromDictionary(dictionary)) made.push_back(std::move(operation));
  };
  const Value& p = parameters();
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
  alternateCIFilters_ = std::move(made);
  return *alternateCIFilters_;
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
  if (at > 0 && filters[at - 1]->name() == kBVAlphaCIFilterName) --at;
  placed.insert(placed.begin() + std::ptrdiff_t(at), maskFilter);
  return placed;
}

void BVBlendFilter::applyToCGContext(BVBitmapContext* context) {
  const CGContextRef& c = context->context();
  if (mask_) {
    if (CGImageRef picture = mask_->maskImageForFilter(*this)) {
      CGContextClipToMask(c, CGContextGetClipBoundingBox(c), picture);
    }
  } else if (!chromaKey_.is_null()) {
    BVLog("[BVBlendFilter] Chroma Key is not supported with CGContext. Use the Core Image chain or implement vImage.");
  }
  const std::string mode = mode_.value_or("");
  CGContextSetBlendMode(c, mode == kBVBlendModeClear ? kCGBlendModeNormal : CGBlendModeWithString(mode));
  CGContextSetAlpha(c, alpha());
}

void BVBlendFilter::clearProcessingCaches() {
  BVFilter::clearProcessingCaches();
  if (mask_ && mask_->imageName()) mask_->clearProcessingCache();
}

BVFilterRef BVBlendFilter::copy() const {
  auto made = std::static_pointer_cast<BVBlendFilter>(BVFilter::copy());
  made->setAlpha(alpha());
  return made;
}

std::string BVBlendFilter::description() const {
  char buffer[256];
  std::snprintf(buffer, sizeof buffer, "<%s: %p; %s %i%%>", className().c_str(), static_cast<const void*>(this),
                mode_ ? mode_->c_str() : "(null)", int(alpha() * 100));
  return buffer;
}

}  // namespace brenvia
