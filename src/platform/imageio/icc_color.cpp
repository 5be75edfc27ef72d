// Colour profiles on the way in (embedded profiles applied through lcms2, CMYK to RGB) and on the
// way out (which profile, if any, a written file carries).

#include "platform/imageio/codec_internal.h"

#include <lcms2.h>

namespace brenvia::imageio::detail {
namespace {

struct ProfileCloser {
  void operator()(void* p) const { cmsCloseProfile(p); }
};
using ProfilePtr = std::unique_ptr<void, ProfileCloser>;

struct TransformDeleter {
  void operator()(void* t) const { cmsDeleteTransform(t); }
};
using TransformPtr = std::unique_ptr<void, TransformDeleter>;

// The profile's colour space signature, as an integer: a damaged header may hold a value outside
// lcms2's enumeration.
uint32_t colorSpaceOf(void* profile) { return static_cast<uint32_t>(cmsGetColorSpace(profile)); }

ProfilePtr openProfile(const uint8_t* icc, size_t size) {
  if (!icc || size < 132 || size > 0xffffffffu) return nullptr;
  return ProfilePtr(cmsOpenProfileFromMem(icc, static_cast<cmsUInt32Number>(size)));
}

// Converts the buffer in place from the profile to sRGB. False when lcms2 cannot use the profile.
bool convertToSRGB(const uint8_t* icc, size_t size, PixelBuffer& pixels) {
  cmsUInt32Number type = 0;
  cmsUInt32Number flags = 0;
  switch (pixels.format) {
    case CGPixelFormat::RGB8: type = TYPE_RGB_8; break;
    case CGPixelFormat::RGBA8:
      type = TYPE_RGBA_8;
      flags = cmsFLAGS_COPY_ALPHA;
      break;
    case CGPixelFormat::RGB16: type = TYPE_RGB_16; break;
    case CGPixelFormat::RGBA16:
      type = TYPE_RGBA_16;
      flags = cmsFLAGS_COPY_ALPHA;
      break;
    default: return false;
  }
  ProfilePtr source = openProfile(icc, size);
  ProfilePtr srgb(cmsCreate_sRGBProfile());
  if (!source || !srgb || colorSpaceOf(source.get()) != cmsSigRgbData) return false;
  TransformPtr transform(
      cmsCreateTransform(source.get(), type, srgb.get(), type, INTENT_RELATIVE_COLORIMETRIC, flags));
  if (!transform) return false;
  for (size_t y = 0; y < pixels.height; ++y) {
    uint8_t* row = pixels.row(y);
    cmsDoTransform(transform.get(), row, row, static_cast<cmsUInt32Number>(pixels.width));
  }
  return true;
}

bool isGrayFormat(CGPixelFormat f) { return f == CGPixelFormat::Gray8 || f == CGPixelFormat::Gray16; }

}  // namespace

std::optional<CGColorSpaceRef> spaceKeepingPixels(const uint8_t* icc, size_t size) {
  CGColorSpaceRef srgb = CGColorSpaceCreateWithName(kCGColorSpaceSRGB);
  if (!icc || size == 0) return srgb;
  CGColorSpaceRef space = CGColorSpaceCreateWithICCData(icc, size);
  if (!space || space->model() != CGColorSpaceModel::RGB) return srgb;
  if (!space->isICCBacked()) return space;  // sRGB or Display P3: the pixels are used as stored
  return std::nullopt;
}

CGColorSpaceRef adoptEmbeddedProfile(const uint8_t* icc, size_t size, PixelBuffer& pixels) {
  if (auto space = spaceKeepingPixels(icc, size)) return *space;
  // Whether or not lcms2 could apply the profile, the pixels are now read as sRGB.
  convertToSRGB(icc, size, pixels);
  return CGColorSpaceCreateWithName(kCGColorSpaceSRGB);
}

CMYKConverter::CMYKConverter(const uint8_t* icc, size_t size, bool inverted) : inverted_(inverted) {
  ProfilePtr source = openProfile(icc, size);
  if (!source || colorSpaceOf(source.get()) != cmsSigCmykData) return;
  ProfilePtr srgb(cmsCreate_sRGBProfile());
  if (!srgb) return;
  transform_ = cmsCreateTransform(source.get(), inverted ? TYPE_CMYK_8_REV : TYPE_CMYK_8, srgb.get(), TYPE_RGB_8,
                                  INTENT_RELATIVE_COLORIMETRIC, 0);
}

CMYKConverter::~CMYKConverter() {
  if (transform_) cmsDeleteTransform(transform_);
}

void CMYKConverter::convert(const uint8_t* cmyk, uint8_t* rgb, size_t pixels) const {
  if (transform_) {
    cmsDoTransform(transform_, cmyk, rgb, static_cast<cmsUInt32Number>(pixels));
    return;
  }
  // Without a profile: each channel is the complement of its ink, darkened by black.
  for (size_t i = 0; i < pixels; ++i, cmyk += 4, rgb += 3) {
    unsigned k = inverted_ ? cmyk[3] : 255u - cmyk[3];
    for (int c = 0; c < 3; ++c) {
      unsigned v = inverted_ ? cmyk[c] : 255u - cmyk[c];
      rgb[c] = static_cast<uint8_t>((v * k + 127) / 255);
    }
  }
}

OutputColor chooseOutputColor(CGPixelFormat format, const CGColorSpaceRef& space) {
  OutputColor out;
  bool grayPixels = isGrayFormat(format);
  bool graySpace = space && space->model() == CGColorSpaceModel::Monochrome;
  out.gray = grayPixels && (!space || graySpace);
  if (!space) return out;
  if (graySpace && !out.gray) return out;  // a grey profile cannot describe colour pixels
  const std::string& name = space->name();
  if (out.gray) {
    out.plainSRGB = name == kCGColorSpaceGenericGrayGamma2_2;
  } else {
    out.plainSRGB = name == kCGColorSpaceSRGB || name == kCGColorSpaceExtendedSRGB;
  }
  if (!out.plainSRGB && !space->iccData().empty()) out.profile = &space->iccData();
  return out;
}

}  // namespace brenvia::imageio::detail
