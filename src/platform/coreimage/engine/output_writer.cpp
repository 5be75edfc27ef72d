#include "platform/coreimage/engine/output_writer.h"

#include "platform/coreimage/engine/simd_output.h"

#include <cmath>
#include <cstring>

namespace brenvia::ci {
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
  // The vector byte writer applies the common linear-to-sRGB curve itself.
  bool bytes = target_.format == OutputFormat::RGBA8 || target_.format == OutputFormat::ARGB8 ||
               target_.format == OutputFormat::BGRA8;
  if (!(bytes && linearToSRGB_)) convertColor(s);
  const int n = s.n;
  switch (target_.format) {
    case OutputFormat::RGBA8:
    case OutputFormat::ARGB8:
    case OutputFormat::BGRA8: {
      ByteOrder order = target_.format == OutputFormat::ARGB8   ? ByteOrder{1, 2, 3, 0}
                        : target_.format == OutputFormat::BGRA8 ? ByteOrder{2, 1, 0, 3}
                                                                : ByteOrder{0, 1, 2, 3};
      writeBytes(s.r, s.g, s.b, s.a, n, linearToSRGB_, order, dst);
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
