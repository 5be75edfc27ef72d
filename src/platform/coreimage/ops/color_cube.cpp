#include "platform/coreimage/engine/color_conversion.h"
#include "platform/coreimage/engine/vector_clones.h"
#include "platform/coreimage/ops/op_support.h"
#include "platform/foundation/log.h"

#include <algorithm>
#include <cstring>
#include <sstream>
#include <vector>

namespace brenvia::ci {
namespace {

// One cube cell, premultiplied RGBA. GCC/Clang vector types let the eight corner reads and the
// seven interpolations of a lookup run four channels at a time.
using Cell = float __attribute__((vector_size(16)));

// A conversion between two spaces with table-driven curves, applied to unpremultiplied planes.
class PlaneConversion {
 public:
  PlaneConversion(const CGColorSpace* from, const CGColorSpace* to) : c_(from, to) {}
  bool isIdentity() const { return c_.isIdentity(); }

  void apply(float* r, float* g, float* b, int n) const {
    for (int i = 0; i < n; ++i) {
      float x = r[i], y = g[i], z = b[i];
      if (c_.decodes()) x = srgbDecodeFast(x), y = srgbDecodeFast(y), z = srgbDecodeFast(z);
      if (const auto& m = c_.matrix()) {
        const auto& k = *m;
        float u = k[0] * x + k[1] * y + k[2] * z, v = k[3] * x + k[4] * y + k[5] * z;
        z = k[6] * x + k[7] * y + k[8] * z;
        x = u, y = v;
      }
      if (c_.encodes()) x = srgbEncodeFast(x), y = srgbEncodeFast(y), z = srgbEncodeFast(z);
      r[i] = x, g[i] = y, b[i] = z;
    }
  }

 private:
  ColorConversion c_;
};

void unpremultiply(Span& s) {
  for (int i = 0; i < s.n; ++i) {
    float k = unpremultiplyFactor(s.a[i]);
    s.r[i] *= k, s.g[i] *= k, s.b[i] *= k;
  }
}

// Trilinear (or, when the render asks, tetrahedral) lookup of unpremultiplied colour in an n³
// table of premultiplied cells (red index fastest), the result scaled by the pixel's alpha.
// Without extrapolation the colour is clamped to [0, 1]; with it the edge cells' gradients
// continue outside. With a colour space the colour is converted into it for the lookup and the
// result converted back.
class ColorCubeKernel final : public PointKernel {
 public:
  ColorCubeKernel(std::string name, int n, std::vector<Cell> cells, bool extrapolate, CGColorSpaceRef space)
      : name_(std::move(name)), n_(n), cells_(std::move(cells)), extrapolate_(extrapolate), space_(std::move(space)) {}
  std::string_view name() const override { return name_; }

  void apply(Span& s, std::span<const Span* const>, const RenderEnv& env) const override {
    alignas(64) float k[kSpan] = {};
    if (!space_ || !env.managed()) {
      for (int i = 0; i < s.n; ++i) k[i] = unpremultiplyFactor(s.a[i]);
      lookup(s, k, env.tetrahedralCubes);
      return;
    }
    const PlaneConversion into(env.workingSpace.get(), space_.get()), back(space_.get(), env.workingSpace.get());
    unpremultiply(s);
    if (!into.isIdentity()) into.apply(s.r, s.g, s.b, s.n);
    std::fill_n(k, s.n, 1.0f);
    lookup(s, k, env.tetrahedralCubes);
    if (!back.isIdentity()) {
      unpremultiply(s);
      back.apply(s.r, s.g, s.b, s.n);
      for (int i = 0; i < s.n; ++i) s.r[i] *= s.a[i], s.g[i] *= s.a[i], s.b[i] *= s.a[i];
    }
  }

 private:
  // Cell coordinate and fraction of one channel of colour in[i]·k[i], the cell offset added to
  // `cell` with the given stride; NaN lands on cell 0.
  void coordinates(const float* in, const float* k, int n, int32_t stride, float* fraction, int32_t* cell) const {
    const float top = float(n_ - 1), last = float(n_ - 2);
    if (extrapolate_) {
      for (int i = 0; i < n; ++i) {
        float q = in[i] * k[i] * top;
        int32_t c = int32_t(std::max(0.0f, std::min(q, last)));
        fraction[i] = q - float(c);
        cell[i] += c * stride;
      }
    } else {
      for (int i = 0; i < n; ++i) {
        float q = std::max(0.0f, std::min(in[i] * k[i], 1.0f)) * top;
        int32_t c = std::min(int32_t(q), n_ - 2);
        fraction[i] = q - float(c);
        cell[i] += c * stride;
      }
    }
  }

