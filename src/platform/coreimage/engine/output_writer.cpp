#include "platform/coreimage/engine/output_writer.h"

#include <cmath>
#include <cstring>

namespace brenvia::ci {
namespace {

inline uint8_t toByte(float v) {
  v = v * 255.0f + 0.5f;
  return v <= 0.0f ? 0 : v >= 255.0f ? 255 : uint8_t(v);
}

}  // namespace

OutputWriter::OutputWriter(const RenderTarget& target, const RenderEnv& env) : target_(target) {
  if (env.managed() && target.colorSpace) conversion_ = ColorConversion(env.workingSpace.get(), target.colorSpace.get());
  linearToSRGB_ = !conversion_.isIdentity() && !conversion_.decodes() && !conversion_.matrix() && conversion_.encodes();
}

// Colour conversion happens on unpremultiplied values, which are premultiplied again afterwards.
void OutputWriter::convertColor(Span& s) const {
  if (conversion_.isIdentity()) return;
  for (int i = 0; i < s.n; ++i) {
    float a = s.a[i];
    if (a <= 0) continue;
    float k = a == 1.0f ? 1.0f : 1.0f / a;
    std::array<float, 3> c{s.r[i] * k, s.g[i] * k, s.b[i] * k};
    if (linearToSRGB_) {
      c = {srgbEncodeFast(c[0]), srgbEncodeFast(c[1]), srgbEncodeFast(c[2])};
    } else {
      c = conversion_.apply(c);
    }
    s.r[i] = c[0] * a, s.g[i] = c[1] * a, s.b[i] = c[2] * a;
  }
}

void OutputWriter::write(Span& s, uint8_t* dst) const {
  convertColor(s);
  const int n = s.n;
  switch (target_.format) {
    case OutputFormat::RGBA8:
    case OutputFormat::ARGB8:
    case OutputFormat::BGRA8: {
      // Integer outputs clamp alpha to [0, 1] and colour to [0, alpha].
      int ri = 0, gi = 1, bi = 2, ai = 3;
      if (target_.format == OutputFormat::ARGB8) ai = 0, ri = 1, gi = 2, bi = 3;
      if (target_.format == OutputFormat::BGRA8) bi = 0, gi = 1, ri = 2, ai = 3;
      for (int i = 0; i < n; ++i) {
        float a = std::clamp(s.a[i], 0.0f, 1.0f);
        uint8_t* p = dst + 4 * i;
        p[ri] = toByte(std::min(s.r[i], a));
        p[gi] = toByte(std::min(s.g[i], a));
        p[bi] = toByte(std::min(s.b[i], a));
        p[ai] = toByte(a);
      }
      break;
    }
    case OutputFormat::RGBAh: {
      auto* p = reinterpret_cast<_Float16*>(dst);
      for (int i = 0; i < n; ++i) {
        p[4 * i] = _Float16(s.r[i]), p[4 * i + 1] = _Float16(s.g[i]);
        p[4 * i + 2] = _Float16(s.b[i]), p[4 * i + 3] = _Float16(s.a[i]);
      }
      break;
    }
    case OutputFormat::RGBAf: {
      auto* p = reinterpret_cast<float*>(dst);
      for (int i = 0; i < n; ++i) p[4 * i] = s.r[i], p[4 * i + 1] = s.g[i], p[4 * i + 2] = s.b[i], p[4 * i + 3] = s.a[i];
      break;
    }
  }
}

size_t bytesPerPixel(OutputFormat f) {
  switch (f) {
    case OutputFormat::RGBAh: return 8;
    case OutputFormat::RGBAf: return 16;
    default: return 4;
  }
}

}  // namespace brenvia::ci
