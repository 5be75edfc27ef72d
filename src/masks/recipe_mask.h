#pragma once

#include "filter/mask.h"
#include "image/graphics_utilities.h"
#include "masks/gradient.h"

#include <map>
#include <mutex>
#include <string_view>

namespace brenvia {

inline constexpr std::string_view kBVFilterGrayscaleKey = "grayscale";
inline constexpr std::string_view kBVFilterPreferEmbeddedKey = "preferEmbedded";
inline constexpr std::string_view kBVFilterDisparityAutofocusKey = "disparityAutofocus";
inline constexpr std::string_view kBVFilterDisparityDepthPresetKey = "disparityDepthPreset";

// The band of normalised disparity (0 to 1) that is fully in focus: `field` wide about `focalValue`,
// falling to nothing over 1 / `slope` on each side.
struct BVDisparityMaskFocus {
  double field, focalValue, slope;

  // The preset's field and slope ("deep", "shallow", else average) at a focal value.
  static BVDisparityMaskFocus withPreset(double focalValue, std::string_view depthPreset);
  // The largest disparity in a rectangle relative to the picture's extent; a rectangle without area
  // stands for the 10 by 10 pixel square about its origin.
  static double focalValueIn(const CGRect& relative, const CIImageRef& disparity);
};

// The mask of a recipe's `mask` dictionary. The picture comes from the first source that gives one:
// the photo's depth (focused on the key face, its left eye or the centre) or portrait matte, when
// `preferEmbedded` asks for it and the run has it (the subject comes out black, so the effect falls
// on what is out of focus); a picture file; a gradient.
class BVRecipeMask final : public BVMask {
 public:
  // Null when the dictionary holds nothing usable.
  static std::shared_ptr<BVRecipeMask> initWithDictionary(const Value& dictionary);

  std::shared_ptr<CIFilter> maskCIFilterForFilter(const BVFilter& filter) override;
  std::shared_ptr<BVImage> maskImageForFilter(const BVFilter& filter) override;
  std::optional<std::string> imageName() const override { return imageName_; }
  void setImageName(std::optional<std::string> name) { imageName_ = std::move(name); }
  void clearProcessingCache() override;

  const std::shared_ptr<BVGradient>& gradient() const { return gradient_; }
  bool grayscale() const { return grayscale_; }

 private:
  std::shared_ptr<BVImage> embeddedMask(const BVFilter& filter) const;
  CIImageRef disparityMask(const BVFilter& filter, const CIImageRef& disparity) const;
  std::shared_ptr<BVImage> gradientMask(CGSize size);

  std::optional<std::string> imageName_;
  BVImageScalingMode imageScalingMode_ = BVImageScalingModeStretch;
  bool grayscale_ = false;
  std::shared_ptr<BVGradient> gradient_;
  std::optional<std::string> preferredEmbeddedType_, disparityAutofocus_, disparityDepthMaskPreset_;
  std::mutex cacheMutex_;
  std::map<std::string, std::shared_ptr<BVImage>> cachedGradientMaskImages_;
};

}  // namespace brenvia
