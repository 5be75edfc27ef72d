#include "image/graphics_utilities.h"

#include "platform/foundation/log.h"
#include "platform/imageio/image_io.h"

#include <nlohmann/json.hpp>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace brenvia {
namespace {

struct BlendRow {
  std::string_view name;
  CGBlendMode drawingMode;
  std::string_view operation;
};

constexpr std::string_view kSourceOver = "CISourceOverCompositing";

constexpr std::array<BlendRow, 26> kBlendTable{{
    {kBVBlendModeNormal, kCGBlendModeNormal, kSourceOver},
    {kBVBlendModeMultiply, kCGBlendModeMultiply, "CIMultiplyBlendMode"},
    {kBVBlendModeScreen, kCGBlendModeScreen, "CIScreenBlendMode"},
    {kBVBlendModeOverlay, kCGBlendModeOverlay, "CIOverlayBlendMode"},
    {kBVBlendModeDarken, kCGBlendModeDarken, "CIDarkenBlendMode"},
    {kBVBlendModeLighten, kCGBlendModeLighten, "CILightenBlendMode"},
    {kBVBlendModeColorDodge, kCGBlendModeColorDodge, "CIColorDodgeBlendMode"},
    {kBVBlendModeColorBurn, kCGBlendModeColorBurn, "CIColorBurnBlendMode"},
    {kBVBlendModeSoftLight, kCGBlendModeSoftLight, "CISoftLightBlendMode"},
    {kBVBlendModeHardLight, kCGBlendModeHardLight, "CIHardLightBlendMode"},
    {kBVBlendModeDifference, kCGBlendModeDifference, "CIDifferenceBlendMode"},
    {kBVBlendModeExclusion, kCGBlendModeExclusion, "CIExclusionBlendMode"},
    {kBVBlendModeHue, kCGBlendModeHue, "CIHueBlendMode"},
    {kBVBlendModeSaturation, kCGBlendModeSaturation, "CISaturationBlendMode"},
    {kBVBlendModeColor, kCGBlendModeColor, "CIColorBlendMode"},
    {kBVBlendModeLuminosity, kCGBlendModeLuminosity, "CILuminosityBlendMode"},
    {kBVBlendModeClear, kCGBlendModeClear, kSourceOver},
    {kBVBlendModePlusDarker, kCGBlendModePlusDarker, kSourceOver},
    {kBVBlendModePlusLighter, kCGBlendModePlusLighter, "CIMaximumCompositing"},
    // The drawing API has none of these: drawing treats them as normal.
    {kBVBlendModePinLight, kCGBlendModeNormal, "CIPinLightBlendMode"},
    {kBVBlendModeLinearBurn, kCGBlendModeNormal, "CILinearBurnBlendMode"},
    {kBVBlendModeLinearDodge, kCGBlendModeNormal, "CILinearDodgeBlendMode"},
    {kBVBlendModeSubtract, kCGBlendModeNormal, "CISubtractBlendMode"},
    {kBVBlendModeVividLight, kCGBlendModeNormal, "BVVividLightBlendMode"},
    {kBVBlendModeLinearLight, kCGBlendModeNormal, "BVLinearLightBlendMode"},
    {kBVBlendModeDivide, kCGBlendModeNormal, "CIDivideBlendMode"},
}};

const BlendRow* blendRowNamed(std::string_view name) {
  for (const BlendRow& row : kBlendTable) {
    if (row.name == name) return &row;
  }
  return nullptr;
}

// The row naming a drawing mode (0-16, 26 and 27): the first with its number, Normal for 0.
const BlendRow* blendRowNumbered(CGBlendMode mode) {
  for (const BlendRow& row : kBlendTable) {
    if (row.drawingMode == mode) return &row;
  }
  return nullptr;
}

CGRect centredScaled(CGSize size, CGSize container, double scale) {
  const double width = size.width * scale, height = size.height * scale;
  return CGRectMake((container.width - width) * 0.5, (container.height - height) * 0.5, width, height);
}

// A new context of the size with the image drawn through `place` (which sets up the transform and
// gives the rectangle to draw in).
template <class Place>
CGImageRef redraw(const CGImageRef& image, CGSize size, Place place) {
  if (!image) return nullptr;
  CGContextRef context = CGBitmapContextCreateWithSize(size);
  if (!context) return nullptr;
  CGContextDrawImage(context, place(context), image);
  return CGBitmapContextCreateImage(context);
}

CGSize sizeOf(const CGImageRef& image) { return CGSizeMake(double(image->width()), double(image->height())); }

vImage_Buffer allocateBuffer(size_t height, size_t width, size_t rowBytes) {
  return {std::malloc(std::max<size_t>(1, height * rowBytes)), height, width, rowBytes};
}

}  // namespace

