// libFuzzer target: point strings of curves recipes, then the curve they make and its byte table.

#include "curves/color_curve.h"
#include "curves/curve_points.h"
#include "platform/foundation/log.h"

#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool quiet = [] {
    brenvia::BVSetLogHandler([](std::string_view) {});
    return true;
  }();
  (void)quiet;
  const brenvia::BVPointList points =
      brenvia::BVCurvePointsFromString(std::string_view(reinterpret_cast<const char*>(data), size));
  const brenvia::BVCurve curve(points, nullptr, 0);
  brenvia::CColorCurve::initWithName(std::nullopt, curve.points(), nullptr)->LUT();
  return 0;
}
