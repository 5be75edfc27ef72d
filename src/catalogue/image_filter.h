#pragma once

#include "filter/blend_filter.h"
#include "image/graphics_utilities.h"

#include <optional>
#include <string>
#include <vector>

namespace brenvia {

class BVRandomization;

inline constexpr std::string_view kBVFilterImageNameKey = "imageName";
inline constexpr std::string_view kBVFilterImageCustomRatiosKey = "customRatios";
inline constexpr std::string_view kBVFilterRandomizeImageKey = "randomizeImage";
inline constexpr std::string_view kBVFilterRandomlyMirrorHorizontallyKey = "randomlyMirrorHorizontally";
inline constexpr std::string_view kBVFilterRandomlyMirrorVerticallyKey = "randomlyMirrorVertically";
inline constexpr std::string_view kBVFilterRandomlyRotateKey = "randomlyRotate";
inline constexpr std::string_view kBVFilterImageScalingKey = "scaling";
inline constexpr std::string_view kBVFilterImagePositionKey = "position";
inline constexpr std::string_view kBVFilterImageChangeFrequencyKey = "changeFrequency";
inline constexpr std::string_view kBVFilterZoomKey = "zoom";
inline constexpr std::string_view kBVFilterImageBlendsKey = "imageBlends";
inline constexpr std::string_view kBVFilterImageScalingAspectFill = "fill";
inline constexpr std::string_view kBVFilterImageScalingAspectFit = "fit";
inline constexpr std::string_view kBVFilterImageScalingCustomFile = "custom";
inline constexpr std::string_view kBVFilterImageScalingStretch = "stretch";
inline constexpr std::string_view kBVFilterImagePositionTop = "top";
inline constexpr std::string_view kBVFilterImagePositionBottom = "bottom";
inline constexpr std::string_view kBVFilterImagePositionLeft = "left";
inline constexpr std::string_view kBVFilterImagePositionRight = "right";

// The bits of the words "top", "bottom", "left" and "right" found among the blank-separated words.
BVImagePosition BVImagePositionFromString(std::string_view words);

// Lays a picture over the image: a frame, a texture, a light leak, a grain plate. The picture may
// be mirrored and turned at random, scaled, placed at an edge and zoomed about the centre.
class BVImageFilter : public BVBlendFilter {
 public:
  using BVBlendFilter::initWithParameters;
  // Zoom starts at 1 unless the dictionary names it.
  void initWithParameters(const Value& parameters) override;
  void setParameters(const Value& parameters) override;
  // A grain-tagged filter takes its zoom from the input "imageGrainZoom" when that is a number.
  void prepareToApply() override;
  void prepareToProcessAtSize(CGSize size) override;
  void clearProcessingCaches() override;
  uint64_t processingCachesByteSize() const override;
  CIFilterArray CIFiltersForSize(CGSize size) override;
  void applyToCGContext(BVBitmapContext* context) override;
  double memoryCost() const override { return 1.0; }
  BVFilterRef copy() const override;
  std::string description() const override;
  std::string className() const override { return "BVImageFilter"; }
  std::vector<std::string> superclassNames() const override { return {"BVBlendFilter", "BVFilter"}; }

  // The picture at the size, for loading ahead of rendering; empty (with a log line) without one.
  virtual std::vector<CIImageRef> allCIImagesAtSize(CGSize size);
  // Whether the picture and its random placement may change now: in a live preview at most once
  // per randomization frequency, otherwise always.
  bool shouldChangeImage();
  bool hasAlphaDefinedInTransition() const;
  bool hasAlphaDefinedInSlider() const;

