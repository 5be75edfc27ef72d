#include "catalogue/image_filter.h"

#include "filter/randomization.h"
#include "image/bitmap_context.h"
#include "image/image.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/clock.h"
#include "platform/foundation/log.h"
#include "filter/input.h"
#include "filter/processing.h"

#include <cstdio>

namespace brenvia {
namespace {

// The transform that scales by `zoom` about the centre of a canvas of `size`.
CGAffineTransform zoomAboutCentre(CGSize size, double zoom) {
  const double cx = size.width / 2, cy = size.height / 2;
  return CGAffineTransform{zoom, 0, 0, zoom, cx - zoom * cx, cy - zoom * cy};
}

}  // namespace

BVImagePosition BVImagePositionFromString(std::string_view words) {
  BVImagePosition position = kBVImagePositionNone;
  size_t start = 0;
  while (start < words.size()) {
    size_t blank = words.find(' ', start);
    if (blank == std::string_view::npos) blank = words.size();
    const std::string_view word = words.substr(start, blank - start);
    if (word == kBVFilterImagePositionTop) position |= kBVImagePositionTop;
    if (word == kBVFilterImagePositionBottom) position |= kBVImagePositionBottom;
    if (word == kBVFilterImagePositionLeft) position |= kBVImagePositionLeft;
    if (word == kBVFilterImagePositionRight) position |= kBVImagePositionRight;
    start = blank + 1;
  }
  return position;
}

const Value& BVImageBlends(const Value& parameters) {
  static const Value empty = Value::array();
  const Value* blends = BVMember(parameters, kBVFilterImageBlendsKey);
  return blends && blends->is_array() ? *blends : empty;
}

void BVImageFilter::initWithParameters(const Value& parameters) {
  BVBlendFilter::initWithParameters(parameters);
  if (!BVMember(parameters, kBVFilterZoomKey)) zoom_ = 1.0;
}

void BVImageFilter::setParameters(const Value& parameters) {
  BVBlendFilter::setParameters(parameters);
  imageName_ = stringFor(parameters, kBVFilterImageNameKey);
  if (const Value* ratios = BVMember(parameters, kBVFilterImageCustomRatiosKey); ratios && ratios->is_array()) {
    std::vector<std::string> strings;
    for (const Value& ratio : *ratios) {
      if (ratio.is_string()) strings.push_back(ratio.get<std::string>());
    }
    customRatios_ = std::move(strings);
  }
  if (boolFor(parameters, kBVFilterRandomizeImageKey).value_or(false)) {
    randomlyMirrorHorizontally_ = randomlyMirrorVertically_ = true;
    randomlyRotate_ = 90;
  } else {
    randomlyMirrorHorizontally_ = boolFor(parameters, kBVFilterRandomlyMirrorHorizontallyKey).value_or(false);
    randomlyMirrorVertically_ = boolFor(parameters, kBVFilterRandomlyMirrorVerticallyKey).value_or(false);
    randomlyRotate_ = numberFor(parameters, kBVFilterRandomlyRotateKey).value_or(0);
  }
  scalingMode_ = BVImageScalingModeFromString(stringFor(parameters, kBVFilterImageScalingKey));
  imagePosition_ = BVImagePositionFromString(stringFor(parameters, kBVFilterImagePositionKey).value_or(""));
  changeFrequency_ = numberFor(parameters, kBVFilterImageChangeFrequencyKey).value_or(0);
  if (auto zoom = numberFor(parameters, kBVFilterZoomKey)) zoom_ = *zoom;
  randomTransform_ = CGAffineTransformIdentity;
}

void BVImageFilter::prepareToApply() {
  BVBlendFilter::prepareToApply();
  const std::vector<std::string> all = tags();
  if (std::find(all.begin(), all.end(), kBVFilterTagGrain) == all.end()) return;
  std::shared_ptr<BVProcessing> running = processor();
  std::shared_ptr<BVInput> input = running ? running->input() : nullptr;
  std::optional<BVInputValue> grainZoom = input ? input->otherInputValueForKey("imageGrainZoom") : std::nullopt;
  if (grainZoom && std::holds_alternative<double>(*grainZoom)) zoom_ = std::get<double>(*grainZoom);
}

void BVImageFilter::prepareToProcessAtSize(CGSize size) {
  prepareToApply();
  if (imageName_) prepareToProcessImageNamed(*imageName_, size, scalingMode_);
}

void BVImageFilter::clearProcessingCaches() {
  BVBlendFilter::clearProcessingCaches();
  if (imageName_) clearProcessingCacheForImageNamed(*imageName_);
}

uint64_t BVImageFilter::processingCachesByteSize() const {
  const uint64_t own = imageName_ ? uint64_t(std::max<int64_t>(0, processingCachesByteSizeForImageNamed(*imageName_))) : 0;
  return BVBlendFilter::processingCachesByteSize() + own;
}

BVRandomization* BVImageFilter::randomization() const {
  std::shared_ptr<BVProcessing> running = processor();
  std::shared_ptr<BVInput> input = running ? running->input() : nullptr;
  return input ? input->randomization.get() : nullptr;
}

std::shared_ptr<BVImage> BVImageFilter::imageForSize(CGSize size) const {
  if (image_) return image_;
  return imageName_ ? imageNamed(*imageName_, size, scalingMode_) : nullptr;
}

CIImageRef BVImageFilter::ciImageForSize(CGSize size) const {
  if (image_) return image_->CIImage();
  return imageName_ ? CIImageNamed(*imageName_, size, scalingMode_, imagePosition_) : nullptr;
}

std::vector<CIImageRef> BVImageFilter::allCIImagesAtSize(CGSize size) {
  std::shared_ptr<BVImage> picture = imageForSize(size);
  CIImageRef image = picture ? picture->CIImage() : nullptr;
  if (!image) {
    BVLog("[BVImageFilter] Unable to load image named " + imageName_.value_or("(null)"));
    return {};
  }
  return {image};
}

bool BVImageFilter::shouldChangeImage() {
  std::shared_ptr<BVProcessing> running = processor();
  std::optional<double> frequency = running ? running->randomizationFrequency() : std::nullopt;
  if (!frequency || *frequency == 0) return true;
  const double now = BVMonotonicSeconds();
  if (now <= lastAbsoluteTimeChangeOccurred_ + *frequency) return false;
  lastAbsoluteTimeChangeOccurred_ = now;
  return true;
}

bool BVImageFilter::hasAlphaDefinedInTransition() const {
  const Value& p = parameters();
  return BVMember(p, kBVFilterTransitionMinimumValueKey) || BVMember(p, kBVFilterTransitionMaximumValueKey) ||
         BVMember(p, kBVFilterTransitionStaticValueKey);
}

bool BVImageFilter::hasAlphaDefinedInSlider() const {
  std::shared_ptr<BVProcessing> running = processor();
  std::shared_ptr<BVInput> input = running ? running->input() : nullptr;
  if (!input || !input->sliderNumber()) return false;
  const Value* slider = BVMember(parameters(), kBVFilterSliderKey);
  const Value* keyPath = slider ? BVMember(*slider, "keyPath") : nullptr;
  return keyPath && keyPath->is_string() && keyPath->get<std::string>() == kBVFilterAlphaKey;
}

CIFilterArray BVImageFilter::CIFiltersForSize(CGSize size) {
  CIFilterArray operations = BVBlendFilter::CIFiltersForSize(size);
  if (operations.empty()) return {};
  if (!alternateCIFilters().empty()) return alternateCIFilters();
  const std::shared_ptr<CIFilter>& imageOperation = operations.front();
  CIImageRef overlay = overlayImageWithAlpha(ciImageForSize(size));
  if (!overlay) return {};
  if (randomlyMirrorHorizontally_ || randomlyMirrorVertically_ || randomlyRotate_ != 0) {
    if (shouldChangeImage()) {
      // Only pictures that are nearly square are turned.
      const CGSize extent = overlay->extent().size;
      const double aspect = extent.width / extent.height;
      const double rotation = aspect > 0.95 && aspect < 1.05 ? randomlyRotate_ : 0;
      randomTransform_ = BVRandomlyMirroredAndRotatedTransform(randomlyMirrorHorizontally_, randomlyMirrorVertically_,
                                                               true, randomization(), size, rotation);
    }
    overlay = overlay->imageByApplyingTransform(randomTransform_);
  }
  offsetOverlayImageIfNeeded(overlay);
  if (zoom_ != 1.0) {
    overlay = overlay->imageByApplyingTransform(zoomAboutCentre(size, zoom_));
    if (std::shared_ptr<BVProcessing> running = processor()) overlay = overlay->imageByCroppingToRect(running->processingRect());
  }
  imageOperation->setValue(overlay, kCIInputImageKey);
  return CIFiltersWithMaskIfNeeded(operations, imageOperation, size);
}

void BVImageFilter::applyToCGContext(BVBitmapContext* context) {
  BVBlendFilter::applyToCGContext(context);
  const CGContextRef& c = context->context();
  const CGRect box = CGContextGetClipBoundingBox(c);
  std::shared_ptr<BVImage> picture = imageForSize(box.size);
  BVRandomlyMirrorAndRotateContext(c, randomlyMirrorHorizontally_, randomlyMirrorVertically_, randomization(),
                                   randomlyRotate_);
  CGContextSetAlpha(c, alpha());
  if (picture) CGContextDrawImage(c, box, picture->CGImage());
}

void BVImageFilter::applyMirrorAndRotation(const Value& blend, bool halfTurnsOnly) {
  const Value& recipe = parameters();
  auto flag = [](const Value& dictionary, std::string_view key) { return boolFor(dictionary, key).value_or(false); };
  if (flag(blend, kBVFilterRandomizeImageKey) || flag(recipe, kBVFilterRandomizeImageKey)) {
    randomlyMirrorHorizontally_ = randomlyMirrorVertically_ = true;
    randomlyRotate_ = 90;
    return;
  }
  randomlyMirrorHorizontally_ =
      flag(blend, kBVFilterRandomlyMirrorHorizontallyKey) || flag(recipe, kBVFilterRandomlyMirrorHorizontallyKey);
  randomlyMirrorVertically_ =
      flag(blend, kBVFilterRandomlyMirrorVerticallyKey) || flag(recipe, kBVFilterRandomlyMirrorVerticallyKey);
  const std::optional<double> own = numberFor(blend, kBVFilterRandomlyRotateKey);
  const std::optional<double> recipes = numberFor(recipe, kBVFilterRandomlyRotateKey);
  if (halfTurnsOnly) {
    randomlyRotate_ = own.value_or(0) != 0 || recipes.value_or(0) != 0 ? 1.0 : 0.0;
  } else if (own || recipes) {
    randomlyRotate_ = own ? *own : *recipes;
  }
}

BVFilterRef BVImageFilter::copy() const {
  auto made = std::static_pointer_cast<BVImageFilter>(BVBlendFilter::copy());
  made->imageName_ = imageName_;
  made->image_ = image_;
  made->randomlyMirrorHorizontally_ = randomlyMirrorHorizontally_;
  made->randomlyMirrorVertically_ = randomlyMirrorVertically_;
  made->randomlyRotate_ = randomlyRotate_;
  made->scalingMode_ = scalingMode_;
  made->changeFrequency_ = changeFrequency_;
  return made;
}

std::string BVImageFilter::description() const {
  char buffer[512];
  std::snprintf(buffer, sizeof buffer, "<%s: %p; %s %i%%; name = %s>", className().c_str(), static_cast<const void*>(this),
                mode() ? mode()->c_str() : "(null)", int(alpha() * 100), imageName_ ? imageName_->c_str() : "(null)");
  return buffer;
}

}  // namespace brenvia
