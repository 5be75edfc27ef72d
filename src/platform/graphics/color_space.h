#pragma once

#include "platform/graphics/color_math.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace brenvia {

inline constexpr std::string_view kCGColorSpaceSRGB = "kCGColorSpaceSRGB";
inline constexpr std::string_view kCGColorSpaceDisplayP3 = "kCGColorSpaceDisplayP3";
inline constexpr std::string_view kCGColorSpaceLinearSRGB = "kCGColorSpaceLinearSRGB";
inline constexpr std::string_view kCGColorSpaceExtendedLinearSRGB = "kCGColorSpaceExtendedLinearSRGB";
inline constexpr std::string_view kCGColorSpaceExtendedSRGB = "kCGColorSpaceExtendedSRGB";
inline constexpr std::string_view kCGColorSpaceGenericGrayGamma2_2 = "kCGColorSpaceGenericGrayGamma2_2";

enum class CGColorSpaceModel { Monochrome, RGB };

// A colour space: a transfer curve and primaries. Grey spaces use the sRGB curve and carry
// one channel. Spaces read from files keep their ICC bytes so they can be written back.
class CGColorSpace {
 public:
  enum class Transfer { Linear, SRGB };

  CGColorSpace(std::string name, CGColorSpaceModel model, Transfer transfer, const color::Mat3& toXYZ,
               std::vector<uint8_t> icc = {});

  const std::string& name() const { return name_; }
  CGColorSpaceModel model() const { return model_; }
  Transfer transfer() const { return transfer_; }
  // Linear RGB in this space -> CIE XYZ (D65).
  const color::Mat3& toXYZ() const { return toXYZ_; }
  // The ICC profile describing this space (generated for the named spaces).
  const std::vector<uint8_t>& iccData() const;
  // Same transfer and primaries: converting between the two is the identity.
  bool isEquivalent(const CGColorSpace& other) const;
  // An RGB profile that is neither sRGB nor Display P3: its pixels must go through the profile
  // (lcms2) before the engine sees them; transfer and primaries above are placeholders.
  bool isICCBacked() const { return name_ == "ICC"; }

 private:
  std::string name_;
  CGColorSpaceModel model_;
  Transfer transfer_;
  color::Mat3 toXYZ_;
  mutable std::vector<uint8_t> icc_;
};

using CGColorSpaceRef = std::shared_ptr<const CGColorSpace>;

// One of the named spaces above, or null for an unknown name.
CGColorSpaceRef CGColorSpaceCreateWithName(std::string_view name);
// Device RGB is treated as sRGB.
CGColorSpaceRef CGColorSpaceCreateDeviceRGB();
CGColorSpaceRef CGColorSpaceCreateDeviceGray();
// An ICC profile from a file: recognised as sRGB or Display P3 when its primaries and curve match,
// otherwise kept as an ICC-backed RGB space. Null when the bytes are not a usable RGB/grey profile.
CGColorSpaceRef CGColorSpaceCreateWithICCData(const uint8_t* data, size_t size);

}  // namespace brenvia
