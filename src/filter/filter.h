#pragma once

#include "filter/filter_parameters.h"
#include "filter/filter_registry.h"
#include "platform/foundation/keyed_archive.h"
#include "platform/foundation/value.h"
#include "platform/geometry/geometry.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace brenvia {

class BVBitmapContext;
class BVImage;
class BVProcessing;
class CIFilter;
class CIImage;
using CIImageRef = std::shared_ptr<const CIImage>;

// Recipe keys read by every filter.
inline constexpr std::string_view kBVFilterTypeKey = "type";
inline constexpr std::string_view kBVFilterEnabledKey = "enabled";
inline constexpr std::string_view kBVFilterOpaqueKey = "opaque";
inline constexpr std::string_view kBVFilterTagsKey = "tags";
inline constexpr std::string_view kBVFilterFilterFrequencyKey = "filterFrequency";
inline constexpr std::string_view kBVFilterOptionalDuringLivePreviewKey = "optionalDuringLivePreview";
inline constexpr std::string_view kBVFilterRandomKey = "random";
inline constexpr std::string_view kBVFilterSliderKey = "sliderInput";
inline constexpr std::string_view kBVFilterRampKey = "ramp";
inline constexpr std::string_view kBVFilterTransitionTimingStartKey = "transitionTimingStart";
inline constexpr std::string_view kBVFilterTransitionTimingMiddleKey = "transitionTimingMiddle";
inline constexpr std::string_view kBVFilterTransitionTimingEndKey = "transitionTimingEnd";
inline constexpr std::string_view kBVFilterTransitionKeyPathKey = "transitionKeyPath";
inline constexpr std::string_view kBVFilterTransitionMinimumValueKey = "transitionMinimumValue";
inline constexpr std::string_view kBVFilterTransitionMaximumValueKey = "transitionMaximumValue";
inline constexpr std::string_view kBVFilterTransitionStaticValueKey = "transitionStaticValue";
// Keys of a picture file in the asset folder and of how it is scaled to the canvas, read by overlay
// filters and masks.
inline constexpr std::string_view kBVFilterImageNameKey = "imageName";
inline constexpr std::string_view kBVFilterImageScalingKey = "scaling";

// Tags that the catalogue uses; any other string works the same way.
inline constexpr std::string_view kBVFilterTagFrame = "frame";
inline constexpr std::string_view kBVFilterTagSubfilter = "subfilter";
inline constexpr std::string_view kBVFilterTagDesaturate = "desaturate";
inline constexpr std::string_view kBVFilterTagTexture = "texture";
inline constexpr std::string_view kBVFilterTagGrain = "grain";
inline constexpr std::string_view kBVFilterTagVignette = "vignette";

// Values of the `type` key.
inline constexpr std::string_view kBVFilterTypeColor = "color";
inline constexpr std::string_view kBVFilterTypeDouble = "double";
inline constexpr std::string_view kBVFilterTypeImage = "image";
inline constexpr std::string_view kBVFilterTypeRandomImage = "randomImage";
inline constexpr std::string_view kBVFilterTypeImageSequence = "imageSequence";
inline constexpr std::string_view kBVFilterTypeSpecial = "special";
inline constexpr std::string_view kBVFilterTypeBlur = "blur";
inline constexpr std::string_view kBVFilterTypeHighPass = "highpass";
inline constexpr std::string_view kBVFilterTypeFace = "face";
inline constexpr std::string_view kBVFilterTypeGradient = "gradient";
inline constexpr std::string_view kBVFilterTypeCurves = "curves";
inline constexpr std::string_view kBVFilterTypeLevels = "levels";
inline constexpr std::string_view kBVFilterTypeAdjustment = "adjustment";
inline constexpr std::string_view kBVFilterTypeUnsharpMask = "unsharp";
inline constexpr std::string_view kBVFilterTypeFade = "fade";
inline constexpr std::string_view kBVFilterTypeSoloChannel = "soloChannel";
inline constexpr std::string_view kBVFilterTypeTextOverlay = "textOverlay";
inline constexpr std::string_view kBVFilterTypeSelectiveColor = "selectiveColor";
inline constexpr std::string_view kBVFilterTypeHalftone = "halftone";
inline constexpr std::string_view kBVFilterTypeDistortion = "distortion";
inline constexpr std::string_view kBVFilterTypeBlackAndWhite = "bw";
inline constexpr std::string_view kBVFilterTypeSharpen = "sharpen";
inline constexpr std::string_view kBVFilterTypeVignette = "vignette";

