#include "curves/lut_text.h"

#include "platform/foundation/log.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
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

std::vector<std::string_view> splitAtBlanks(std::string_view line) {
  std::vector<std::string_view> parts;
  size_t start = 0;
  for (size_t i = 0; i <= line.size(); ++i) {
    if (i == line.size() || line[i] == ' ') {
      parts.push_back(line.substr(start, i - start));
      start = i + 1;
    }
  }
  return parts;
}

// The leading number of the text, or 0.
float floatValue(std::string_view text) {
  std::string copy(text);
  return std::strtof(copy.c_str(), nullptr);
}

std::string joined(const std::vector<std::string_view>& parts) {
  std::string text = "(";
  for (size_t i = 0; i < parts.size(); ++i) text.append(i ? ", \"" : "\"").append(parts[i]).append("\"");
  return text + ")";
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
  // Faded towards the identity value of index i by the strength s (not clamped).
  const float s = alpha;
  auto blend = [s](float v, int i) {
    float u = float(double(i) / 31.0);
    if (s == 0) return u;
    if (s == 1) return v;
    return (v - u) * s + u;
  };
  size_t next = 0;
  for (int b = 0; b < n; ++b)
    for (int g = 0; g < n; ++g)
      for (int r = 0; r < n; ++r, ++next) {
        std::vector<std::string_view> parts = next < data.size() ? splitAtBlanks(data[next]) : std::vector<std::string_view>{};
        if (parts.size() < 3) {
          BVLog("[BVCurvesFilter] WARNING: Invalid or incomplete data found in LUT file " + std::string(fileName) +
                " at r: " + std::to_string(r) + " g: " + std::to_string(g) + " b: " + std::to_string(b));
          BVLog("[BVCurvesFilter] --> Data: " + joined(parts));
          continue;
        }
        putCell(cells + 4 * next, blend(floatValue(parts[0]), r), blend(floatValue(parts[1]), g),
                blend(floatValue(parts[2]), b));
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
      return fail(why, std::to_string(expected) + " data lines expected, " + std::to_string(values.size() / 4) + " found");
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

std::optional<BVCubeLUT> BVCubeLUTReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    BVLog("[BVCubeLUT] Could not read `" + path + "`: cannot open the file");
    return std::nullopt;
  }
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  return BVCubeLUTRead(text, path);
}

}  // namespace brenvia
