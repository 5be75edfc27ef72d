#include "catalogue/image_filter.h"

#include "image/image.h"
#include "platform/foundation/log.h"

namespace brenvia {
namespace {

std::optional<std::string> blendImageName(const Value& blend) {
  const Value* name = BVMember(blend, kBVFilterImageNameKey);
  return name && name->is_string() ? std::optional(name->get<std::string>()) : std::nullopt;
}

// The CIImages of every blend's picture at the size; a picture that cannot be loaded is logged and
// left out.
template <class Load>
std::vector<CIImageRef> blendImages(const Value& blends, std::string_view className, Load load) {
  std::vector<CIImageRef> images;
  for (const Value& blend : blends) {
    const std::optional<std::string> name = blendImageName(blend);
    std::shared_ptr<BVImage> picture = name ? load(*name) : nullptr;
    CIImageRef image = picture ? picture->CIImage() : nullptr;
    if (image) {
      images.push_back(image);
    } else {
      std::string line(1, '[');
      line.append(className).append("] Unable to load image named ").append(name.value_or("(null)"));
      BVLog(line);
    }
  }
  return images;
}

void clearBlendPictures(const BVFilter& filter) {
  for (const Value& blend : BVImageBlends(filter.parameters())) {
    if (auto name = blendImageName(blend)) filter.clearProcessingCacheForImageNamed(*name);
  }
}

}  // namespace

// --- Random choice ---

void BVRandomImageFilter::prepareToApply() {
  BVImageFilter::prepareToApply();
  const Value& blends = BVImageBlends(preparedParameters());
  if (blends.empty()) return;
  if (shouldChangeImage()) lastRandomizedIndex_ = int64_t(randomInt32Uniform(uint32_t(blends.size())));
  const Value& blend = blends[size_t(std::min<int64_t>(lastRandomizedIndex_, int64_t(blends.size()) - 1))];
  if (auto name = blendImageName(blend)) setImageName(name);
  if (auto alpha = numberFor(blend, kBVFilterAlphaKey);
      alpha && !hasAlphaDefinedInTransition() && !hasAlphaDefinedInSlider()) {
    setAlpha(*alpha);
  }
  if (BVMember(blend, kBVFilterModeKey)) setMode(stringFor(blend, kBVFilterModeKey));
  if (BVMember(blend, kBVFilterImageScalingKey)) {
    setScalingMode(BVImageScalingModeFromString(stringFor(blend, kBVFilterImageScalingKey)));
  }
  setSupportsCIFilter(!boolFor(blend, "skipCIFilter").value_or(false));
  applyMirrorAndRotation(blend, false);
}

void BVRandomImageFilter::prepareToProcessAtSize(CGSize size) {
  for (const Value& blend : BVImageBlends(parameters())) {
    if (auto name = blendImageName(blend)) prepareToProcessImageNamed(*name, size, scalingMode());
  }
}

void BVRandomImageFilter::clearProcessingCaches() {
  BVImageFilter::clearProcessingCaches();
  clearBlendPictures(*this);
}

uint64_t BVRandomImageFilter::processingCachesByteSize() const {
  uint64_t total = 0;
  for (const Value& blend : BVImageBlends(parameters())) {
    if (auto name = blendImageName(blend))
      total += uint64_t(std::max<int64_t>(0, processingCachesByteSizeForImageNamed(*name)));
  }
  return total;
}

std::vector<CIImageRef> BVRandomImageFilter::allCIImagesAtSize(CGSize size) {
  return blendImages(BVImageBlends(parameters()), className(),
                     [&](const std::string& name) { return imageNamed(name, size, scalingMode()); });
}

// --- Sequence ---

void BVImageSequenceFilter::prepareToApply() {
  BVImageFilter::prepareToApply();
  const Value& blends = BVImageBlends(preparedParameters());
  if (blends.empty()) return;
  if (sequenceIndex_ >= int64_t(blends.size())) sequenceIndex_ = 0;
  const Value& blend = blends[size_t(sequenceIndex_)];
  if (shouldChangeImage()) ++sequenceIndex_;
  if (!hasAlphaDefinedInTransition() && !hasAlphaDefinedInSlider()) {
    setAlpha(numberFor(blend, kBVFilterAlphaKey).value_or(1.0));
  }
  setMode(stringFor(blend, kBVFilterModeKey));
  setImageName(blendImageName(blend));
  applyMirrorAndRotation(blend, true);
}

void BVImageSequenceFilter::clearProcessingCaches() {
  BVImageFilter::clearProcessingCaches();
  clearBlendPictures(*this);
}

std::vector<CIImageRef> BVImageSequenceFilter::allCIImagesAtSize(CGSize size) {
  return blendImages(BVImageBlends(parameters()), className(),
                     [&](const std::string& name) { return imageNamed(name, size); });
}

}  // namespace brenvia
