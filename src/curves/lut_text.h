#pragma once

// Colour cubes from lookup-table text: the 32 x 32 x 32 table files that curves filters name, and
// 3-D ".cube" files as grading tools write them.

#include "curves/data_scanner.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace brenvia {

// The cells of a lookup-table text file, faded towards the identity cube by `alpha`: 32^3 cells of
// float (red, green, blue, 1), red varying fastest. Data lines are the lines that are not empty
// and do not start with "#", a blank or a letter; each holds red, green and blue in 0...1 split by
// single blanks. A missing or short line logs two lines naming `fileName` and leaves its cell clear.
BVData BVLUTTextCube(std::string_view text, float alpha, std::string_view fileName);

// A 3-D ".cube" table: LUT_3D_SIZE n (2...128), optional TITLE, DOMAIN_MIN and DOMAIN_MAX (or
// LUT_3D_INPUT_RANGE), "#" comments, then n^3 lines of red, green and blue, red varying fastest.
struct BVCubeLUT {
  std::string title;
  uint32_t dimension = 0;
  std::array<float, 3> domainMin{0, 0, 0}, domainMax{1, 1, 1};
  BVData cube;  // n^3 cells of float (red, green, blue, 1), the layout of the engine's colour cube
};

inline constexpr uint32_t kBVCubeLUTMaxDimension = 128;

// The table, or nothing with one log line "[BVCubeLUT] Could not read `<name>`: <reason>" for
// 1-D tables, missing or impossible sizes, malformed lines and a wrong number of data lines.
std::optional<BVCubeLUT> BVCubeLUTRead(std::string_view text, std::string_view name);
std::optional<BVCubeLUT> BVCubeLUTReadFile(const std::string& path);

// The table as a cube over colours 0...1 (resampled when its domain is another), faded towards
// the identity by alpha as lookup-table text is.
BVData BVCubeLUTUnitCube(const BVCubeLUT& lut, float alpha);

}  // namespace brenvia
