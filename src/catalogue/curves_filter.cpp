#include "catalogue/curves_filter.h"

#include "curves/curve_points.h"
#include "curves/curves_plot.h"
#include "curves/lut_text.h"
#include "image/bitmap_context.h"
#include "image/graphics_utilities.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/file_reading.h"
#include "platform/foundation/log.h"
#include "platform/foundation/recently_used_cache.h"
#include "platform/graphics/vimage.h"

#include <cstdlib>
#include <filesystem>

namespace brenvia {
namespace {

constexpr uint32_t kCurvesCubeDimension = 32;

// Cubes are shared between filters with the same curves or table at the same strength, so a
// second filter (or a copy) costs nothing. A 32^3 cube is 512 KiB.
using SharedCubes = BVRecentlyUsedCache<std::string, std::pair<BVData, uint32_t>>;
SharedCubes& sharedCubes() {
  static SharedCubes cache(16);
  return cache;
}

void appendPoints(std::string& key, const CColorCurveRef& curve) {
  if (!curve) {
    key += "none;";
    return;
  }
  for (const CGPoint& p : curve->points()) key += std::to_string(p.x) + " " + std::to_string(p.y) + ",";
  key += "|";
  if (curve->masterCurve()) appendPoints(key, curve->masterCurve());
  key += ";";
}

// The file's identity for the cache: its path, size and time of change.
std::optional<std::string> fileStamp(const std::string& path) {
  std::error_code error;
  const auto size = std::filesystem::file_size(path, error);
  if (error) return std::nullopt;
  const auto changed = std::filesystem::last_write_time(path, error).time_since_epoch().count();
  return path + "@" + std::to_string(size) + "@" + std::to_string(changed);
}

std::optional<std::string> readText(const std::string& path) {
  std::string error;
  return BVReadRegularTextFile(path, kBVMaximumTableFileBytes, error);
}

bool isCubeFile(const std::string& name) {
  std::string extension = std::filesystem::path(name).extension().string();
  for (char& c : extension) c = char(std::tolower(static_cast<unsigned char>(c)));
  return extension == ".cube";
}

BVCurve curveFrom(const std::optional<std::string>& text, const std::shared_ptr<const BVCurve>& master) {
  return BVCurve(text ? BVCurvePointsFromString(*text) : BVPointList{}, master, 0);
}

}  // namespace

const BVParameterTable<BVCurvesSettings>& BVCurvesFilter::parameterTable() {
  using S = BVCurvesSettings;
  static const BVParameterTable<S> table{
      {kBVFilterCurvesACVFileNameKey, &S::acvFileName, "curves file (.acv) in the asset folder"},
      {kBVFilterCurvesLUTFileNameKey, &S::lutFileName, "lookup table in the asset folder: 32^3 text table or .cube"},
      {kBVFilterCurvesMasterPointsKey, &S::masterPoints, "points of the curve of all channels: {0 0},{128 140},..."},
      {kBVFilterCurvesRedPointsKey, &S::redPoints, "points of the red curve, with masterPoints"},
      {kBVFilterCurvesGreenPointsKey, &S::greenPoints, "points of the green curve, with masterPoints"},
      {kBVFilterCurvesBluePointsKey, &S::bluePoints, "points of the blue curve, with masterPoints"},
  };
  return table;
}

void BVCurvesFilter::readParameters(const Value& parameters, const BVParameterReader& reader) {
  BVFilterOf::readParameters(parameters, reader);
  const BVCurvesSettings& s = settings();
  redCurve_ = greenCurve_ = blueCurve_ = std::nullopt;
  if (!s.masterPoints) return;
  auto master = std::make_shared<const BVCurve>(curveFrom(s.masterPoints, nullptr));
  redCurve_ = curveFrom(s.redPoints, master);
  greenCurve_ = curveFrom(s.greenPoints, master);
  blueCurve_ = curveFrom(s.bluePoints, master);
}

std::optional<std::string> BVCurvesFilter::pathOf(const std::string& name) const {
  if (!isNameInsideAssets(name)) return std::nullopt;
  const std::string path = imageSearchPath() ? (std::filesystem::path(*imageSearchPath()) / name).string() : name;
  if (!isFileInsideAssets(path)) return std::nullopt;
  return path;
}

CACVObjectRef BVCurvesFilter::acvObject() {
  std::optional<std::string> path = acvObject_ || !acvFileName() ? std::nullopt : pathOf(*acvFileName());
  if (path) acvObject_ = CACVObject::initWithURL(*path);
  return acvObject_;
}

CColorCurveRef BVCurvesFilter::channelCurve(const std::optional<BVCurve>& curve,
                                            const CColorCurveRef& (CACVObject::*fromFile)() const) {
  if (curve) {
    const BVPointList masterPoints = curve->masterCurve() ? curve->masterCurve()->points() : BVCurve().points();
    CColorCurveRef master = CColorCurve::initWithName(std::nullopt, masterPoints, nullptr);
    return CColorCurve::initWithName(std::nullopt, curve->points(), master);
  }
  CACVObjectRef file = acvObject();
  return file ? ((*file).*fromFile)() : nullptr;
}

CGImageRef BVCurvesFilter::curvesImage() {
  CACVObjectRef curves = acvObject();
  return curves ? BVCurvesImage(*curves, 1.0, false) : nullptr;
}

std::optional<BVCurvesFilter::Cube> BVCurvesFilter::makeCube(float strength) {
  CColorCurveRef red = redCCurve(), green = greenCCurve(), blue = blueCCurve();
  if (red || green || blue) {
    std::string key = "curves:" + std::to_string(strength) + ":";
    for (const auto& curve : {red, green, blue}) appendPoints(key, curve);
    auto [data, dimension] = sharedCubes().valueFor(key, [&] {
      return std::pair(CACVObject::threeDimensionalLUT(red, green, blue, kCurvesCubeDimension, strength),
                       kCurvesCubeDimension);
    });
    return Cube{data, dimension};
  }
  if (lutFileName()) return cubeFromTableFile(strength);
  return std::nullopt;
}

std::optional<BVCurvesFilter::Cube> BVCurvesFilter::cubeFromTableFile(float strength) const {
  const std::optional<std::string> found = pathOf(*lutFileName());
  if (!found) return std::nullopt;
  const std::string& path = *found;
  const std::optional<std::string> stamp = fileStamp(path);
  auto read = [&]() -> std::pair<BVData, uint32_t> {
    if (isCubeFile(path)) {
      std::optional<BVCubeLUT> table = BVCubeLUTReadFile(path);
      if (!table) return {nullptr, 0};
      return {BVCubeLUTUnitCube(*table, strength), table->dimension};
    }
    // A table that cannot be read leaves the picture as it is, as a missing curves file does.
    std::optional<std::string> text = readText(path);
    if (!text) return {nullptr, 0};
    return {BVLUTTextCube(*text, strength, *lutFileName()), kCurvesCubeDimension};
  };
  auto [data, dimension] =
      stamp ? sharedCubes().valueFor("table:" + std::to_string(strength) + ":" + *stamp, read) : read();
  if (!data) return std::nullopt;
  return Cube{data, dimension};
}

CIFilterArray BVCurvesFilter::CIFiltersForSize(CGSize size) {
  const double strength = alpha();
  auto cube = colorCubeData_.find(strength);
  if (cube == colorCubeData_.end()) {
    std::optional<Cube> made = makeCube(float(strength));
    if (!made) {
      BVLog(
          "[BVCurvesFilter] There are no curves and no readable curves or "
          "lookup table file; the picture is left "
          "as it is.");
      return {};
    }
    cube = colorCubeData_.emplace(strength, *made).first;
  }
  auto operation = CIFilter::filterWithName("CIColorCubeWithColorSpace");
  operation->setValue(cube->second.data, "inputCubeData");
  operation->setValue(double(cube->second.dimension), "inputCubeDimension");
  operation->setValue(CGColorSpaceCreateWithName(kCGColorSpaceSRGB), "inputColorSpace");
  return CIFiltersWithMaskIfNeeded({operation}, nullptr, size);
}

// The tables work on the bytes of premultiplied pixels, as the drawing road always has.
void BVCurvesFilter::applyToCGContext(BVBitmapContext* context) {
  const CGContextRef& c = context->context();
  const vImage_CGImageFormat format{8, 32, CGBitmapContextGetColorSpace(c), kBVARGB8BitmapInfo};
  vImage_Buffer pixels;
  vImage_Error error =
      vImageBuffer_InitWithCGImage(&pixels, format, nullptr, CGBitmapContextCreateImage(c), kvImageNoFlags);
  if (error == kvImageNoError) {
    CColorCurveRef red = redCCurve(), green = greenCCurve(), blue = blueCCurve();
    if (!red || !green || !blue) BVLog("[BVCurvesFilter] ACV failed, or no curve objects were provided");
    auto table = [](const CColorCurveRef& curve) { return curve ? curve->LUT().data() : nullptr; };
    error = vImageTableLookUp_ARGB8888(pixels, pixels, nullptr, table(red), table(green), table(blue), kvImageNoFlags);
  }
  CGImageRef result =
      error == kvImageNoError ? vImageCreateCGImageFromBuffer(pixels, format, kvImageNoFlags, &error) : nullptr;
  std::free(pixels.data);
  if (!result) {
    BVLog("[BVCurvesFilter] vImage Failed: " + std::to_string(error));
    return;
  }
  CGContextSaveGState(c);
  CGContextSetBlendMode(c, kCGBlendModeCopy);
  CGContextDrawImage(c, CGRectMake(0, 0, double(result->width()), double(result->height())), result);
  CGContextRestoreGState(c);
}

}  // namespace brenvia
