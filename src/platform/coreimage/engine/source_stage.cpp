#include "platform/coreimage/engine/color_conversion.h"
#include "platform/coreimage/engine/stage.h"
#include "platform/coreimage/engine/vector_clones.h"

#include <cmath>
#include <cstring>
#include <vector>

namespace brenvia::ci {
namespace {

// 8-bit RGB, the hottest source loop as JPEG files decode to it: through the table, or, when the
// table is the plain scale, by a division the compiler vectorises (it rounds exactly as the table).
BV_VECTOR_CLONES void rgb8Span(const uint8_t* p, const float* lut, int n, float* r, float* g, float* b, float* a) {
  for (int i = 0; i < n; ++i) {
    r[i] = lut[p[3 * i]], g[i] = lut[p[3 * i + 1]], b[i] = lut[p[3 * i + 2]], a[i] = 1;
  }
}

BV_VECTOR_CLONES void rgb8ScaledSpan(const uint8_t* p, int n, float* r, float* g, float* b, float* a) {
  for (int i = 0; i < n; ++i) {
    r[i] = float(p[3 * i]) / 255.0f, g[i] = float(p[3 * i + 1]) / 255.0f, b[i] = float(p[3 * i + 2]) / 255.0f, a[i] = 1;
  }
}

// Reads rows of a bitmap into working-space spans. 8- and 16-bit components go through a table
// that holds the decoded curve (or a plain scale), so the bitmap stays in its compact form.
class SourceStage final : public Stage {
 public:
  SourceStage(CGImageRef bitmap, const RenderEnv& env) : bitmap_(std::move(bitmap)) {
    const CGColorSpace* from = bitmap_->colorSpace().get();
    conversion_ = env.managed() ? ColorConversion(from, env.workingSpace.get()) : ColorConversion();
    CGPixelFormat f = bitmap_->format();
    premultiplied_ = f == CGPixelFormat::RGBA8Premultiplied || f == CGPixelFormat::BGRA8Premultiplied ||
                     f == CGPixelFormat::RGBAFloatPremultiplied;
    sixteen_ = f == CGPixelFormat::Gray16 || f == CGPixelFormat::RGB16 || f == CGPixelFormat::RGBA16;
    int levels = sixteen_ ? 65536 : 256;
    // Straight-alpha (and opaque) colour can be decoded by table; premultiplied colour must be
    // unpremultiplied first, so its table is the plain scale.
    bool tableDecodes = conversion_.decodes() && !premultiplied_;
    plainScale_ = !tableDecodes && !sixteen_;
    lut_.resize(size_t(levels));
    for (int i = 0; i < levels; ++i) {
      double v = double(i) / (levels - 1);
      lut_[size_t(i)] = float(tableDecodes ? color::srgbDecode(v) : v);
    }
    afterTable_ = !conversion_.isIdentity() && (premultiplied_ || conversion_.matrix() || conversion_.encodes());
  }

  void row(Span& s, TileState&) const override {
    const int64_t w = int64_t(bitmap_->width()), h = int64_t(bitmap_->height());
    if (s.y < 0 || s.y >= h) {
      s.clear();
      return;
    }
    int from = int(std::clamp<int64_t>(-s.x, 0, s.n));
    int to = int(std::clamp<int64_t>(w - s.x, from, s.n));
    s.clear(0, from);
    s.clear(to, s.n);
    if (to <= from) return;
    const uint8_t* row = bitmap_->row(size_t(h - 1 - s.y));
    int64_t first = s.x + from;
    convert(row, first, from, to - from, s);
    if (afterTable_) finish(s, from, to);
  }

