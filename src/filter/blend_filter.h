#pragma once

#include "filter/filter.h"
#include "platform/coreimage/ci_image.h"

#include <memory>
#include <optional>
#include <string>

namespace brenvia {

class BVImage;
class BVMask;

inline constexpr std::string_view kBVFilterAlphaKey = "alpha";
inline constexpr std::string_view kBVFilterModeKey = "mode";
inline constexpr std::string_view kBVFilterAlphaMinimumKey = "alphaMinimum";
inline constexpr std::string_view kBVFilterAlphaMaximumKey = "alphaMaximum";
inline constexpr std::string_view kBVFilterAbsoluteAlphaMinimumKey = "absoluteAlphaMinimum";
inline constexpr std::string_view kBVFilterMaskKey = "mask";
inline constexpr std::string_view kBVFilterChromaKey = "chromaKey";
inline constexpr std::string_view kBVFilterColorHexKey = "colorHex";
inline constexpr std::string_view kBVFilterThresholdKey = "threshold";
inline constexpr std::string_view kBVFilterAlternateCIFilters = "alternateCIFilters";
inline constexpr std::string_view kBVFilterNameKey = "name";
inline constexpr std::string_view kBVFilterAttributesKey = "attributes";

// The base of every filter that lays something over the picture: opacity (fixed, random, or moved
// by alpha sliders), blend mode, mask, chroma key, and operations from the recipe that replace the
// whole blend.
//
// A subclass's CIFiltersForSize calls this one, takes the first operation as its blend operation,
// sets its overlay (overlayImageWithAlpha..., offsetOverlayImageIfNeeded) as that operation's
// inputImage and returns CIFiltersWithMaskIfNeeded(...); the chain step supplies the background.
// On the bitmap road it calls applyToCGContext of this class, then draws.
class BVBlendFilter : public BVFilter {
 public:
  BVBlendFilter();
  ~BVBlendFilter() override;

  using BVFilter::initWithParameters;
  // Alpha starts at 1 unless the dictionary names it.
  void initWithParameters(const Value& parameters) override;
  void setParameters(const Value& parameters) override;
  // Draws a random alpha when the recipe gives its range (at most once per randomization
  // frequency during a live preview).
  void prepareToApply() override;
  // The blend operation (or the chroma key operation, or the recipe's alternates); nothing when
  // the filter has no engine road.
  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Clips to the mask and sets the blend mode and alpha; the subclass draws afterwards.
  void applyToCGContext(BVBitmapContext* context) override;
  void clearProcessingCaches() override;
  BVFilterRef copy() const override;
  std::string description() const override;
  std::string className() const override { return "BVBlendFilter"; }
  std::vector<std::string> superclassNames() const override { return {"BVFilter"}; }

  // The opacity in effect: the stored one, or the mean of what the alpha sliders of the filter's
  // tags make of it. Not clamped to 1.
  double alpha() const;
  void setAlpha(double alpha) { alpha_ = alpha; }
  const std::optional<std::string>& mode() const { return mode_; }
  void setMode(std::optional<std::string> mode) { mode_ = std::move(mode); }
  const std::shared_ptr<BVMask>& mask() const { return mask_; }
  void setMask(std::shared_ptr<BVMask> mask) { mask_ = std::move(mask); }
  const Value& chromaKey() const { return chromaKey_; }
  // Stores the dictionary and makes the keying operation of its colour, or none without a colour.
  void setChromaKey(const Value& chromaKey);
  const std::shared_ptr<CIFilter>& chromaKeyOperation() const { return cachedChromaKeyFilter_; }
  // The recipe's replacement operations, read on first use and then kept for the filter's life.
  const CIFilterArray& alternateCIFilters();

  // The overlay faded to alpha() (unchanged at exactly 1); null stays null.
  CIImageRef overlayImageWithAlpha(const BVImage& image) const;
  CIImageRef overlayImageWithAlpha(const CIImageRef& image) const;
  // Moves the overlay to the origin of the processed rectangle, so an overlay made at (0, 0) meets
  // the part of the canvas being processed.
  void offsetOverlayImageIfNeeded(CIImageRef& image) const;
  // Places the mask: before the image operation's overlay when there is one, otherwise before the
  // last compositing step of `filters`.
  CIFilterArray CIFiltersWithMaskIfNeeded(const CIFilterArray& filters, const std::shared_ptr<CIFilter>& imageFilter,
                                          CGSize size);

 protected:
  BVFilterRef makeBlank() const override { return std::make_shared<BVBlendFilter>(); }

 private:
  bool shouldRandomizeAlpha();
  void randomizeAlpha();

  bool unhandledMaskDetected_ = false;
  std::shared_ptr<CIFilter> cachedChromaKeyFilter_;
  double lastTimeAlphaChanged_ = 0;
  std::optional<CIFilterArray> alternateCIFilters_;
  double alpha_ = 1.0;
  std::optional<std::string> mode_;
  std::shared_ptr<BVMask> mask_;
  Value chromaKey_;
};

}  // namespace brenvia
