#pragma once

#include "curves/curve_interpolation.h"
#include "curves/data_scanner.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace brenvia {

// An ACV file: version, count, then for each curve its points as (y, x), all big-endian.
inline BVData acv(int16_t version, const std::vector<BVPointList>& curves) {
  auto bytes = std::make_shared<std::vector<uint8_t>>();
  auto put = [&](int v) {
    bytes->push_back(uint8_t(uint16_t(v) >> 8));
    bytes->push_back(uint8_t(v));
  };
  put(version);
  put(int(curves.size()));
  for (const auto& points : curves) {
    put(int(points.size()));
    for (const CGPoint& p : points) put(int(p.y)), put(int(p.x));
  }
  return bytes;
}

}  // namespace brenvia
