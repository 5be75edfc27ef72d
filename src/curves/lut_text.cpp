#include "curves/lut_text.h"

#include "curves/text_fields.h"

#include "platform/foundation/file_reading.h"
#include "platform/foundation/log.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace brenvia {
namespace {

constexpr int kLUTTextDimension = 32;

// The text's lines, split at line feeds and carriage returns.
std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  size_t start = 0;
  for (size_t i = 0; i <= text.size(); ++i) {
    if (i == text.size() || text[i] == '\n' || text[i] == '\r') {
      lines.push_back(text.substr(start, i - start));
      start = i + 1;
    }
  }
  return lines;
}

// A first character that is a letter marks a header line. Characters beyond ASCII are taken as
// letters: no number starts with one.
bool startsWithLetter(std::string_view line) {
  auto c = static_cast<unsigned char>(line.front());
  return std::isalpha(c) || c >= 0x80;
}

bool isLUTDataLine(std::string_view line) {
  return !line.empty() && line.front() != '#' && line.front() != ' ' && !startsWithLetter(line);
}

std::string joined(const std::vector<std::string_view>& parts) {
  std::string text = "(";
  for (size_t i = 0; i < parts.size(); ++i) text.append(i ? ", \"" : "\"").append(parts[i]).append("\"");
  return text + ")";
}

// Value v of index i of an n-cell axis faded towards the identity by the strength s (not clamped).
float fadedTowardsIdentity(float v, int i, int n, float s) {
  const float u = float(double(i) / double(n - 1));
  if (s == 0) return u;
  if (s == 1) return v;
  return (v - u) * s + u;
}

void putCell(float* cell, float r, float g, float b) {
  const float values[4] = {r, g, b, 1.0f};
  std::memcpy(cell, values, sizeof values);
}

}  // namespace

BVData BVLUTTextCube(std::string_view text, float alpha, std::string_view fileName) {
  std::vector<std::string_view> data;
  for (std::string_view line : linesOf(text))
    if (isLUTDataLine(line)) data.push_back(line);
  const int n = kLUTTextDimension;
  auto cube = std::make_shared<std::vector<uint8_t>>(size_t(16) * n * n * n);
  float* cells = reinterpret_cast<float*>(cube->data());
  auto blend = [alpha](float v, int i) { return fadedTowardsIdentity(v, i, kLUTTextDimension, alpha); };
  size_t next = 0;
  for (int b = 0; b < n; ++b)
    for (int g = 0; g < n; ++g)
      for (int r = 0; r < n; ++r, ++next) {
        std::vector<std::string_view> parts =
            next < data.size() ? BVComponentsSeparatedBy(data[next], ' ') : std::vector<std::string_view>{};
        if (parts.size() < 3) {
          BVLog("[BVCurvesFilter] WARNING: Invalid or incomplete data found in LUT file " + std::string(fileName) +
                " at r: " + std::to_string(r) + " g: " + std::to_string(g) + " b: " + std::to_string(b));
          BVLog("[BVCurvesFilter] --> Data: " + joined(parts));
          continue;
        }
        putCell(cells + 4 * next, blend(BVFloatValue(parts[0]), r), blend(BVFloatValue(parts[1]), g),
                blend(BVFloatValue(parts[2]), b));
      }
  return cube;
}

namespace {

// Reads a .cube text line by line; fails with the reason and the line number.
class CubeReader {
 public:
  explicit CubeReader(std::string_view text) : lines_(linesOf(text)) {}

  bool read(BVCubeLUT& lut, std::string& why) {
    std::vector<float> values;
    for (lineNumber_ = 1; lineNumber_ <= lines_.size(); ++lineNumber_) {
      std::string_view line = trimmed(lines_[lineNumber_ - 1]);
      if (line.empty() || line.front() == '#') continue;
      std::vector<std::string_view> words = wordsOf(line);
      if (!std::isalpha(static_cast<unsigned char>(words[0].front()))) {
        if (!lut.dimension) return fail(why, "data before LUT_3D_SIZE");
        if (!numbers(words, 3, values)) return fail(why, "a data line needs three numbers");
        if (values.size() > size_t(4) * cellCount(lut.dimension)) return fail(why, "more data lines than the size");
        continue;
      }
      if (!values.empty()) return fail(why, "keyword after the data");
      if (!keyword(words, line, lut, why)) return false;
    }
    if (!lut.dimension) return fail(why, "no LUT_3D_SIZE");
    const size_t expected = cellCount(lut.dimension);
    if (values.size() != 4 * expected)
      return fail(why,
                  std::to_string(expected) + " data lines expected, " + std::to_string(values.size() / 4) + " found");
    for (int c = 0; c < 3; ++c)
      if (!(lut.domainMin[c] < lut.domainMax[c])) return fail(why, "DOMAIN_MIN must be below DOMAIN_MAX");
    auto cube = std::make_shared<std::vector<uint8_t>>(values.size() * sizeof(float));
    std::memcpy(cube->data(), values.data(), cube->size());
    lut.cube = std::move(cube);
    return true;
  }

 private:
  static size_t cellCount(uint32_t n) { return size_t(n) * n * n; }

  static std::string_view trimmed(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
    return s;
  }

  static std::vector<std::string_view> wordsOf(std::string_view line) {
    std::vector<std::string_view> words;
    size_t i = 0;
    while (i < line.size()) {
      size_t end = line.find_first_of(" \t", i);
      if (end == std::string_view::npos) end = line.size();
      if (end > i) words.push_back(line.substr(i, end - i));
      i = end + 1;
    }
    return words;
  }

