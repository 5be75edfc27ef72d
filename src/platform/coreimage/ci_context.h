#pragma once

#include "platform/coreimage/ci_image.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brenvia {
namespace ci {
struct RenderEnv;
}

// Pixel layouts of render targets; all premultiplied.
enum class CIFormat { RGBA8, ARGB8, BGRA8, RGBAh, RGBAf };
inline constexpr CIFormat kCIFormatRGBA8 = CIFormat::RGBA8;
inline constexpr CIFormat kCIFormatARGB8 = CIFormat::ARGB8;
inline constexpr CIFormat kCIFormatBGRA8 = CIFormat::BGRA8;
inline constexpr CIFormat kCIFormatRGBAh = CIFormat::RGBAh;
inline constexpr CIFormat kCIFormatRGBAf = CIFormat::RGBAf;

struct CIContextOptions {
  // Absent: linear-light sRGB with extended range. A colour space: that space, curve included.
  // A null space: no colour management (values used exactly as stored).
  std::optional<CGColorSpaceRef> workingColorSpace;
  // Absent: sRGB. A null space: values written as they are in the working space.
  std::optional<CGColorSpaceRef> outputColorSpace;
  // Only lifts inputImageMaximumSize.
  bool useSoftwareRenderer = false;
  int threads = 0;  // 0: every core
  int tileSize = 512;
  // Colour cube operations interpolate tetrahedrally instead of trilinearly.
  bool tetrahedralColorCubes = false;
};

struct CIJPEGOptions {
  double quality = 1.0;  // 0...1
};

// Renders image graphs. A context is immutable and may be used from several threads at once.
class CIContext {
 public:
  static std::shared_ptr<CIContext> context();
  static std::shared_ptr<CIContext> contextWithOptions(const CIContextOptions& options);

  // The rectangle as a new 8-bit RGBA premultiplied bitmap, top row first, in the output space.
  // Null for an empty or infinite rectangle.
  CGImageRef createCGImage(const CIImageRef& image, const CGRect& fromRect) const;
  CGImageRef createCGImage(const CIImageRef& image, const CGRect& fromRect, CIFormat format,
                           const CGColorSpaceRef& colorSpace) const;
  // Renders `bounds` into caller memory; a null colour space writes working-space values.
  bool render(const CIImageRef& image, void* bitmap, size_t rowBytes, const CGRect& bounds, CIFormat format,
              const CGColorSpaceRef& colorSpace) const;
  // Renders the image's extent and encodes it as JPEG, with the colour space's profile and the
  // image's orientation property. Nothing for an empty or infinite extent.
  std::optional<std::vector<uint8_t>> JPEGRepresentationOfImage(const CIImageRef& image,
                                                                const CGColorSpaceRef& colorSpace,
                                                                const CIJPEGOptions& options = {}) const;
  // The same written to a file (through a temporary name: never a half-written file).
  bool writeJPEGRepresentationOfImage(const CIImageRef& image, const std::string& path,
                                      const CGColorSpaceRef& colorSpace, const CIJPEGOptions& options = {},
                                      std::string* error = nullptr) const;

  // Renders `bounds` as 8-bit RGBA premultiplied bands of bandRows rows, top band first, handing
  // band k to `consume` as a bitmap that lives only for the call. Bands are rendered and consumed
  // on several threads at once and may arrive out of order; no bitmap of the whole frame is made.
  // False when `consume` failed or the image could not be rendered in full.
  bool renderBands(const CIImageRef& image, const CGRect& bounds, const CGColorSpaceRef& colorSpace, size_t bandRows,
                   const std::function<bool(size_t k, const CGImage& band)>& consume) const;

  // 16384 x 16384, or unlimited for a software context.
  CGSize inputImageMaximumSize() const;
  // Null when colour management is off.
  const CGColorSpaceRef& workingColorSpace() const { return working_; }
  // Null when output values are written unconverted.
  const CGColorSpaceRef& outputColorSpace() const { return output_; }
  const CIContextOptions& options() const { return options_; }

 private:
  explicit CIContext(const CIContextOptions& options);
  ci::RenderEnv env() const;

  CIContextOptions options_;
  CGColorSpaceRef working_, output_;
};

}  // namespace brenvia