std::vector<std::string_view> BVBlendModeNames() {
  std::vector<std::string_view> names;
  for (const BlendRow& row : kBlendTable) names.push_back(row.name);
  return names;
}

CGBlendMode CGBlendModeWithString(std::string_view mode) {
  const BlendRow* row = blendRowNamed(mode);
  return row ? row->drawingMode : kCGBlendModeNormal;
}

std::string_view CIFilterNameFromBVBlendMode(std::string_view mode) {
  const BlendRow* row = blendRowNamed(mode);
  return row ? row->operation : kSourceOver;
}

std::string_view CIFilterNameFromCGBlendMode(CGBlendMode mode) {
  if (mode == kCGBlendModeSourceAtop) return "CISourceAtopCompositing";
  if ((mode >= kCGBlendModeMultiply && mode <= kCGBlendModeLuminosity) || mode == kCGBlendModePlusLighter) {
    return blendRowNumbered(mode)->operation;
  }
  return kSourceOver;
}

std::optional<std::string_view> NSStringFromCGBlendMode(CGBlendMode mode) {
  const BlendRow* row = blendRowNumbered(mode);
  if (!row) return std::nullopt;
  return row->name;
}

BVImageScalingMode BVImageScalingModeFromString(std::optional<std::string_view> mode) {
  if (mode == "fill") return BVImageScalingModeFill;
  if (mode == "fit") return BVImageScalingModeFit;
  if (mode == "custom") return BVImageScalingModeCustom;
  return BVImageScalingModeStretch;
}

std::string_view BVGetStringFromImageScalingMode(int mode) {
  switch (mode) {
    case BVImageScalingModeFill: return "fill";
    case BVImageScalingModeFit: return "fit";
    case BVImageScalingModeCustom: return "custom";
    default: return "stretch";
  }
}

unsigned long _hexValue(std::string_view text) {
  unsigned long value = 0;
  if (std::sscanf(std::string(text).c_str(), "%lx", &value) != 1) return 0;
  return value;
}

CGColorRef CGColorCreateWithHex(std::string_view hex) {
  if (!hex.empty() && hex.front() == '#') hex.remove_prefix(1);
  std::string digits;
  if (hex.size() == 8) {
    digits = hex;
  } else if (hex.size() == 6) {
    digits = std::string(hex) + "ff";
  } else if (hex.size() == 3) {
    for (char c : hex) digits += {c, c};
    digits += "ff";
  } else {
    return nullptr;
  }
  std::array<double, 4> components{};
  for (size_t i = 0; i < 4; ++i) {
    components[i] = double(float(_hexValue(std::string_view(digits).substr(i * 2, 2))) / 255.0f);
  }
  return CGColorCreate(CGColorSpaceCreateDeviceRGB(), components.data());
}

CGRect BVGetRectToFitSizeInSize(CGSize size, CGSize container) {
  return centredScaled(size, container, std::min(container.width / size.width, container.height / size.height));
}

CGRect BVGetRectToFillSizeInSize(CGSize size, CGSize container) {
  return centredScaled(size, container, std::max(container.width / size.width, container.height / size.height));
}

CGContextRef CGBitmapContextCreateWithSize(CGSize size) {
  if (!(size.width >= 1 && size.height >= 1 && size.width < 32768 && size.height < 32768)) return nullptr;
  return CGBitmapContextCreate(nullptr, size_t(size.width), size_t(size.height), 8, 0, CGColorSpaceCreateDeviceRGB(),
                               kBVARGB8BitmapInfo);
}

CGImageRef CGImageCreateWithContentsOfFile(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::exists(path, error)) return nullptr;
  std::optional<imageio::DecodedImage> decoded = imageio::decodeFile(path);
  return decoded ? decoded->image : nullptr;
}

CGImageRef CGImageCreateWithSize(const CGImageRef& image, CGSize size) {
  return redraw(image, size, [&](const CGContextRef&) { return CGRectMake(0, 0, size.width, size.height); });
}

CGImageRef CGImageCreateWithRotation(const CGImageRef& image, double degrees) {
  if (!image) return nullptr;
  const double angle = degrees * 0.017453292519943295;
  const CGSize size = sizeOf(image);
  const CGSize turned =
      CGRectApplyAffineTransform(CGRectMake(0, 0, size.width, size.height), CGAffineTransformMakeRotation(angle)).size;
  return redraw(image, turned, [&](const CGContextRef& context) {
    CGContextSetAllowsAntialiasing(context, true);
    CGContextSetInterpolationQuality(context, kCGInterpolationHigh);
    CGContextTranslateCTM(context, turned.width * 0.5, turned.height * 0.5);
    CGContextRotateCTM(context, angle);
    return CGRectMake(-size.width * 0.5, -size.height * 0.5, size.width, size.height);
  });
}