  // Exactly `count` finite numbers after the first `skip` words, appended as a cell (with alpha 1
  // for a colour) to `out`.
  static bool numbers(const std::vector<std::string_view>& words, size_t count, std::vector<float>& out,
                      size_t skip = 0) {
    if (words.size() != skip + count) return false;
    for (size_t i = skip; i < words.size(); ++i) {
      std::string word(words[i]);
      char* end = nullptr;
      float v = std::strtof(word.c_str(), &end);
      if (end != word.c_str() + word.size() || !std::isfinite(v)) return false;
      out.push_back(v);
    }
    if (count == 3 && skip == 0) out.push_back(1.0f);
    return true;
  }

  bool keyword(const std::vector<std::string_view>& words, std::string_view line, BVCubeLUT& lut, std::string& why) {
    const std::string_view key = words[0];
    std::vector<float> v;
    if (key == "TITLE") {
      std::string_view rest = trimmed(line.substr(5));
      if (rest.size() >= 2 && rest.front() == '"' && rest.back() == '"') rest = rest.substr(1, rest.size() - 2);
      lut.title = std::string(rest);
    } else if (key == "LUT_1D_SIZE") {
      return fail(why, "1-D tables are not supported, only 3-D ones");
    } else if (key == "LUT_3D_SIZE") {
      if (!numbers(words, 1, v, 1) || v[0] != std::floor(v[0]) || v[0] < 2 || v[0] > kBVCubeLUTMaxDimension)
        return fail(why, "LUT_3D_SIZE must be a whole number from 2 to 128");
      lut.dimension = uint32_t(v[0]);
    } else if (key == "DOMAIN_MIN" || key == "DOMAIN_MAX") {
      if (!numbers(words, 3, v, 1)) return fail(why, std::string(key) + " needs three numbers");
      std::copy(v.begin(), v.end(), (key == "DOMAIN_MIN" ? lut.domainMin : lut.domainMax).begin());
    } else if (key == "LUT_3D_INPUT_RANGE") {
      if (!numbers(words, 2, v, 1)) return fail(why, "LUT_3D_INPUT_RANGE needs two numbers");
      lut.domainMin.fill(v[0]);
      lut.domainMax.fill(v[1]);
    } else {
      return fail(why, "unknown keyword " + std::string(key));
    }
    return true;
  }

  bool fail(std::string& why, const std::string& reason) const {
    why = reason;
    if (lineNumber_ <= lines_.size()) why += " (line " + std::to_string(lineNumber_) + ")";
    return false;
  }

  std::vector<std::string_view> lines_;
  size_t lineNumber_ = 0;
};

}  // namespace

std::optional<BVCubeLUT> BVCubeLUTRead(std::string_view text, std::string_view name) {
  std::string why;
  BVCubeLUT lut;
  if (CubeReader(text).read(lut, why)) return lut;
  BVLog("[BVCubeLUT] Could not read `" + std::string(name) + "`: " + why);
  return std::nullopt;
}

namespace {

// The table's colour at a point of its own grid coordinates (0 ... n-1 on each axis), trilinear.
std::array<float, 3> sampleCube(const float* cells, int n, const std::array<double, 3>& at) {
  int base[3];
  double f[3];
  for (int c = 0; c < 3; ++c) {
    base[c] = std::min(int(at[c]), n - 2);
    f[c] = at[c] - base[c];
  }
  std::array<float, 3> out{};
  for (int corner = 0; corner < 8; ++corner) {
    double weight = 1;
    size_t index = 0, stride = 1;
    for (int c = 0; c < 3; ++c) {
      const int step = (corner >> c) & 1;
      weight *= step ? f[c] : 1 - f[c];
      index += size_t(base[c] + step) * stride;
      stride *= size_t(n);
    }
    for (int c = 0; c < 3; ++c) out[size_t(c)] += float(weight * cells[4 * index + size_t(c)]);
  }
  return out;
}

}  // namespace

BVData BVCubeLUTUnitCube(const BVCubeLUT& lut, float alpha) {
  const int n = int(lut.dimension);
  const float* source = reinterpret_cast<const float*>(lut.cube->data());
  auto cube = std::make_shared<std::vector<uint8_t>>(*lut.cube);
  float* cells = reinterpret_cast<float*>(cube->data());
  const bool unitDomain =
      lut.domainMin == std::array<float, 3>{0, 0, 0} && lut.domainMax == std::array<float, 3>{1, 1, 1};
  size_t next = 0;
  for (int b = 0; b < n; ++b)
    for (int g = 0; g < n; ++g)
      for (int r = 0; r < n; ++r, ++next) {
        float* cell = cells + 4 * next;
        if (!unitDomain) {
          // The colour of this unit-domain cell is the table's at the same colour within its domain.
          const int index[3] = {r, g, b};
          std::array<double, 3> at;
          for (size_t c = 0; c < 3; ++c) {
            const double colour = double(index[c]) / (n - 1), low = lut.domainMin[c], high = lut.domainMax[c];
            at[c] = std::clamp((colour - low) / (high - low), 0.0, 1.0) * (n - 1);
          }
          const std::array<float, 3> v = sampleCube(source, n, at);
          std::copy(v.begin(), v.end(), cell);
        }
        putCell(cell, fadedTowardsIdentity(cell[0], r, n, alpha), fadedTowardsIdentity(cell[1], g, n, alpha),
                fadedTowardsIdentity(cell[2], b, n, alpha));
      }
  return cube;
}

std::optional<BVCubeLUT> BVCubeLUTReadFile(const std::string& path) {
  std::string error;
  const std::optional<std::string> text = BVReadRegularTextFile(path, kBVMaximumTableFileBytes, error);
  if (!text) {
    BVLog("[BVCubeLUT] Could not read `" + path + "`: " + error);
    return std::nullopt;
  }
  return BVCubeLUTRead(*text, path);
}

}  // namespace brenvia
