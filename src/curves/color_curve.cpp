#include "curves/color_curve.h"

#include <cmath>
#include <cstdio>

namespace brenvia {
namespace {

// v rounded half away from zero, keeping only the low eight bits: 256 becomes 0, -1 becomes 255.
// Values that are not numbers give 0.
uint8_t byteOf(double v) {
  double r = std::round(v);
  if (!std::isfinite(r) || std::fabs(r) > 9.0e15) return 0;
  return static_cast<uint8_t>(static_cast<int64_t>(r) & 0xff);
}

// Writes entry i when it is one of the table's 256.
void put(std::array<uint8_t, 256>& table, double i, uint8_t value) {
  if (i >= 0 && i < 256) table[static_cast<size_t>(i)] = value;
}

bool isIdentity(const std::array<uint8_t, 256>& table) {
  for (size_t i = 0; i < 256; ++i)
    if (table[i] != i) return false;
  return true;
}

// The byte table of a point list: straight lines between its points, from q at level 0.
std::array<uint8_t, 256> tableOf(const BVPointList& list, double firstY) {
  std::array<uint8_t, 256> table{};
  double p = 0, q = firstY;
  for (const CGPoint& point : list) {
    const double x = point.x, y = point.y;
    if (p <= x && x - p <= kBVMaxCurveSpan) {
      for (double c = p; c <= x; c += 1) put(table, std::trunc(c), byteOf(q + (y - q) * ((c - p) / (x - p))));
    }
    put(table, std::round(x), byteOf(y));
    p = x;
    q = y;
  }
  for (double c = std::max(p, -1.0); c < 256; c += 1) put(table, std::trunc(c), byteOf(q));
  return table;
}

Value encodedPoints(const BVPointList& points) {
  Value list = Value::array();
  for (const CGPoint& p : points) list.push_back(NSStringFromCGPoint(p));
  return list;
}

BVPointList decodedPoints(const Value& list) {
  BVPointList points;
  if (!list.is_array()) return points;
  for (const Value& entry : list)
    if (entry.is_string()) points.push_back(CGPointFromString(entry.get<std::string>()));
  return points;
}

}  // namespace

CColorCurveRef CColorCurve::initWithName(std::optional<std::string> name, BVPointList points,
                                         CColorCurveRef masterCurve) {
  auto made = std::make_shared<CColorCurve>();
  made->name_ = std::move(name);
  made->points_ = std::move(points);
  made->masterCurve_ = std::move(masterCurve);
  return made;
}

const BVPointList& CColorCurve::interpolatedPoints() {
  if (interpolatedPoints_) return *interpolatedPoints_;
  BVPointList inner = PointsInCurve(points_);
  BVPointList list;
  if (!inner.empty()) {
    const double first = inner.front().x, last = inner.back().x;
    if (first != 0)
      for (double x = 0; x < first && x <= kBVMaxCurveSpan; x += 1) list.push_back({x, 0});
    list.insert(list.end(), inner.begin(), inner.end());
    if (last != 255.0)
      for (double x = last + 1; x <= 255.0 && x - last <= kBVMaxCurveSpan; x += 1) list.push_back({x, last});
  }
  interpolatedPoints_ = std::move(list);
  return *interpolatedPoints_;
}

const BVPointList& CColorCurve::interpolatedPointsWithMasterInfluence() {
  if (interpolatedPointsWithMasterInfluence_) return *interpolatedPointsWithMasterInfluence_;
  BVPointList list = interpolatedPoints();
  if (masterCurve_ && !masterCurve_->isEmpty()) {
    const BVPointList& master = masterCurve_->interpolatedPoints();
    for (size_t k = 0; k < list.size() && k < master.size(); ++k) list[k].y += master[k].y - master[k].x;
  }
  interpolatedPointsWithMasterInfluence_ = std::move(list);
  return *interpolatedPointsWithMasterInfluence_;
}

const std::array<uint8_t, 256>& CColorCurve::LUT() {
  if (LUT_) return *LUT_;
  std::array<uint8_t, 256> table = tableOf(interpolatedPoints(), points_.empty() ? 0.0 : points_.front().y);
  if (masterCurve_) {
    const std::array<uint8_t, 256>& master = masterCurve_->LUT();
    for (uint8_t& entry : table) entry = master[entry];
  }
  identity_ = isIdentity(table);
  LUT_ = table;
  return *LUT_;
}

CGImageRef CColorCurve::CGImage() {
  if (image_) return image_;
  const std::array<uint8_t, 256>& table = LUT();
  std::shared_ptr<uint8_t[]> bytes(new uint8_t[256]);
  std::copy(table.begin(), table.end(), bytes.get());
  image_ = CGImage::create(256, 1, 256, CGPixelFormat::Gray8, CGColorSpaceCreateDeviceGray(), std::move(bytes));
  return image_;
}

bool CColorCurve::isEmpty() const {
  return points_.size() == 2 && points_[0] == CGPoint{0, 0} && points_[1] == CGPoint{255, 255};
}

std::string CColorCurve::description() const {
  char self[64];
  std::snprintf(self, sizeof self, "<CColorCurve: %p>", static_cast<const void*>(this));
  return std::string(self) + " (" + name_.value_or("(null)") + ")";
}

void CColorCurve::encodeWithCoder(BVKeyedArchiver& coder) const {
  coder.encodeObject(name_ ? Value(*name_) : Value(), "name");
  coder.encodeObject(encodedPoints(points_), "points");
  coder.encodeObject(std::static_pointer_cast<const BVCoding>(masterCurve_), "masterCurve");
}

CColorCurveRef CColorCurve::initWithCoder(BVKeyedUnarchiver& coder) {
  Value name = coder.decodeObject("name");
  return initWithName(name.is_string() ? std::optional(name.get<std::string>()) : std::nullopt,
                      decodedPoints(coder.decodeObject("points")), coder.decodeObjectOfClass<CColorCurve>("masterCurve"));
}

void CColorCurve::registerCodingClass() {
  BVKeyedUnarchiver::registerClass("CColorCurve", [](BVKeyedUnarchiver& coder) { return initWithCoder(coder); });
}

BVCurve::BVCurve(const BVPointList& points, std::shared_ptr<const BVCurve> masterCurve, BVCurveOptions options)
    : masterCurve_(std::move(masterCurve)) {
  const double scale = options & BVCurveOptionNormalized ? 255.0 : 1.0;
  if (options & BVCurveOptionEndPoints) points_.push_back({0, 0});
  for (const CGPoint& p : points) points_.push_back({p.x * scale, p.y * scale});
  if (options & BVCurveOptionEndPoints) points_.push_back({255, 255});
  if (points_.empty()) points_ = {{0, 0}, {255, 255}};
}

std::string BVCurve::description() const {
  std::string text;
  for (const CGPoint& p : points_) text += (text.empty() ? "" : ", ") + NSStringFromCGPoint(p);
  return text;
}

BVCurve BVCurve::copy() const {
  return BVCurve(points_, masterCurve_ ? std::make_shared<const BVCurve>(masterCurve_->copy()) : nullptr, 0);
}

}  // namespace brenvia