 private:
  void convert(const uint8_t* row, int64_t first, int at, int n, Span& s) const {
    const float* lut = lut_.data();
    float* r = s.r + at;
    float* g = s.g + at;
    float* b = s.b + at;
    float* a = s.a + at;
    switch (bitmap_->format()) {
      case CGPixelFormat::Gray8: {
        const uint8_t* p = row + first;
        for (int i = 0; i < n; ++i) r[i] = g[i] = b[i] = lut[p[i]], a[i] = 1;
        break;
      }
      case CGPixelFormat::RGB8:
        if (plainScale_) {
          rgb8ScaledSpan(row + first * 3, n, r, g, b, a);
        } else {
          rgb8Span(row + first * 3, lut, n, r, g, b, a);
        }
        break;
      case CGPixelFormat::RGBA8:
      case CGPixelFormat::RGBA8Premultiplied: {
        const uint8_t* p = row + first * 4;
        bool straight = !premultiplied_;
        for (int i = 0; i < n; ++i) {
          float al = p[4 * i + 3] * (1.0f / 255);
          float k = straight ? al : 1.0f;
          r[i] = lut[p[4 * i]] * k, g[i] = lut[p[4 * i + 1]] * k, b[i] = lut[p[4 * i + 2]] * k, a[i] = al;
        }
        break;
      }
      case CGPixelFormat::BGRA8Premultiplied: {
        const uint8_t* p = row + first * 4;
        for (int i = 0; i < n; ++i) {
          b[i] = lut[p[4 * i]], g[i] = lut[p[4 * i + 1]], r[i] = lut[p[4 * i + 2]], a[i] = p[4 * i + 3] * (1.0f / 255);
        }
        break;
      }
      case CGPixelFormat::Gray16: {
        const uint16_t* p = reinterpret_cast<const uint16_t*>(row) + first;
        for (int i = 0; i < n; ++i) r[i] = g[i] = b[i] = lut[p[i]], a[i] = 1;
        break;
      }
      case CGPixelFormat::RGB16: {
        const uint16_t* p = reinterpret_cast<const uint16_t*>(row) + first * 3;
        for (int i = 0; i < n; ++i) r[i] = lut[p[3 * i]], g[i] = lut[p[3 * i + 1]], b[i] = lut[p[3 * i + 2]], a[i] = 1;
        break;
      }
      case CGPixelFormat::RGBA16: {
        const uint16_t* p = reinterpret_cast<const uint16_t*>(row) + first * 4;
        for (int i = 0; i < n; ++i) {
          float al = p[4 * i + 3] * (1.0f / 65535);
          r[i] = lut[p[4 * i]] * al, g[i] = lut[p[4 * i + 1]] * al, b[i] = lut[p[4 * i + 2]] * al, a[i] = al;
        }
        break;
      }
      case CGPixelFormat::RGBAFloatPremultiplied: {
        const float* p = reinterpret_cast<const float*>(row) + first * 4;
        for (int i = 0; i < n; ++i) r[i] = p[4 * i], g[i] = p[4 * i + 1], b[i] = p[4 * i + 2], a[i] = p[4 * i + 3];
        break;
      }
    }
  }

  // The conversion steps the table could not do: on unpremultiplied colour, then premultiplied again.
  void finish(Span& s, int from, int to) const {
    for (int i = from; i < to; ++i) {
      float al = s.a[i];
      if (al <= 0) continue;
      std::array<float, 3> c{s.r[i] / al, s.g[i] / al, s.b[i] / al};
      c = premultiplied_ ? conversion_.apply(c) : conversion_.applyAfterDecode(c);
      s.r[i] = c[0] * al, s.g[i] = c[1] * al, s.b[i] = c[2] * al;
    }
  }

  CGImageRef bitmap_;
  ColorConversion conversion_;
  std::vector<float> lut_;
  bool premultiplied_ = false, sixteen_ = false, afterTable_ = false, plainScale_ = false;
};

}  // namespace

std::unique_ptr<Stage> makeSourceStage(const CGImageRef& bitmap, const RenderEnv& env) {
  return std::make_unique<SourceStage>(bitmap, env);
}

}  // namespace brenvia::ci