  const std::optional<std::string>& imageName() const { return imageName_; }
  void setImageName(std::optional<std::string> name) { imageName_ = std::move(name); }
  // A picture given in code; it goes before the name.
  const std::shared_ptr<BVImage>& image() const { return image_; }
  void setImage(std::shared_ptr<BVImage> image) { image_ = std::move(image); }
  bool randomlyMirrorHorizontally() const { return randomlyMirrorHorizontally_; }
  void setRandomlyMirrorHorizontally(bool v) { randomlyMirrorHorizontally_ = v; }
  bool randomlyMirrorVertically() const { return randomlyMirrorVertically_; }
  void setRandomlyMirrorVertically(bool v) { randomlyMirrorVertically_ = v; }
  // 0: no turn; 90: quarter turns; any other positive value: half turns.
  double randomlyRotate() const { return randomlyRotate_; }
  void setRandomlyRotate(double v) { randomlyRotate_ = v; }
  BVImageScalingMode scalingMode() const { return scalingMode_; }
  void setScalingMode(BVImageScalingMode mode) { scalingMode_ = mode; }
  const std::optional<std::vector<std::string>>& customRatios() const { return customRatios_; }
  BVImagePosition imagePosition() const { return imagePosition_; }
  double zoom() const { return zoom_; }
  void setZoom(double zoom) { zoom_ = zoom; }
  // Changes per second on video; 0 for a change on every frame.
  double changeFrequency() const { return changeFrequency_; }
  void setChangeFrequency(double frequency) { changeFrequency_ = frequency; }

 protected:
  BVFilterRef makeBlank() const override { return std::make_shared<BVImageFilter>(); }
  std::shared_ptr<BVImage> imageForSize(CGSize size) const;
  CIImageRef ciImageForSize(CGSize size) const;
  // Applies the mirror and rotation keys of a blend dictionary over the recipe's own; a sequence
  // turns any rotation into half turns.
  void applyMirrorAndRotation(const Value& blend, bool halfTurnsOnly);
  BVRandomization* randomization() const;

 private:
  CGAffineTransform randomTransform_ = CGAffineTransformIdentity;
  double lastAbsoluteTimeChangeOccurred_ = 0;
  bool randomlyMirrorHorizontally_ = false;
  bool randomlyMirrorVertically_ = false;
  BVImageScalingMode scalingMode_ = BVImageScalingModeStretch;
  std::optional<std::string> imageName_;
  std::shared_ptr<BVImage> image_;
  double randomlyRotate_ = 0;
  std::optional<std::vector<std::string>> customRatios_;
  BVImagePosition imagePosition_ = kBVImagePositionNone;
  double zoom_ = 1.0;
  double changeFrequency_ = 0;
};

// Picks one of the recipe's "imageBlends" at random whenever the picture may change.
class BVRandomImageFilter : public BVImageFilter {
 public:
  void prepareToApply() override;
  void prepareToProcessAtSize(CGSize size) override;
  void clearProcessingCaches() override;
  uint64_t processingCachesByteSize() const override;
  std::vector<CIImageRef> allCIImagesAtSize(CGSize size) override;
  std::string className() const override { return "BVRandomImageFilter"; }
  std::vector<std::string> superclassNames() const override { return {"BVImageFilter", "BVBlendFilter", "BVFilter"}; }

 protected:
  BVFilterRef makeBlank() const override { return std::make_shared<BVRandomImageFilter>(); }

 private:
  int64_t lastRandomizedIndex_ = 0;
};

// Steps through the recipe's "imageBlends" in order, one step whenever the picture may change.
class BVImageSequenceFilter : public BVImageFilter {
 public:
  void prepareToApply() override;
  void clearProcessingCaches() override;
  std::vector<CIImageRef> allCIImagesAtSize(CGSize size) override;
  std::string className() const override { return "BVImageSequenceFilter"; }
  std::vector<std::string> superclassNames() const override { return {"BVImageFilter", "BVBlendFilter", "BVFilter"}; }

 protected:
  BVFilterRef makeBlank() const override { return std::make_shared<BVImageSequenceFilter>(); }

 private:
  int64_t sequenceIndex_ = 0;
};

// The array under "imageBlends", or an empty array.
const Value& BVImageBlends(const Value& parameters);

}  // namespace brenvia
