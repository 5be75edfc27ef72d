#pragma once

// Blend mode names, hex colours, scaling modes, fit and fill rectangles, and makers of images,
// bitmap contexts and pixel buffers that the rest of the library shares.

#include "platform/foundation/value.h"
#include "platform/geometry/geometry.h"
#include "platform/graphics/cg_color.h"
#include "platform/graphics/cg_context.h"
#include "platform/graphics/cg_image.h"
#include "platform/graphics/vimage.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brenvia {

// A blend mode is named by a string; each constant's value is its name.
using BVBlendMode = std::string;
inline constexpr std::string_view kBVBlendModeNormal = "Normal";
inline constexpr std::string_view kBVBlendModeMultiply = "Multiply";
inline constexpr std::string_view kBVBlendModeScreen = "Screen";
inline constexpr std::string_view kBVBlendModeOverlay = "Overlay";
inline constexpr std::string_view kBVBlendModeDarken = "Darken";
inline constexpr std::string_view kBVBlendModeLighten = "Lighten";
inline constexpr std::string_view kBVBlendModeColorDodge = "ColorDodge";
inline constexpr std::string_view kBVBlendModeColorBurn = "ColorBurn";
inline constexpr std::string_view kBVBlendModeSoftLight = "SoftLight";
inline constexpr std::string_view kBVBlendModeHardLight = "HardLight";
inline constexpr std::string_view kBVBlendModeDifference = "Difference";
inline constexpr std::string_view kBVBlendModeExclusion = "Exclusion";
inline constexpr std::string_view kBVBlendModeHue = "Hue";
inline constexpr std::string_view kBVBlendModeSaturation = "Saturation";
inline constexpr std::string_view kBVBlendModeColor = "Color";
inline constexpr std::string_view kBVBlendModeLuminosity = "Luminosity";
inline constexpr std::string_view kBVBlendModeClear = "Clear";
inline constexpr std::string_view kBVBlendModePlusDarker = "PlusDarker";
inline constexpr std::string_view kBVBlendModePlusLighter = "PlusLighter";
inline constexpr std::string_view kBVBlendModePinLight = "PinLight";
inline constexpr std::string_view kBVBlendModeLinearBurn = "LinearBurn";
inline constexpr std::string_view kBVBlendModeLinearDodge = "LinearDodge";
inline constexpr std::string_view kBVBlendModeSubtract = "Subtract";
inline constexpr std::string_view kBVBlendModeVividLight = "VividLight";
inline constexpr std::string_view kBVBlendModeLinearLight = "LinearLight";
inline constexpr std::string_view kBVBlendModeDivide = "Divide";

// Every blend mode name, Normal first.
std::vector<std::string_view> BVBlendModeNames();
// The drawing number of a name; 0 for names the drawing API lacks and for unknown names.
// Names compare exactly, case included.
CGBlendMode CGBlendModeWithString(std::string_view mode);
// The image operation of a name; "CISourceOverCompositing" for unknown names.
std::string_view CIFilterNameFromBVBlendMode(std::string_view mode);
// The image operation of a drawing number: 1-15 and 27 as their names, 20 source-atop, the rest
// source-over.
std::string_view CIFilterNameFromCGBlendMode(CGBlendMode mode);
// The name of 0-16, 26 and 27; nothing for other numbers.
std::optional<std::string_view> NSStringFromCGBlendMode(CGBlendMode mode);

inline constexpr CGBitmapInfo kBVBGRA8BitmapInfo = 0x2002;
inline constexpr CGBitmapInfo kBVARGB8BitmapInfo = 0x4002;
inline constexpr CGBitmapInfo kBVRGBA8BitmapInfo = 0x4001;
inline constexpr CGBitmapInfo kBVRGBAhBitmapInfo = 0x101;

inline constexpr std::string_view kUTTypeJPEG = "public.jpeg";
inline constexpr std::string_view kUTTypePNG = "public.png";
inline constexpr std::string_view kCGImageDestinationLossyCompressionQuality =
    "kCGImageDestinationLossyCompressionQuality";

enum BVImageScalingMode : uint16_t {
  BVImageScalingModeStretch = 0,
  BVImageScalingModeFill = 1,
  BVImageScalingModeFit = 2,
  BVImageScalingModeCustom = 3,
};
// "fill", "fit" and "custom"; anything else (nothing included) is stretch.
BVImageScalingMode BVImageScalingModeFromString(std::optional<std::string_view> mode);
std::string_view BVGetStringFromImageScalingMode(int mode);

// The unsigned number a "%lx" scan reads from the text; 0 when nothing parses.
unsigned long _hexValue(std::string_view text);
// "#rgb", "#rrggbb" or "#rrggbbaa" (the hash optional) as a device RGB colour; null for an empty
// string or another length. Characters that are no hex digits read as 0, without an error.
CGColorRef CGColorCreateWithHex(std::string_view hex);

// `size` scaled by one factor and centred in `container`: as large as fits inside, or as small as
// covers it (the overhanging axis then starts below zero). No guard against zero sizes.
CGRect BVGetRectToFitSizeInSize(CGSize size, CGSize container);
CGRect BVGetRectToFillSizeInSize(CGSize size, CGSize container);

// A device RGB context of the size truncated to whole pixels, A,R,G,B bytes; null for an empty size.
CGContextRef CGBitmapContextCreateWithSize(CGSize size);
// The first image of a picture file; null when there is no file or it cannot be decoded.
CGImageRef CGImageCreateWithContentsOfFile(const std::string& path);
// The image stretched to the size.
CGImageRef CGImageCreateWithSize(const CGImageRef& image, CGSize size);
// The image turned by `degrees` (counter-clockwise) on a canvas that holds all of it.
CGImageRef CGImageCreateWithRotation(const CGImageRef& image, double degrees);
CGImageRef CGImageCreateWithHorizontalFlip(const CGImageRef& image);
CGImageRef CGImageCreateWithVerticalFlip(const CGImageRef& image);
// An image over the buffer's four-byte pixels without copying; the image takes over the memory
// (which must come from malloc). Null for layouts an image cannot hold; the buffer is then untouched.
CGImageRef CGImageCreateWithvImage_Buffer(const vImage_Buffer& buffer, const CGColorSpaceRef& colorSpace,
                                          CGBitmapInfo bitmapInfo);
size_t CGImageGetBytesPerPixel(const CGImageRef& image);
size_t CGBitmapContextGetBytesPerPixel(const CGContextRef& context);
// Encodes the image as the type ("public.jpeg" or "public.png") and writes it atomically. The
// properties may give "Orientation" and kCGImageDestinationLossyCompressionQuality. An unknown
// type writes and logs nothing; a failed write logs "[Brenvia] Failed to write image to <path>".
bool CGImageWriteToFile(const CGImageRef& image, const std::string& path, std::string_view typeIdentifier,
                        const Value& properties);

// "<stem>-<seconds since 2001 as %f>.<extension>" in the temporary folder.
std::string BVTemporaryFilePath(std::string_view stem, std::string_view extension);

// Buffers whose memory (malloc) the caller frees.
// The image in its own layout; on failure logs and gives an empty record.
vImage_Buffer vImage_BufferCreateWithCGImage(const CGImageRef& image);
vImage_Buffer vImage_BufferCreateDestinationWithSize(CGSize size, double bytesPerPixel);
vImage_Buffer vImage_BufferCreateDestinationWithSource(const vImage_Buffer& source);
// One channel of a four-channel buffer: a quarter of its row bytes.
vImage_Buffer vImage_PlanarBufferCreateWithSource(const vImage_Buffer& source);

}  // namespace brenvia
