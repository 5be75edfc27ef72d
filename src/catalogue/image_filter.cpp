#include "catalogue/image_filter.h"

#include "filter/input.h"
#include "filter/processing.h"
#include "filter/randomization.h"
#include "image/bitmap_context.h"
#include "image/image.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/clock.h"
#include "platform/foundation/log.h"

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

const BVParameterTable<BVImageSettings>& BVImageFilter::parameterTable() {
  using S = BVImageSettings;
  static const BVParameterTable<S> table{
      {kBVFilterImageNameKey, &S::imageName, "picture laid over: a file name in the asset folder, no extension"},
      {kBVFilterRandomizeImageKey, &S::randomizeImage, "mirror both ways and turn by quarter turns at random"},
      {kBVFilterRandomlyMirrorHorizontallyKey, &S::randomlyMirrorHorizontally, "mirror left to right at random"},
      {kBVFilterRandomlyMirrorVerticallyKey, &S::randomlyMirrorVertically, "mirror top to bottom at random"},
      {kBVFilterRandomlyRotateKey, &S::randomlyRotate, "90: quarter turns at random; other positive: half turns",
       std::nullopt, BVParameterRead::Always},
      {kBVFilterImageScalingKey, &S::scaling, "stretch (default), fill, fit or custom"},
      {kBVFilterImagePositionKey, &S::position, "edges to place the picture at: top, bottom, left, right"},
      {kBVFilterImageChangeFrequencyKey, &S::changeFrequency, "changes per second on video; 0: every frame",
       std::nullopt, BVParameterRead::Always},
      {kBVFilterZoomKey, &S::zoom, "scale about the centre", BVParameterRange{0.1, 10}},
      {kBVFilterImageCustomRatiosKey, BVParameterKind::Array, "aspect ratios of the <name>-<ratio> pictures"},
      {kBVFilterImageBlendsKey, BVParameterKind::Array, "randomImage and imageSequence: the pictures to choose from"},
  };
  return table;
}

void BVImageFilter::readParameters(const Value& parameters, const BVParameterReader& reader) {
  BVFilterOf::readParameters(parameters, reader);
  const BVImageSettings& s = settings();
  placement_.imageName = s.imageName;
  placement_.mirrorHorizontally = s.randomizeImage || s.randomlyMirrorHorizontally;
  placement_.mirrorVertically = s.randomizeImage || s.randomlyMirrorVertically;
  placement_.rotate = s.randomizeImage ? 90 : s.randomlyRotate;
  placement_.scalingMode = BVImageScalingModeFromString(s.scaling);
  placement_.position = BVImagePositionFromString(s.position.value_or(""));
  if (const Value* ratios = BVMember(parameters, kBVFilterImageCustomRatiosKey); ratios && ratios->is_array()) {
    std::vector<std::string> strings;
    for (const Value& ratio : *ratios) {
      if (ratio.is_string()) strings.push_back(ratio.get<std::string>());
    }
    customRatios_ = std::move(strings);
  }
  randomTransform_ = CGAffineTransformIdentity;
}

void BVImageFilter::copySettingsTo(BVFilter& other) const {
  BVFilterOf::copySettingsTo(other);
  static_cast<BVImageFilter&>(other).image_ = image_;
}

void BVImageFilter::prepareToApply() {
  BVFilterOf::prepareToApply();
  const std::vector<std::string> all = tags();
  if (std::find(all.begin(), all.end(), kBVFilterTagGrain) == all.end()) return;
  std::shared_ptr<BVProcessing> running = processor();
  std::shared_ptr<BVInput> input = running ? running->input() : nullptr;
  std::optional<BVInputValue> grainZoom = input ? input->otherInputValueForKey("imageGrainZoom") : std::nullopt;
  if (grainZoom && std::holds_alternative<double>(*grainZoom)) setZoom(std::get<double>(*grainZoom));
}

void BVImageFilter::prepareToProcessAtSize(CGSize size) {
  prepareToApply();
  if (imageName()) prepareToProcessImageNamed(*imageName(), size, scalingMode());
}

void BVImageFilter::clearProcessingCaches() {
  BVFilterOf::clearProcessingCaches();
  if (imageName()) clearProcessingCacheForImageNamed(*imageName());
}

uint64_t BVImageFilter::processingCachesByteSize() const {
  const std::optional<std::string>& name = imageName();
  const uint64_t own = name ? uint64_t(std::max<int64_t>(0, processingCachesByteSizeForImageNamed(*name))) : 0;
  return BVFilterOf::processingCachesByteSize() + own;
}

BVRandomization* BVImageFilter::randomization() const {
  std::shared_ptr<BVProcessing> running = processor();
  std::shared_ptr<BVInput> input = running ? running->input() : nullptr;
  return input ? input->randomization.get() : nullptr;
}

std::shared_ptr<BVImage> BVImageFilter::imageForSize(CGSize size) const {
  if (image_) return image_;
  return imageName() ? imageNamed(*imageName(), size, scalingMode()) : nullptr;
}

