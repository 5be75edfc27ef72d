#include "curves/acv_object.h"

#include "platform/foundation/file_reading.h"
#include "platform/foundation/property_list.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace brenvia {
namespace {

// The contents of a regular file of a curve file's size, or null.
BVData fileContents(const std::string& path) {
  std::string error;
  auto bytes = BVReadRegularFile(path, kBVMaximumCurveFileBytes, error);
  if (!bytes) return nullptr;
  return std::make_shared<std::vector<uint8_t>>(std::move(*bytes));
}

// The cube component for index i of n on a curve's point list, with the strength a in 0...1.
float component(const BVPointList& points, uint64_t i, uint64_t n, float a) {
  double t = double(i) / double(n - 1);
  float k = std::round(float(t * 255.0));
  if (k >= float(points.size())) return 1.0f;
  double y = points[size_t(k)].y;
  if (a == 0) return k / 255.0f;
  if (a == 1) return float(y / 255.0);
  float d = float(y - double(k));
  return (a * d + k) / 255.0f;
}

std::vector<float> channel(const CColorCurveRef& curve, uint64_t n, float alpha) {
  static const BVPointList none;
  const BVPointList& points = curve ? curve->interpolatedPointsWithMasterInfluence() : none;
  std::vector<float> values(n);
  for (uint64_t i = 0; i < n; ++i) values[i] = component(points, i, n, alpha);
  return values;
}

}  // namespace

CACVObjectRef CACVObject::initWithURL(const std::string& path) {
  auto made = std::make_shared<CACVObject>();
  made->URL_ = path;
  return made->read() ? made : nullptr;
}

CACVObjectRef CACVObject::initWithData(BVData data) {
  auto made = std::make_shared<CACVObject>();
  made->data_ = std::move(data);
  return made->read() ? made : nullptr;
}

bool CACVObject::read() {
  CDataScanner scanner(URL_ ? fileContents(*URL_) : data_);
  scanner.setEndianness(CDataScannerEndiannessBig);
  int16_t version = 0, count = 0;
  if (!scanner.scanIntoShort(&version) || !scanner.scanIntoShort(&count)) return false;
  std::vector<BVPointList> lists;
  for (uint16_t c = 0; c < uint16_t(count); ++c) {
    int16_t points = 0;
    if (!scanner.scanIntoShort(&points)) return false;
    // A count with its top bit set asks for more points than a real file holds; reading them
    // runs out of bytes.
    if (scanner.bytesRemaining() < uint64_t(uint16_t(points)) * 4) return false;
    BVPointList list;
    for (uint16_t p = 0; p < uint16_t(points); ++p) {
      int16_t x = 0, y = 0;
      scanner.scanIntoShort(&y);  // output first, then input
      scanner.scanIntoShort(&x);
      list.push_back({double(x), double(y)});
    }
    lists.push_back(std::move(list));
  }
  // Four curves, each with a point, are what the cube needs.
  if (lists.size() < 4 || std::any_of(lists.begin(), lists.begin() + 4, [](const BVPointList& l) { return l.empty(); }))
    return false;
  RGBCurve_ = CColorCurve::initWithName("RGB", lists[0], nullptr);
  redCurve_ = CColorCurve::initWithName("red", lists[1], RGBCurve_);
  greenCurve_ = CColorCurve::initWithName("green", lists[2], RGBCurve_);
  blueCurve_ = CColorCurve::initWithName("blue", lists[3], RGBCurve_);
  return true;
}

BVData CACVObject::threeDimensionalLUT(uint64_t dimensionSize, float alpha) const {
  return threeDimensionalLUT(redCurve_, greenCurve_, blueCurve_, dimensionSize, alpha);
}

BVData CACVObject::threeDimensionalLUT(const CColorCurveRef& redCurve, const CColorCurveRef& greenCurve,
                                       const CColorCurveRef& blueCurve, uint64_t n, float alpha) {
  alpha = std::clamp(alpha, 0.0f, 1.0f);
  // 128^3 cells is already 32 MB; the engine's colour cube takes no more.
  if (n == 0 || n > 128) return std::make_shared<const std::vector<uint8_t>>();
  const std::vector<float> red = channel(redCurve, n, alpha), green = channel(greenCurve, n, alpha),
                           blue = channel(blueCurve, n, alpha);
  auto cube = std::make_shared<std::vector<uint8_t>>(16 * n * n * n);
  float* cell = reinterpret_cast<float*>(cube->data());
  for (uint64_t b = 0; b < n; ++b)
    for (uint64_t g = 0; g < n; ++g)
      for (uint64_t r = 0; r < n; ++r, cell += 4) {
        const float values[4] = {red[r], green[g], blue[b], 1.0f};
        std::memcpy(cell, values, sizeof values);
      }
  return cube;
}

void CACVObject::encodeWithCoder(BVKeyedArchiver& coder) const {
  coder.encodeObject(URL_ ? Value(*URL_) : Value(), "URL");
  coder.encodeObject(data_ ? Value{{"$data", BVBase64Encode(data_->data(), data_->size())}} : Value(), "data");
  coder.encodeObject(std::static_pointer_cast<const BVCoding>(RGBCurve_), "RGBCurve");
  coder.encodeObject(std::static_pointer_cast<const BVCoding>(redCurve_), "redCurve");
  coder.encodeObject(std::static_pointer_cast<const BVCoding>(greenCurve_), "greenCurve");
  coder.encodeObject(std::static_pointer_cast<const BVCoding>(blueCurve_), "blueCurve");
}

CACVObjectRef CACVObject::initWithCoder(BVKeyedUnarchiver& coder) {
  auto made = std::make_shared<CACVObject>();
  if (Value url = coder.decodeObject("URL"); url.is_string()) made->URL_ = url.get<std::string>();
  const Value stored = coder.decodeObject("data");
  if (const Value* data = BVMember(stored, "$data"); data && data->is_string()) {
    if (auto bytes = BVBase64Decode(data->get<std::string>()))
      made->data_ = std::make_shared<const std::vector<uint8_t>>(std::move(*bytes));
  }
  made->RGBCurve_ = coder.decodeObjectOfClass<CColorCurve>("RGBCurve");
  made->redCurve_ = coder.decodeObjectOfClass<CColorCurve>("redCurve");
  made->greenCurve_ = coder.decodeObjectOfClass<CColorCurve>("greenCurve");
  made->blueCurve_ = coder.decodeObjectOfClass<CColorCurve>("blueCurve");
  return made;
}

void CACVObject::registerCodingClass() {
  CColorCurve::registerCodingClass();
  BVKeyedUnarchiver::registerClass(
      "CACVObject", [](BVKeyedUnarchiver& coder) { return std::const_pointer_cast<CACVObject>(initWithCoder(coder)); });
}

}  // namespace brenvia