CGImageRef CGImageCreateWithHorizontalFlip(const CGImageRef& image) {
  if (!image) return nullptr;
  const CGSize size = sizeOf(image);
  return redraw(image, size, [&](const CGContextRef& context) {
    CGContextScaleCTM(context, -1, 1);
    CGContextTranslateCTM(context, -size.width, 0);
    return CGRectMake(0, 0, size.width, size.height);
  });
}

CGImageRef CGImageCreateWithVerticalFlip(const CGImageRef& image) {
  if (!image) return nullptr;
  const CGSize size = sizeOf(image);
  return redraw(image, size, [&](const CGContextRef& context) {
    CGContextScaleCTM(context, 1, -1);
    CGContextTranslateCTM(context, 0, -size.height);
    return CGRectMake(0, 0, size.width, size.height);
  });
}

CGImageRef CGImageCreateWithvImage_Buffer(const vImage_Buffer& buffer, const CGColorSpaceRef& colorSpace,
                                          CGBitmapInfo bitmapInfo) {
  vImage_CGImageFormat format;
  format.colorSpace = colorSpace;
  format.bitmapInfo = bitmapInfo;
  return vImageCreateCGImageFromBuffer(buffer, format, kvImageNoAllocate);
}

size_t CGImageGetBytesPerPixel(const CGImageRef& image) {
  return image ? CGPixelFormatBytesPerPixel(image->format()) : 0;
}

size_t CGBitmapContextGetBytesPerPixel(const CGContextRef& context) {
  return size_t(double(CGBitmapContextGetBitsPerPixel(context)) * 0.125);
}

bool CGImageWriteToFile(const CGImageRef& image, const std::string& path, std::string_view typeIdentifier,
                        const Value& properties) {
  const bool jpeg = typeIdentifier == kUTTypeJPEG;
  if (!image || (!jpeg && typeIdentifier != kUTTypePNG)) return false;
  imageio::EncodeOptions options;
  if (const Value* orientation = BVMember(properties, "Orientation")) {
    options.orientation = int(BVNumber(*orientation).value_or(1));
  }
  if (const Value* quality = BVMember(properties, kCGImageDestinationLossyCompressionQuality)) {
    options.quality = BVNumber(*quality).value_or(1.0);
  }
  std::vector<uint8_t> bytes;
  bool written = jpeg ? imageio::encodeJPEG(*image, options, bytes) : imageio::encodePNG(*image, options, bytes);
  std::string error;
  written = written && imageio::writeFileAtomically(path, bytes, &error);
  if (!written) BVLog("[Brenvia] Failed to write image to " + path);
  return written;
}

std::string BVTemporaryFilePath(std::string_view stem, std::string_view extension) {
  using namespace std::chrono;
  const double absoluteTime = duration<double>(system_clock::now().time_since_epoch()).count() - 978307200.0;
  char seconds[64];
  std::snprintf(seconds, sizeof seconds, "%f", absoluteTime);
  const std::string name = std::string(stem) + "-" + seconds + "." + std::string(extension);
  return (std::filesystem::temp_directory_path() / name).string();
}

vImage_Buffer vImage_BufferCreateWithCGImage(const CGImageRef& image) {
  vImage_Buffer buffer;
  vImage_CGImageFormat format;
  format.colorSpace = CGImageGetColorSpace(image);
  format.bitmapInfo = CGImageGetBitmapInfo(image);
  if (vImageBuffer_InitWithCGImage(&buffer, format, nullptr, image, kvImageNoFlags) != kvImageNoError) {
    BVLog("[BVUtilities] Failed to initialize vImage buffer from CGImage.");
  }
  return buffer;
}

vImage_Buffer vImage_BufferCreateDestinationWithSize(CGSize size, double bytesPerPixel) {
  if (!(size.width >= 0 && size.height >= 0 && bytesPerPixel >= 0 &&
        size.width * size.height * bytesPerPixel < double(CGImage::kMaxPixels) * 16)) {
    return {};
  }
  const size_t width = size_t(size.width), height = size_t(size.height);
  vImage_Buffer buffer{std::malloc(std::max<size_t>(1, size_t(size.width * size.height * bytesPerPixel))), height,
                       width, size_t(double(width) * bytesPerPixel)};
  return buffer;
}

vImage_Buffer vImage_BufferCreateDestinationWithSource(const vImage_Buffer& source) {
  return allocateBuffer(source.height, source.width, source.rowBytes);
}

vImage_Buffer vImage_PlanarBufferCreateWithSource(const vImage_Buffer& source) {
  return allocateBuffer(source.height, source.width, source.rowBytes >> 2);
}

}  // namespace brenvia
