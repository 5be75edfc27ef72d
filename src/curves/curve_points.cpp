#include "curves/curve_points.h"

#include "curves/text_fields.h"
#include "platform/foundation/log.h"

#include <string>

namespace brenvia {
namespace {

const std::string kParseError = "[BVCurvesFilter] Error parsing curve input: `";

}  // namespace

BVPointList BVCurvePointsFromString(std::string_view text) {
  BVPointList points;
  if (text.empty()) return points;
  for (std::string_view component : BVComponentsSeparatedBy(text, ',')) {
    const size_t open = component.find('{'), close = component.find('}');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open) {
      BVLog(kParseError + std::string(component) +
            "`, a curve point may be missed and output may be unexpected (missing or incorrect syntax for braces {}).");
      continue;
    }
    const std::string_view inside = component.substr(open + 1, close - open - 1);
    const std::vector<std::string_view> values = BVComponentsSeparatedBy(inside, ' ');
    if (values.size() != 2) {
      BVLog(kParseError + std::string(inside) +
            "`, a curve point may be missed and output may be unexpected (could not read exactly two values for x and "
            "y).");
      continue;
    }
    points.push_back({BVFloatValue(values[0]), BVFloatValue(values[1])});
  }
  return points;
}

}  // namespace brenvia