CIImageRef BVImageFilter::ciImageForSize(CGSize size) const {
  if (image_) return image_->CIImage();
  return imageName() ? CIImageNamed(*imageName(), size, scalingMode(), imagePosition()) : nullptr;
}

std::vector<CIImageRef> BVImageFilter::allCIImagesAtSize(CGSize size) {
  std::shared_ptr<BVImage> picture = imageForSize(size);
  CIImageRef image = picture ? picture->CIImage() : nullptr;
  if (!image) {
    BVLog("[BVImageFilter] Unable to load image named " + imageName().value_or("(null)"));
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
  const Value& p = preparedParameters();
  return BVMember(p, kBVFilterTransitionMinimumValueKey) || BVMember(p, kBVFilterTransitionMaximumValueKey) ||
         BVMember(p, kBVFilterTransitionStaticValueKey);
}

bool BVImageFilter::hasAlphaDefinedInSlider() const {
  std::shared_ptr<BVProcessing> running = processor();
  std::shared_ptr<BVInput> input = running ? running->input() : nullptr;
  if (!input || !input->sliderNumber()) return false;
  const Value* slider = BVMember(preparedParameters(), kBVFilterSliderKey);
  const Value* keyPath = slider ? BVMember(*slider, "keyPath") : nullptr;
  return keyPath && keyPath->is_string() && keyPath->get<std::string>() == kBVFilterAlphaKey;
}

CIFilterArray BVImageFilter::CIFiltersForSize(CGSize size) {
  CIFilterArray operations = BVFilterOf::CIFiltersForSize(size);
  if (operations.empty() || !alternateCIFilters().empty()) return operations;
  const std::shared_ptr<CIFilter>& imageOperation = operations.front();
  CIImageRef overlay = overlayImageWithAlpha(ciImageForSize(size));
  if (!overlay) return {};
  const Placement& p = placement_;
  if (p.mirrorHorizontally || p.mirrorVertically || p.rotate != 0) {
    if (shouldChangeImage()) {
      // Only pictures that are nearly square are turned.
      const CGSize extent = overlay->extent().size;
      const double aspect = extent.width / extent.height;
      const double rotation = aspect > 0.95 && aspect < 1.05 ? p.rotate : 0;
      randomTransform_ = BVRandomlyMirroredAndRotatedTransform(p.mirrorHorizontally, p.mirrorVertically, true,
                                                               randomization(), size, rotation);
    }
    overlay = overlay->imageByApplyingTransform(randomTransform_);
  }
  offsetOverlayImageIfNeeded(overlay);
  if (zoom() != 1.0) {
    overlay = overlay->imageByApplyingTransform(zoomAboutCentre(size, zoom()));
    if (std::shared_ptr<BVProcessing> running = processor())
      overlay = overlay->imageByCroppingToRect(running->processingRect());
  }
  imageOperation->setValue(overlay, kCIInputImageKey);
  return CIFiltersWithMaskIfNeeded(operations, imageOperation, size);
}

void BVImageFilter::applyToCGContext(BVBitmapContext* context) {
  BVFilterOf::applyToCGContext(context);
  const CGContextRef& c = context->context();
  const CGRect box = CGContextGetClipBoundingBox(c);
  std::shared_ptr<BVImage> picture = imageForSize(box.size);
  BVRandomlyMirrorAndRotateContext(c, placement_.mirrorHorizontally, placement_.mirrorVertically, randomization(),
                                   placement_.rotate);
  CGContextSetAlpha(c, alpha());
  if (picture) CGContextDrawImage(c, box, picture->CGImage());
}

void BVImageFilter::applyMirrorAndRotation(const Value& blend, bool halfTurnsOnly) {
  const Value& recipe = preparedParameters();
  Placement& p = placement_;
  auto flag = [](const Value& dictionary, std::string_view key) { return boolFor(dictionary, key).value_or(false); };
  if (flag(blend, kBVFilterRandomizeImageKey) || flag(recipe, kBVFilterRandomizeImageKey)) {
    p.mirrorHorizontally = p.mirrorVertically = true;
    p.rotate = 90;
    return;
  }
  p.mirrorHorizontally =
      flag(blend, kBVFilterRandomlyMirrorHorizontallyKey) || flag(recipe, kBVFilterRandomlyMirrorHorizontallyKey);
  p.mirrorVertically =
      flag(blend, kBVFilterRandomlyMirrorVerticallyKey) || flag(recipe, kBVFilterRandomlyMirrorVerticallyKey);
  const std::optional<double> own = numberFor(blend, kBVFilterRandomlyRotateKey);
  const std::optional<double> recipes = numberFor(recipe, kBVFilterRandomlyRotateKey);
  if (halfTurnsOnly) {
    p.rotate = own.value_or(0) != 0 || recipes.value_or(0) != 0 ? 1.0 : 0.0;
  } else if (own || recipes) {
    p.rotate = own ? *own : *recipes;
  }
}

}  // namespace brenvia