  // Replaces the colour by the table's value for in·k, scaled by alpha. Built for AVX2 as well,
  // picked at load time: three-operand forms and broadcasts make the lookup about a third faster.
  BV_AVX2_CLONES void lookup(Span& s, const float* k, bool tetrahedral) const {
    alignas(64) float fr[kSpan], fg[kSpan], fb[kSpan];
    alignas(64) int32_t cell[kSpan] = {};
    const int32_t dg = n_, db = n_ * n_;
    coordinates(s.r, k, s.n, 1, fr, cell);
    coordinates(s.g, k, s.n, dg, fg, cell);
    coordinates(s.b, k, s.n, db, fb, cell);

    const Cell* cells = cells_.data();
    for (int i = 0; i < s.n; ++i) {
      const Cell* p = cells + cell[i];
      const float a = s.a[i];
      const Cell t = (tetrahedral ? tetrahedron(p, fr[i], fg[i], fb[i], dg, db) : trilinear(p, fr[i], fg[i], fb[i], dg, db)) *
                     Cell{a, a, a, a};
      s.r[i] = t[0], s.g[i] = t[1], s.b[i] = t[2], s.a[i] = t[3];
    }
  }

  static Cell splat(float v) { return Cell{v, v, v, v}; }

  static Cell trilinear(const Cell* p, float r, float g, float b, int32_t dg, int32_t db) {
    const Cell wr = splat(r), wg = splat(g), wb = splat(b);
    const Cell c00 = p[0] + (p[1] - p[0]) * wr;
    const Cell c10 = p[dg] + (p[dg + 1] - p[dg]) * wr;
    const Cell c01 = p[db] + (p[db + 1] - p[db]) * wr;
    const Cell c11 = p[db + dg] + (p[db + dg + 1] - p[db + dg]) * wr;
    const Cell c0 = c00 + (c10 - c00) * wg, c1 = c01 + (c11 - c01) * wg;
    return c0 + (c1 - c0) * wb;
  }

  // The cell splits into six tetrahedra along its grey diagonal; the colour is a weighted sum of
  // the four corners of the one that holds it, heaviest first.
  static Cell tetrahedron(const Cell* p, float r, float g, float b, int32_t dg, int32_t db) {
    const Cell c000 = p[0], c111 = p[1 + dg + db];
    if (r > g) {
      if (g > b) return splat(1 - r) * c000 + splat(r - g) * p[1] + splat(g - b) * p[1 + dg] + splat(b) * c111;
      if (r > b) return splat(1 - r) * c000 + splat(r - b) * p[1] + splat(b - g) * p[1 + db] + splat(g) * c111;
      return splat(1 - b) * c000 + splat(b - r) * p[db] + splat(r - g) * p[1 + db] + splat(g) * c111;
    }
    if (b > g) return splat(1 - b) * c000 + splat(b - g) * p[db] + splat(g - r) * p[dg + db] + splat(r) * c111;
    if (b > r) return splat(1 - g) * c000 + splat(g - b) * p[dg] + splat(b - r) * p[dg + db] + splat(r) * c111;
    return splat(1 - g) * c000 + splat(g - r) * p[dg] + splat(r - b) * p[1 + dg] + splat(b) * c111;
  }

  std::string name_;
  int32_t n_;
  std::vector<Cell> cells_;
  bool extrapolate_;
  CGColorSpaceRef space_;
};

std::string numberText(double v) {
  std::ostringstream out;
  out << v;
  return out.str();
}

// Null (with a log line) unless the data holds exactly n³ cells of four float32 values.
CIImageRef buildCube(const CIFilter& f, const std::string& name, CGColorSpaceRef space) {
  CIImageRef input = f.image("inputImage");
  if (!input) return nullptr;
  const double dimension = f.number("inputCubeDimension");
  if (!(dimension >= 2 && dimension <= 128)) {
    BVLog("[" + name + "] Cube dimension " + numberText(dimension) + " is outside 2...128.");
    return nullptr;
  }
  const int n = int(dimension);
  const CIData data = f.data("inputCubeData");
  const size_t bytes = data ? data->size() : 0, cellCount = size_t(n) * size_t(n) * size_t(n);
  if (bytes != cellCount * sizeof(Cell)) {
    BVLog("[" + name + "] Cube data of " + std::to_string(bytes) + " bytes does not match dimension " +
          std::to_string(n) + ".");
    return nullptr;
  }
  std::vector<Cell> cells(cellCount);
  std::memcpy(cells.data(), data->data(), bytes);
  auto kernel =
      std::make_shared<ColorCubeKernel>(name, n, std::move(cells), f.boolean("inputExtrapolate"), std::move(space));
  return CIImage::makePoint(std::move(kernel), {input}, input->extent());
}

std::vector<CIInputSpec> cubeInputs() {
  return {imageInput(), numberInput("inputCubeDimension", 2, 2, 128), dataInput("inputCubeData"),
          numberInput("inputExtrapolate", false)};
}

}  // namespace

void registerColorCube() {
  CIFilter::registerOperation("CIColorCube", {"Color Cube", builtinCategories({kCICategoryColorEffect}), cubeInputs()},
                              [](const CIFilter& f) { return buildCube(f, "CIColorCube", nullptr); });
}

void registerColorCubeWithColorSpace() {
  std::vector<CIInputSpec> inputs = cubeInputs();
  inputs.push_back({"inputColorSpace", "NSObject", {}, {}, {}});
  CIFilter::registerOperation(
      "CIColorCubeWithColorSpace",
      {"Color Cube with ColorSpace", builtinCategories({kCICategoryColorEffect}), std::move(inputs)},
      [](const CIFilter& f) { return buildCube(f, "CIColorCubeWithColorSpace", f.colorSpace("inputColorSpace")); });
}

}  // namespace brenvia::ci
