#pragma once

#include "filter/blend_filter.h"
#include "image/graphics_utilities.h"

#include <optional>
#include <string>
#include <vector>

namespace brenvia {

class BVRandomization;

inline constexpr std::string_view kBVFilterImageCustomRatiosKey = "customRatios";
inline constexpr std::string_view kBVFilterRandomizeImageKey = "randomizeImage";
inline constexpr std::string_view kBVFilterRandomlyMirrorHorizontallyKey = "randomlyMirrorHorizontally";
inline constexpr std::string_view kBVFilterRandomlyMirrorVerticallyKey = "randomlyMirrorVertically";
inline constexpr std::string_view kBVFilterRandomlyRotateKey = "randomlyRotate";
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

struct BVImageSettings {
  std::optional<std::string> imageName;
  bool randomizeImage = false;
  bool randomlyMirrorHorizontally = false;
  bool randomlyMirrorVertically = false;
  double randomlyRotate = 0;
  std::optional<std::string> scaling;
  std::optional<std::string> position;
  double changeFrequency = 0;
  double zoom = 1.0;
};

// Lays a picture over the image: a frame, a texture, a light leak, a grain plate. The picture may
// be mirrored and turned at random, scaled, placed at an edge and zoomed about the centre.
class BVImageFilter : public BVFilterOf<BVImageFilter, BVBlendFilter, BVImageSettings> {
 public:
  static constexpr std::string_view kClassName = "BVImageFilter";
  static const BVParameterTable<BVImageSettings>& parameterTable();

  // A grain-tagged filter takes its zoom from the input "imageGrainZoom" when that is a number.
  void prepareToApply() override;
  void prepareToProcessAtSize(CGSize size) override;
  void clearProcessingCaches() override;
  uint64_t processingCachesByteSize() const override;
  CIFilterArray CIFiltersForSize(CGSize size) override;
  void applyToCGContext(BVBitmapContext* context) override;
  double memoryCost() const override { return 1.0; }

  // The picture at the size, for loading ahead of rendering; empty (with a log line) without one.
  virtual std::vector<CIImageRef> allCIImagesAtSize(CGSize size);
  // Whether the picture and its random placement may change now: in a live preview at most once
  // per randomization frequency, otherwise always.
  bool shouldChangeImage();
  bool hasAlphaDefinedInTransition() const;
  bool hasAlphaDefinedInSlider() const;

  // What is laid over in this render: the recipe's choice, or one of its blends.
  const std::optional<std::string>& imageName() const { return placement_.imageName; }
  void setImageName(std::optional<std::string> name) { placement_.imageName = std::move(name); }
  // A picture given in code; it goes before the name.
  const std::shared_ptr<BVImage>& image() const { return image_; }
  void setImage(std::shared_ptr<BVImage> image) { image_ = std::move(image); }
  bool randomlyMirrorHorizontally() const { return placement_.mirrorHorizontally; }
  bool randomlyMirrorVertically() const { return placement_.mirrorVertically; }
  // 0: no turn; 90: quarter turns; any other positive value: half turns.
  double randomlyRotate() const { return placement_.rotate; }
  BVImageScalingMode scalingMode() const { return placement_.scalingMode; }
  void setScalingMode(BVImageScalingMode mode) { placement_.scalingMode = mode; }
  const std::optional<std::vector<std::string>>& customRatios() const { return customRatios_; }
  BVImagePosition imagePosition() const { return placement_.position; }
  double zoom() const { return settings().zoom; }
  void setZoom(double zoom) { settings().zoom = zoom; }
  // Changes per second on video; 0 for a change on every frame.
  double changeFrequency() const { return settings().changeFrequency; }

 protected:
  // Derives the placement from the settings; `customRatios` is read only when it is an array.
  void readParameters(const Value& parameters, const BVParameterReader& reader) override;
  // A copy shares the picture given in code.
  void copySettingsTo(BVFilter& other) const override;
  std::shared_ptr<BVImage> imageForSize(CGSize size) const;
  CIImageRef ciImageForSize(CGSize size) const;
  // Applies the mirror and rotation keys of a blend dictionary over the recipe's own; a sequence
  // turns any rotation into half turns.
  void applyMirrorAndRotation(const Value& blend, bool halfTurnsOnly);
  BVRandomization* randomization() const;

 private:
  struct Placement {
    std::optional<std::string> imageName;
    bool mirrorHorizontally = false, mirrorVertically = false;
    double rotate = 0;
    BVImageScalingMode scalingMode = BVImageScalingModeStretch;
    BVImagePosition position = kBVImagePositionNone;
  };

  Placement placement_;
  CGAffineTransform randomTransform_ = CGAffineTransformIdentity;
  double lastAbsoluteTimeChangeOccurred_ = 0;
  std::shared_ptr<BVImage> image_;
  std::optional<std::vector<std::string>> customRatios_;
};

// Picks one of the recipe's "imageBlends" at random whenever the picture may change.
class BVRandomImageFilter : public BVFilterOf<BVRandomImageFilter, BVImageFilter> {
 public:
  static constexpr std::string_view kClassName = "BVRandomImageFilter";

  void prepareToApply() override;
  void prepareToProcessAtSize(CGSize size) override;
  void clearProcessingCaches() override;
  uint64_t processingCachesByteSize() const override;
  std::vector<CIImageRef> allCIImagesAtSize(CGSize size) override;

 private:
  int64_t lastRandomizedIndex_ = 0;
};

// Steps through the recipe's "imageBlends" in order, one step whenever the picture may change.
class BVImageSequenceFilter : public BVFilterOf<BVImageSequenceFilter, BVImageFilter> {
 public:
  static constexpr std::string_view kClassName = "BVImageSequenceFilter";

  void prepareToApply() override;
  void clearProcessingCaches() override;
  std::vector<CIImageRef> allCIImagesAtSize(CGSize size) override;

 private:
  int64_t sequenceIndex_ = 0;
};

// The array under "imageBlends", or an empty array.
const Value& BVImageBlends(const Value& parameters);

}  // namespace brenvia
