#pragma once

#include <cstdint>

namespace brenvia {

// How stored pixels are to be turned for display, numbered as the platform's picture orientation
// so that such an orientation is copied as a number.
enum BVImageOrientation : uint8_t {
  BVImageOrientationUp = 0,
  BVImageOrientationDown = 1,
  BVImageOrientationLeft = 2,
  BVImageOrientationRight = 3,
  BVImageOrientationUpMirrored = 4,
  BVImageOrientationDownMirrored = 5,
  BVImageOrientationLeftMirrored = 6,
  BVImageOrientationRightMirrored = 7,
};

}  // namespace brenvia