inline constexpr std::string_view kBVFilterNotSupportedExceptionName = "BVFilterNotSupportedException";
inline constexpr std::string_view kBVFilterNotSupportedExceptionReason = "No supported filter modes found.";
inline constexpr std::string_view kBVFilterCoreImageNotSupportedExceptionReason =
    "This filter does not support Core Image.";
inline constexpr std::string_view kBVFilterCoreGraphicsNotSupportedExceptionReason =
    "This filter does not support Core Graphics.";
inline constexpr std::string_view kBVFiltervImageNotSupportedExceptionReason = "This filter does not support vImage.";

// Where filter pictures live: files in the search path (cached through the shared thumbnailer), or
// an application's asset catalogue, which this platform does not have.
enum BVFilterAssetLocation : int64_t { BVFilterAssetLocationFiles = 0, BVFilterAssetLocationCatalog = 1 };

// Bits of an overlay's position; y grows upwards.
using BVImagePosition = uint64_t;
inline constexpr BVImagePosition kBVImagePositionNone = 0;
inline constexpr BVImagePosition kBVImagePositionTop = 2;
inline constexpr BVImagePosition kBVImagePositionBottom = 4;
inline constexpr BVImagePosition kBVImagePositionLeft = 8;
inline constexpr BVImagePosition kBVImagePositionRight = 16;

// Raised when a filter is asked for a rendering path it does not have (a programmer fault).
class BVFilterNotSupportedException : public std::logic_error {
 public:
  explicit BVFilterNotSupportedException(std::string_view reason) : std::logic_error(std::string(reason)) {}
  std::string_view name() const { return kBVFilterNotSupportedExceptionName; }
  std::string_view reason() const { return what(); }
};

class BVFilter;
using BVFilterRef = std::shared_ptr<BVFilter>;
using BVFilterArray = std::vector<BVFilterRef>;
using CIFilterArray = std::vector<std::shared_ptr<CIFilter>>;

// The root of the filter family. Objects are made blank and then initialised with one of the initWithParameters forms
// (the factory and filter<T>() do both).
//
// Each class declares its recipe parameters once, in a table over a settings record (see filter_of.h); reading,
// resetting, copying, describing and listing all come from the tables of the class and its ancestors. A render first
// prepares each filter (random draws and sliders applied to a copy of the recipe, read into the settings), then asks it
// for its operations, which are new objects every time.
class BVFilter : public BVCoding {
 public:
  static constexpr std::string_view kClassName = "BVFilter";

  // The settings every filter reads from its recipe.
  struct Settings {
    bool enabled = true;
    bool opaque = false;
    double filterFrequency = 1.0;
    bool optionalDuringLivePreview = false;
    bool skipCIFilter = false;
  };

  BVFilter() = default;
  ~BVFilter() override = default;
  BVFilter(const BVFilter&) = delete;
  BVFilter& operator=(const BVFilter&) = delete;

  // --- Factory ---
  static BVFilterArray filtersWithArray(const Value& array,
                                        const std::optional<std::string>& imageSearchPath = std::nullopt,
                                        const std::optional<std::string>& imagePrefix = std::nullopt,
                                        const std::vector<std::string>& tagged = {});
  // The filter of parameters[type], or null (with a log line) for an unknown type.
  static BVFilterRef filterWithParameters(const Value& parameters,
                                          const std::optional<std::string>& imageSearchPath = std::nullopt,
                                          const std::optional<std::string>& imagePrefix = std::nullopt,
                                          const std::vector<std::string>& tagged = {});
  // A new filter of class T made with no parameters.
  template <class T = BVFilter>
  static std::shared_ptr<T> filter() {
    auto made = std::make_shared<T>();
    made->initWithParameters(Value());
    return made;
  }
  // Makes the keyed unarchiver know every filter class of the type table and the base class.
  static void registerCodingClasses();

  // --- Class operations over arrays --- Prepares each filter and gathers its operations, without consulting isEnabled
  // or shouldApply.
  static CIFilterArray CIFiltersForBVFilters(const BVFilterArray& filters, CGSize size);
  static void prepareToProcessFilters(const BVFilterArray& filters, CGSize size);
  static void clearProcessingCachesForFilters(const BVFilterArray& filters);
  static uint64_t processingCachesByteSizeForFilters(const BVFilterArray& filters);

