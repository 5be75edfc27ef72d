#pragma once

#include "platform/coreimage/ci_image.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brenvia {

inline constexpr std::string_view kCIInputImageKey = "inputImage";
inline constexpr std::string_view kCIInputBackgroundImageKey = "inputBackgroundImage";
inline constexpr std::string_view kCIOutputImageKey = "outputImage";

inline constexpr std::string_view kCICategoryCompositeOperation = "CICategoryCompositeOperation";
inline constexpr std::string_view kCICategoryVideo = "CICategoryVideo";
inline constexpr std::string_view kCICategoryStillImage = "CICategoryStillImage";
inline constexpr std::string_view kCICategoryBuiltIn = "CICategoryBuiltIn";
inline constexpr std::string_view kCICategoryColorAdjustment = "CICategoryColorAdjustment";
inline constexpr std::string_view kCICategoryColorEffect = "CICategoryColorEffect";
inline constexpr std::string_view kCICategoryGeometryAdjustment = "CICategoryGeometryAdjustment";
inline constexpr std::string_view kCICategoryBlur = "CICategoryBlur";
inline constexpr std::string_view kCICategorySharpen = "CICategorySharpen";
inline constexpr std::string_view kCICategoryGenerator = "CICategoryGenerator";
inline constexpr std::string_view kCICategoryGradient = "CICategoryGradient";
inline constexpr std::string_view kCICategoryStylize = "CICategoryStylize";
inline constexpr std::string_view kCICategoryDistortionEffect = "CICategoryDistortionEffect";
inline constexpr std::string_view kCICategoryReduction = "CICategoryReduction";

// One input of an operation as its attributes describe it.
struct CIInputSpec {
  std::string key;
  // "CIImage", "NSNumber", "CIVector", "CIColor", "NSValue", "NSData", "NSString", "NSObject".
  std::string attributeClass;
  CIValue defaultValue;  // null: no default
  std::optional<double> min, max;
};

class CIFilter;

// What an operation does in a chain, for the steps that connect a filter's operations: lay an image over a background,
// fade an image before it is laid over, or cut an image by a mask. Operations in the composite category are compositing
// unless they say otherwise.
enum class CIOperationRole { Other, Compositing, Opacity, Mask };

// Everything an operation's attributes say about its class.
struct CIFilterClassAttributes {
  std::string displayName;
  std::vector<std::string> categories;
  std::vector<CIInputSpec> inputs;  // in inputKeys order
  CIOperationRole role = CIOperationRole::Other;
};

// An image operation: a name, inputs by key and a deferred output image. Operations are made by
// name from the registry; library operators register the same way as the platform's own.
class CIFilter {
 public:
  using Builder = std::function<CIImageRef(const CIFilter&)>;
  using Constructor = std::function<std::shared_ptr<CIFilter>()>;

  virtual ~CIFilter() = default;

  // A new operation with its defaults set, or null for an unknown name.
  static std::shared_ptr<CIFilter> filterWithName(std::string_view name);
  static std::shared_ptr<CIFilter> filterWithName(std::string_view name, const CIFilterParameters& parameters);
  // Adds an operation whose output is computed by `build` from the current inputs.
  static void registerOperation(std::string name, CIFilterClassAttributes attributes, Builder build);
  // Adds an operation implemented by a subclass: `constructor` makes the object that answers
  // filterWithName; it must give a CIFilter whose outputImage() is overridden.
  static void registerFilterName(std::string name, Constructor constructor, CIFilterClassAttributes attributes);
  // Every registered name, sorted.
  static std::vector<std::string> filterNames();

  const std::string& name() const { return name_; }
  std::vector<std::string> inputKeys() const;
  std::vector<std::string> outputKeys() const { return {std::string(kCIOutputImageKey)}; }
  // CIAttributeFilterName, CIAttributeFilterDisplayName, CIAttributeFilterCategories, and one
  // dictionary per input (CIAttributeClass, CIAttributeDefault, CIAttributeMin, CIAttributeMax).
  Value attributes() const;
  const CIFilterClassAttributes& classAttributes() const { return *attributes_; }
  void setDefaults();
  // Unknown keys are logged and ignored.
  void setValue(const CIValue& value, std::string_view key);
  CIValue valueForKey(std::string_view key) const;
  // The deferred result of the current inputs; null when a required image is missing.
  virtual CIImageRef outputImage() const;
  // A new operation of the same name with the same inputs (images shared).
  std::shared_ptr<CIFilter> copy() const;

  // Typed reads of inputs for operation builders: the value when it has the expected type, else
  // the default, else zero / empty.
  CIImageRef image(std::string_view key) const;
  double number(std::string_view key) const;
  bool boolean(std::string_view key) const { return number(key) != 0; }
  CIVector vector(std::string_view key) const;
  CIColor color(std::string_view key) const;
  CGAffineTransform affineTransform(std::string_view key) const;
  CIData data(std::string_view key) const;
  std::string string(std::string_view key) const;
  CGColorSpaceRef colorSpace(std::string_view key) const;

 protected:
  CIFilter() = default;

 private:
  const CIInputSpec* spec(std::string_view key) const;
  template <class T>
  const T* typed(std::string_view key) const;

  std::string name_;
  std::shared_ptr<const CIFilterClassAttributes> attributes_;
  Builder build_;
  CIFilterParameters values_;

  friend struct CIFilterRegistry;
};

namespace ci {
// Registers the platform operations; runs once, on first use of the registry.
void registerBuiltinOperations();
}  // namespace ci

}  // namespace brenvia
