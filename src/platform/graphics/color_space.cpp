#include "platform/graphics/color_space.h"

#include <lcms2.h>

#include <mutex>

namespace brenvia {
namespace {

using Transfer = CGColorSpace::Transfer;

// Primaries (xy) and D65 white used to build the profiles of the named spaces.
struct Chromaticities {
  cmsCIExyY r, g, b;
};
constexpr Chromaticities kSRGBxy{{0.64, 0.33, 1}, {0.30, 0.60, 1}, {0.15, 0.06, 1}};
constexpr Chromaticities kP3xy{{0.680, 0.320, 1}, {0.265, 0.690, 1}, {0.150, 0.060, 1}};
constexpr cmsCIExyY kD65{0.3127, 0.3290, 1};

std::vector<uint8_t> saveProfile(cmsHPROFILE profile) {
  std::vector<uint8_t> bytes;
  cmsUInt32Number size = 0;
  if (profile && cmsSaveProfileToMem(profile, nullptr, &size) && size > 0) {
    bytes.resize(size);
    cmsSaveProfileToMem(profile, bytes.data(), &size);
  }
  if (profile) cmsCloseProfile(profile);
  return bytes;
}

cmsToneCurve* transferCurve(Transfer t) {
  if (t == Transfer::Linear) return cmsBuildGamma(nullptr, 1.0);
  const cmsFloat64Number srgb[5] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
  return cmsBuildParametricToneCurve(nullptr, 4, srgb);
}

std::vector<uint8_t> makeProfile(CGColorSpaceModel model, Transfer transfer, const color::Mat3& toXYZ) {
  cmsToneCurve* curve = transferCurve(transfer);
  cmsHPROFILE profile = nullptr;
  if (model == CGColorSpaceModel::Monochrome) {
    profile = cmsCreateGrayProfile(cmsD50_xyY(), curve);
  } else {
    const Chromaticities& xy = toXYZ == color::kDisplayP3ToXYZ ? kP3xy : kSRGBxy;
    cmsCIExyYTRIPLE primaries{xy.r, xy.g, xy.b};
    cmsToneCurve* curves[3] = {curve, curve, curve};
    profile = cmsCreateRGBProfile(&kD65, &primaries, curves);
  }
  cmsFreeToneCurve(curve);
  return saveProfile(profile);
}

bool near(double a, double b, double eps) { return std::abs(a - b) <= eps; }

bool curveIsSRGB(cmsHPROFILE p) {
  auto* curve = static_cast<cmsToneCurve*>(cmsReadTag(p, cmsSigRedTRCTag));
  if (!curve) return false;
  for (double v : {0.02, 0.2, 0.5, 0.8}) {
    if (!near(cmsEvalToneCurveFloat(curve, static_cast<cmsFloat32Number>(v)), color::srgbDecode(v), 2e-3)) return false;
  }
  return true;
}

// Compares the profile's RGB->XYZ(D50) matrix with the expected primaries adapted to D50.
bool primariesMatch(cmsHPROFILE p, const Chromaticities& xy) {
  cmsCIExyYTRIPLE primaries{xy.r, xy.g, xy.b};
  cmsToneCurve* lin = cmsBuildGamma(nullptr, 1.0);
  cmsToneCurve* curves[3] = {lin, lin, lin};
  cmsHPROFILE ref = cmsCreateRGBProfile(&kD65, &primaries, curves);
  cmsFreeToneCurve(lin);
  bool ok = ref != nullptr;
  for (auto tag : {cmsSigRedColorantTag, cmsSigGreenColorantTag, cmsSigBlueColorantTag}) {
    if (!ok) break;
    auto* a = static_cast<cmsCIEXYZ*>(cmsReadTag(p, tag));
    auto* b = static_cast<cmsCIEXYZ*>(cmsReadTag(ref, tag));
    ok = a && b && near(a->X, b->X, 2e-3) && near(a->Y, b->Y, 2e-3) && near(a->Z, b->Z, 2e-3);
  }
  if (ref) cmsCloseProfile(ref);
  return ok;
}

}  // namespace

CGColorSpace::CGColorSpace(std::string name, CGColorSpaceModel model, Transfer transfer, const color::Mat3& toXYZ,
                           std::vector<uint8_t> icc)
    : name_(std::move(name)), model_(model), transfer_(transfer), toXYZ_(toXYZ), icc_(std::move(icc)) {}

const std::vector<uint8_t>& CGColorSpace::iccData() const {
  static std::mutex m;
  std::lock_guard lock(m);
  if (icc_.empty()) icc_ = makeProfile(model_, transfer_, toXYZ_);
  return icc_;
}

bool CGColorSpace::isEquivalent(const CGColorSpace& other) const {
  return model_ == other.model_ && transfer_ == other.transfer_ && toXYZ_ == other.toXYZ_;
}

CGColorSpaceRef CGColorSpaceCreateWithName(std::string_view name) {
  static const auto srgb = std::make_shared<const CGColorSpace>(std::string(kCGColorSpaceSRGB), CGColorSpaceModel::RGB,
                                                                Transfer::SRGB, color::kSRGBToXYZ);
  static const auto p3 = std::make_shared<const CGColorSpace>(std::string(kCGColorSpaceDisplayP3),
                                                              CGColorSpaceModel::RGB, Transfer::SRGB,
                                                              color::kDisplayP3ToXYZ);
  static const auto linear = std::make_shared<const CGColorSpace>(std::string(kCGColorSpaceLinearSRGB),
                                                                  CGColorSpaceModel::RGB, Transfer::Linear,
                                                                  color::kSRGBToXYZ);
  static const auto extLinear = std::make_shared<const CGColorSpace>(std::string(kCGColorSpaceExtendedLinearSRGB),
                                                                     CGColorSpaceModel::RGB, Transfer::Linear,
                                                                     color::kSRGBToXYZ);
  static const auto extSRGB = std::make_shared<const CGColorSpace>(std::string(kCGColorSpaceExtendedSRGB),
                                                                   CGColorSpaceModel::RGB, Transfer::SRGB,
                                                                   color::kSRGBToXYZ);
  static const auto gray = std::make_shared<const CGColorSpace>(std::string(kCGColorSpaceGenericGrayGamma2_2),
                                                                CGColorSpaceModel::Monochrome, Transfer::SRGB,
                                                                color::kSRGBToXYZ);
  if (name == kCGColorSpaceSRGB) return srgb;
  if (name == kCGColorSpaceDisplayP3) return p3;
  if (name == kCGColorSpaceLinearSRGB) return linear;
  if (name == kCGColorSpaceExtendedLinearSRGB) return extLinear;
  if (name == kCGColorSpaceExtendedSRGB) return extSRGB;
  if (name == kCGColorSpaceGenericGrayGamma2_2) return gray;
  return nullptr;
}

CGColorSpaceRef CGColorSpaceCreateDeviceRGB() { return CGColorSpaceCreateWithName(kCGColorSpaceSRGB); }
CGColorSpaceRef CGColorSpaceCreateDeviceGray() { return CGColorSpaceCreateWithName(kCGColorSpaceGenericGrayGamma2_2); }

CGColorSpaceRef CGColorSpaceCreateWithICCData(const uint8_t* data, size_t size) {
  if (!data || size < 132) return nullptr;
  cmsHPROFILE p = cmsOpenProfileFromMem(data, static_cast<cmsUInt32Number>(size));
  if (!p) return nullptr;
  CGColorSpaceRef result;
  // Kept as an integer: a damaged header may hold a value outside the enumeration.
  cmsUInt32Number space = cmsGetColorSpace(p);
  std::vector<uint8_t> bytes(data, data + size);
  if (space == cmsSigGrayData) {
    result = std::make_shared<const CGColorSpace>("ICC gray", CGColorSpaceModel::Monochrome, Transfer::SRGB,
                                                  color::kSRGBToXYZ, std::move(bytes));
  } else if (space == cmsSigRgbData) {
    bool srgbCurve = curveIsSRGB(p);
    if (srgbCurve && primariesMatch(p, kSRGBxy)) {
      result = CGColorSpaceCreateWithName(kCGColorSpaceSRGB);
    } else if (srgbCurve && primariesMatch(p, kP3xy)) {
      result = CGColorSpaceCreateWithName(kCGColorSpaceDisplayP3);
    } else {
      // Another RGB profile: the engine converts it through lcms2 when decoding.
      result = std::make_shared<const CGColorSpace>("ICC", CGColorSpaceModel::RGB, Transfer::SRGB,
                                                    color::kSRGBToXYZ, std::move(bytes));
    }
  }
  cmsCloseProfile(p);
  return result;
}

}  // namespace brenvia