  // --- Construction (call once, on a blank object) --- The designated initialiser: every setting starts at its
  // default, then the dictionary is read.
  void initWithParameters(const Value& parameters);
  // Runs initWithParameters(parameters), then stores the search path, prefix and tags.
  void initWithParameters(const Value& parameters, const std::optional<std::string>& imageSearchPath,
                          const std::optional<std::string>& imagePrefix = std::nullopt,
                          const std::vector<std::string>& tags = {});
  // Reads "parameters", "imageSearchPath" and "imagePrefix".
  void initWithCoder(BVKeyedUnarchiver& coder);

  // --- Coding and copying ---
  std::string className() const override { return std::string(kClassName); }
  std::vector<std::string> superclassNames() const override { return {}; }
  static std::vector<std::string> ancestorNames() { return {}; }
  void encodeWithCoder(BVKeyedArchiver& coder) const override;
  // A new filter of the same class with the same recipe, search path, prefix, tags and settings, enabled as isEnabled()
  // answers now; it has no processor and no caches.
  BVFilterRef copy() const;
  // "<Class: address; key: value, ...>" over every setting.
  std::string description() const;
  // Every parameter of the class and its ancestors, base first, for listings.
  std::vector<BVParameterInfo> parameterList() const;

  // --- Operations subclasses override --- Replaces the recipe and reads it; each unusable value is logged once.
  void setParameters(const Value& parameters);
  virtual bool isEnabled() const;
  virtual std::vector<std::string> tags() const;
  // Brings the settings up to date for one render: the recipe's random and slider transformations are applied to a copy
  // of it, which is read again. The recipe itself stays as it was given.
  virtual void prepareToApply();
  // The image operations of this filter at a size, made new for each call from the prepared settings; empty when the
  // filter has no engine road.
  virtual CIFilterArray CIFiltersForSize(CGSize size);
  virtual bool shouldApply();
  // Draws the filter on a bitmap context; the base raises BVFilterNotSupportedException.
  virtual void applyToCGContext(BVBitmapContext* context);
  virtual void prepareToProcessAtSize(CGSize) {}
  virtual void clearProcessingCaches() {}
  virtual uint64_t processingCachesByteSize() const { return 0; }
  virtual double memoryCost() const { return 0.0; }

  // --- Accessors ---
  // The recipe as given.
  const Value& parameters() const { return parameters_; }
  // The recipe with this render's transformations applied (the recipe until prepared).
  const Value& preparedParameters() const { return prepared_; }
  bool supportsCIFilter() const { return supportsCIFilter_; }
  void setSupportsCIFilter(bool value) { supportsCIFilter_ = value; }
  void setEnabled(bool value) { base_.enabled = value; }
  bool isOpaque() const { return base_.opaque; }
  void setOpaque(bool value) { base_.opaque = value; }
  const std::optional<std::string>& imagePrefix() const { return imagePrefix_; }
  const std::optional<std::string>& imageSearchPath() const { return imageSearchPath_; }
  double filterFrequency() const { return base_.filterFrequency; }
  bool optionalDuringLivePreview() const { return base_.optionalDuringLivePreview; }

  // The processor running the filter, held weakly; null without one.
  std::shared_ptr<BVProcessing> processor() const { return processorStorage_.lock(); }
  void setProcessor(const std::shared_ptr<BVProcessing>& processor) { processorStorage_ = processor; }

  // A number below upperBound, drawn on the processor's randomization when it has one, else at class
  // level, in both cases under the processor's randomization context.
  uint32_t randomInt32Uniform(uint32_t upperBound) const;

  // c + r * c, c being the centre of rect.
  static CGPoint absoluteCenterPointInRect(const CGRect& rect, CGPoint relativeCenterPoint);

  // --- Filter pictures: names in a recipe become pictures of a size ---
  // Process-wide settings, written once at set-up.
  static BVFilterAssetLocation assetLocation();
  static void setAssetLocation(BVFilterAssetLocation location);
  // The aspect ratio (width / height) the plain picture files are made for.
  static double defaultAspectRatio();
  static void setDefaultAspectRatio(double ratio);

