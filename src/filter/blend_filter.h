#pragma once

#include "filter/filter_of.h"
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

// What every blend filter reads from its recipe besides the mask and the chroma key.
struct BVBlendSettings {
  double alpha = 1.0;
  std::optional<std::string> mode;
  std::optional<double> alphaMinimum, alphaMaximum, absoluteAlphaMinimum;
};

// The base of every filter that lays something over the picture: opacity (fixed, random, or moved
// by alpha sliders), blend mode, mask, chroma key, and operations from the recipe that replace the
// whole blend.
//
// A subclass's CIFiltersForSize calls this one, takes the first operation as its blend operation,
// sets its overlay (overlayImageWithAlpha..., offsetOverlayImageIfNeeded) as that operation's
// inputImage and returns CIFiltersWithMaskIfNeeded(...); the chain step supplies the background.
// On the bitmap road it calls applyToCGContext of this class, then draws.
class BVBlendFilter : public BVFilterOf<BVBlendFilter, BVFilter, BVBlendSettings> {
 public:
  static constexpr std::string_view kClassName = "BVBlendFilter";
  static const BVParameterTable<BVBlendSettings>& parameterTable();

  ~BVBlendFilter() override;

  // Draws a random alpha when the recipe gives its range (at most once per randomization
  // frequency during a live preview).
  void prepareToApply() override;
  // The blend operation (or the chroma key operation, or the recipe's alternates); nothing when
  // the filter has no engine road.
  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Clips to the mask and sets the blend mode and alpha; the subclass draws afterwards.
  void applyToCGContext(BVBitmapContext* context) override;
  void clearProcessingCaches() override;

  // The opacity in effect: the stored one, or the mean of what the alpha sliders of the filter's
  // tags make of it. Not clamped to 1.
  double alpha() const;
  void setAlpha(double alpha) { settings().alpha = alpha; }
  const std::optional<std::string>& mode() const { return settings().mode; }
  void setMode(std::optional<std::string> mode) { settings().mode = std::move(mode); }
  const std::shared_ptr<BVMask>& mask() const { return mask_; }
  void setMask(std::shared_ptr<BVMask> mask) { mask_ = std::move(mask); }
  const Value& chromaKey() const { return chromaKey_; }
  // A new keying operation of the chroma key's colour, or null without a colour.
  std::shared_ptr<CIFilter> chromaKeyOperation() const;
  // New copies of the recipe's replacement operations, which are read once and then kept.
  CIFilterArray alternateCIFilters() const;

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
  void readParameters(const Value& parameters, const BVParameterReader& reader) override;
  // A copy takes the opacity in effect, alpha sliders included.
  void copySettingsTo(BVFilter& other) const override;

 private:
  bool shouldRandomizeAlpha();
  void randomizeAlpha();

  bool unhandledMaskDetected_ = false;
  double lastTimeAlphaChanged_ = 0;
  mutable std::optional<CIFilterArray> alternatePrototypes_;
  std::shared_ptr<BVMask> mask_;
  Value chromaKey_;
};

}  // namespace brenvia
