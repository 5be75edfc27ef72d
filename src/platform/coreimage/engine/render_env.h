#pragma once

#include "platform/graphics/color_space.h"

#include <array>

namespace brenvia {
class CIColor;
}

namespace brenvia::ci {

// How colours enter and leave the working space of one render.
struct RenderEnv {
  // Null: no colour management; values are used exactly as stored.
  CGColorSpaceRef workingSpace;
  // Colour cubes interpolate within the tetrahedron around a colour instead of the whole cell, so
  // neutral greys read only the cube's grey axis.
  bool tetrahedralCubes = false;

  bool managed() const { return workingSpace != nullptr; }
  bool workingIsLinear() const { return !workingSpace || workingSpace->transfer() == CGColorSpace::Transfer::Linear; }

  // A colour as a premultiplied working-space pixel.
  std::array<float, 4> pixel(const CIColor& color) const;
  // Unpremultiplied rgb from `space` (null = untagged) to the working space.
  std::array<double, 3> toWorking(std::array<double, 3> rgb, const CGColorSpace* space) const;
  // Unpremultiplied working-space rgb to `space`.
  std::array<double, 3> fromWorking(std::array<double, 3> rgb, const CGColorSpace* space) const;
};

}  // namespace brenvia::ci