  // The picture at exactly `size` through the shared thumbnailer (memory, disk, else made from the
  // file); null, with a log line, when no file is found.
  std::shared_ptr<BVImage> imageNamed(const std::string& name, CGSize size, int scalingMode = 0) const;
  // Makes the thumbnail imageNamed would need, if it is not on disk yet.
  void prepareToProcessImageNamed(const std::string& name, CGSize size, int scalingMode = 0) const;
  void clearProcessingCacheForImageNamed(const std::string& name) const;
  int64_t processingCachesByteSizeForImageNamed(const std::string& name) const;
  // The picture placed on a canvas of `size`: scaled by the mode and moved by the position bits.
  // Small requests go through the thumbnailer; larger ones read the file, which the engine then
  // resamples tile by tile, and never decode it only to learn its size. Null, with a log line, when no file is found.
  CIImageRef CIImageNamed(const std::string& name, CGSize size, int scalingMode, BVImagePosition position) const;
  // The first existing file of the name: <path>/<name>.png, .jpg, .jpeg, _<width>.jpg, _1936.jpg,
  // then the resource folder's <name>.jpg and .png. In custom mode a file made for the nearest
  // aspect ratio wins when the canvas is not of the default ratio.
  std::optional<std::string> pathForImageNamed(const std::string& name, CGSize size, int scalingMode) const;
  // The file "<name>-<ratio>.<ext>" of the search path whose ratio is nearest to `ratio`, and nearer
  // than a square picture would be.
  std::optional<std::string> pathForCustomAspectRatioImageNamed(const std::string& prefixedName, double ratio) const;
  // Whether file names in recipes may lead out of the asset and resource folders (absolute names,
  // names that climb with ".."); off by default, for recipes from anywhere. Process-wide.
  static bool allowsFilesOutsideAssets();
  static void setAllowsFilesOutsideAssets(bool allowed);
  // Whether a file name from the recipe stays inside the folder it is looked up in; logged when not.
  bool isNameInsideAssets(const std::string& name) const;
  // Whether a file found for such a name stays inside the asset or resource folder once its links
  // are followed; logged when not.
  bool isFileInsideAssets(const std::string& path) const;
  // "prefix_name" with a prefix, else the name.
  std::string prefixedImageName(const std::string& name) const;
  // The picture of `imageSize` scaled into the rectangle the mode gives on the target (stretch,
  // fill, fit; custom stretches), then moved to the edges the position names. A picture of the
  // target's size comes back unchanged.
  static CIImageRef placedImage(const CIImageRef& image, CGSize imageSize, int scalingMode, BVImagePosition position,
                                CGSize target);

  // --- Transition timing, read from the parameters ---
  double transitionTimingStart() const;
  double transitionTimingMiddle() const;
  double transitionTimingEnd() const;
  std::string transitionKeyPath() const;
  double transitionMinimumValue() const;
  double transitionMaximumValue() const;

 protected:
  // Per-class steps that the tables drive; each level calls its parent's first (filter_of.h).
  virtual BVFilterRef makeBlank() const { return std::make_shared<BVFilter>(); }
  virtual void resetSettings() { base_ = Settings{}; }
  // Reads the settings from a dictionary: the recipe, or its prepared copy (read silently).
  virtual void readParameters(const Value& parameters, const BVParameterReader& reader);
  virtual void copySettingsTo(BVFilter& other) const { other.base_ = base_; }
  virtual void describeSettings(std::string& text) const;
  virtual void listParameters(std::vector<BVParameterInfo>& list) const;

  // The reader that logs unusable values under this filter's class; silent for prepared copies.
  BVParameterReader reader(bool reports = true) const;

  // Typed reads of a dictionary member (numbers as 32-bit floats widened).
  static std::optional<double> numberFor(const Value& parameters, std::string_view key);
  static std::optional<bool> boolFor(const Value& parameters, std::string_view key);
  static std::optional<std::string> stringFor(const Value& parameters, std::string_view key);

  static const BVParameterTable<Settings>& parameterTable();

 private:
  std::vector<std::string> additionalTags_;
  std::vector<std::string> parameterTags_;
  bool supportsCIFilter_ = true;
  Settings base_;
  Value parameters_;
  Value prepared_;
  std::optional<std::string> imagePrefix_;
  std::optional<std::string> imageSearchPath_;
  std::weak_ptr<BVProcessing> processorStorage_;
};

}  // namespace brenvia
