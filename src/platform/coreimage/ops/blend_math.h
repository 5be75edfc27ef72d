#pragma once

#include "platform/coreimage/engine/span.h"

#include <cmath>
#include <cstring>
#include <initializer_list>

// Blend modes and the equation that composites them on premultiplied pixels:
//   out.rgb = (1 − ab)·cs + (1 − as)·cb + as·ab·B(Cb, Cs),   out.a = as + ab − as·ab
// with B(Cb, Cs) the mode's function of the straight backdrop and source colours.
//
// Every formula is a template over its value type: `float` for single pixels and `Lanes` (four
// floats) for span loops. Conditions are selects, never branches, so a loop over lanes compiles to
// straight SIMD code: under the default floating-point flags g++ keeps loops with floating-point
// conditionals scalar, because the arithmetic it would have to speculate might trap.
namespace brenvia::ci::blend {

using Lanes = float __attribute__((vector_size(16)));
using Mask = int __attribute__((vector_size(16)));
inline constexpr int kLanes = 4;

template <class V>
V splat(float x) {
  return V{} + x;
}
inline float select(bool m, float a, float b) { return m ? a : b; }
inline Lanes select(Mask m, Lanes a, Lanes b) { return m ? a : b; }
template <class V>
V min(V a, V b) {
  return select(a < b, a, b);
}
template <class V>
V max(V a, V b) {
  return select(a > b, a, b);
}
inline float sqrt(float x) { return std::sqrt(x); }
inline Lanes sqrt(Lanes x) {
#if defined(__SSE__)
  return __builtin_ia32_sqrtps(x);
#else
  for (int i = 0; i < kLanes; ++i) x[i] = std::sqrt(x[i]);
  return x;
#endif
}

template <class V>
V load(const float* p);
template <>
inline float load<float>(const float* p) {
  return *p;
}
template <>
inline Lanes load<Lanes>(const float* p) {
  Lanes v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
inline void store(float* p, float v) { *p = v; }
inline void store(float* p, Lanes v) { std::memcpy(p, &v, sizeof v); }

// 1/a where a > 0, else 0: the factor that turns premultiplied colour into straight colour.
template <class V>
V inverseAlpha(V a) {
  V safe = select(a > 0.0f, a, splat<V>(1.0f));
  return select(a > 0.0f, 1.0f / safe, V{});
}

// A denominator that is `d`, or 1 where `d` would be zero.
template <class V>
V nonZero(V d) {
  return select(d == 0.0f, splat<V>(1.0f), d);
}

// The compositing equation for one colour channel, given term = as·ab·B(Cb, Cs).
template <class V>
V composite(V cb, V cs, V ab, V as, V term) {
  return (1.0f - ab) * cs + (1.0f - as) * cb + term;
}

// ---- Separable modes, one colour channel at a time. ----
//
// Each mode gives term(cb, cs, ab, as) = as·ab·B(cb/ab, cs/as) computed on premultiplied values:
// the alphas move into the comparisons and the products, which spares the unpremultiplying and
// most divisions. With both alphas 1 it is B itself (see blendFunction).

// Cb·Cs
struct Multiply {
  template <class V>
  static V term(V cb, V cs, V, V) {
    return cb * cs;
  }
};

// Cb + Cs − Cb·Cs
struct Screen {
  template <class V>
  static V term(V cb, V cs, V ab, V as) {
    return as * cb + ab * cs - cb * cs;
  }
};

// Cs ≤ 0.5 ? 2·Cb·Cs : 1 − 2·(1 − Cb)·(1 − Cs)
struct HardLight {
  template <class V>
  static V term(V cb, V cs, V ab, V as) {
    return select(2.0f * cs <= as, 2.0f * cb * cs, as * ab - 2.0f * (ab - cb) * (as - cs));
  }
};

// Hard light with the roles of backdrop and source exchanged.
struct Overlay {
  template <class V>
  static V term(V cb, V cs, V ab, V as) {
    return HardLight::term(cs, cb, as, ab);
  }
};

// min(Cb, Cs)
struct Darken {
  template <class V>
  static V term(V cb, V cs, V ab, V as) {
    return min(as * cb, ab * cs);
  }
};

// max(Cb, Cs)
struct Lighten {
  template <class V>
  static V term(V cb, V cs, V ab, V as) {
    return max(as * cb, ab * cs);
  }
};

// Cb = 0 ? 0 : Cs ≥ 1 ? 1 : min(1, Cb/(1 − Cs))
struct ColorDodge {
  template <class V>
  static V term(V cb, V cs, V ab, V as) {
    V both = as * ab;
    V dodged = min(both, as * as * cb / nonZero(as - cs));
    return select(cb == 0.0f, V{}, select(cs >= as, both, dodged));
  }
};

// Cb = 1 ? 1 : Cs ≤ 0 ? 0 : 1 − min(1, (1 − Cb)/Cs)
struct ColorBurn {
  template <class V>
  static V term(V cb, V cs, V ab, V as) {
    V both = as * ab;
    V burned = both - min(both, as * as * (ab - cb) / nonZero(cs));
    return select(cb == ab, both, select(cs <= 0.0f, V{}, burned));
  }
};

// Cs ≤ 0.5 ? Cb − (1 − 2Cs)·Cb·(1 − Cb) : Cb + (2Cs − 1)·(D(Cb) − Cb),
// D(x) = x ≤ 0.25 ? ((16x − 12)x + 4)x : √x. D needs the straight backdrop colour.
struct SoftLight {
  template <class V>
  static V term(V cb, V cs, V ab, V as) {
    V straight = cb * inverseAlpha(ab);
    V d =
        select(straight <= 0.25f, ((16.0f * straight - 12.0f) * straight + 4.0f) * straight, sqrt(max(straight, V{})));
    return select(2.0f * cs <= as, as * cb - (as - 2.0f * cs) * cb * (1.0f - straight),
                  as * cb + ab * (2.0f * cs - as) * (d - straight));
  }
};

// |Cb − Cs|
struct Difference {
  template <class V>
  static V term(V cb, V cs, V ab, V as) {
    V d = as * cb - ab * cs;
    return max(d, -d);
  }
};

// Cb + Cs − 2·Cb·Cs
struct Exclusion {
  template <class V>
  static V term(V cb, V cs, V ab, V as) {
    return as * cb + ab * cs - 2.0f * cb * cs;
  }
};

// Cs > 0.5 ? max(Cb, 2Cs − 1) : min(Cb, 2Cs)
struct PinLight {
  template <class V>
  static V term(V cb, V cs, V ab, V as) {
    return select(2.0f * cs > as, max(as * cb, ab * (2.0f * cs - as)), min(as * cb, 2.0f * ab * cs));
  }
};

// max(0, Cb + Cs − 1)
struct LinearBurn {
  template <class V>
  static V term(V cb, V cs, V ab, V as) {
    return max(V{}, as * cb + ab * cs - as * ab);
  }
};

// min(1, Cb + Cs)
struct LinearDodge {
  template <class V>
  static V term(V cb, V cs, V ab, V as) {
    return min(as * ab, as * cb + ab * cs);
  }
};

// max(0, Cb − Cs)
struct Subtract {
  template <class V>
  static V term(V cb, V cs, V ab, V as) {
    return max(V{}, as * cb - ab * cs);
  }
};

// Cs = 0 ? (Cb = 0 ? 0 : 1) : min(1, Cb/Cs): backdrop divided by source.
struct Divide {
  template <class V>
  static V term(V cb, V cs, V ab, V as) {
    V both = as * ab;
    V quotient = min(both, as * as * cb / nonZero(cs));
    return select(cs == 0.0f, select(cb == 0.0f, V{}, both), quotient);
  }
};

// Cs ≤ 0.5 ? (Cs ≤ 0 ? 0 : max(0, 1 − (1 − Cb)/(2·Cs))) : (Cs ≥ 1 ? 1 : min(1, Cb/(2·(1 − Cs)))):
// colour burn with 2·Cs below the middle, colour dodge with 2·Cs − 1 above it.
struct VividLight {
  template <class V>
  static V term(V cb, V cs, V ab, V as) {
    V both = as * ab;
    V burned = max(V{}, both - as * as * (ab - cb) / nonZero(2.0f * cs));
    V dodged = min(both, as * as * cb / nonZero(2.0f * (as - cs)));
    return select(2.0f * cs <= as, select(cs <= 0.0f, V{}, burned), select(cs >= as, both, dodged));
  }
};

// clamp(Cb + 2·Cs − 1, 0, 1): linear burn below the middle, linear dodge above it.
struct LinearLight {
  template <class V>
  static V term(V cb, V cs, V ab, V as) {
    V both = as * ab;
    return min(both, max(V{}, as * cb + 2.0f * ab * cs - both));
  }
};

// B(Cb, Cs) of a separable mode on straight colours.
template <class Mode, class V>
V blendFunction(V cb, V cs) {
  return Mode::term(cb, cs, splat<V>(1.0f), splat<V>(1.0f));
}

// ---- Non-separable modes: apply(Cb, Cs) is B on the whole straight colour. ----

template <class V>
struct Rgb {
  V r, g, b;
};

template <class V>
V lum(const Rgb<V>& c) {
  return 0.3f * c.r + 0.59f * c.g + 0.11f * c.b;
}

// Brings a colour with out-of-gamut components back into [0, 1] keeping its luminosity.
template <class V>
Rgb<V> clipColor(const Rgb<V>& c) {
  V l = lum(c);
  V n = min(min(c.r, c.g), c.b), x = max(max(c.r, c.g), c.b);
  V lowScale = l / nonZero(l - n), highScale = (1.0f - l) / nonZero(x - l);
  auto clip = [&](V v) {
    v = select(n < 0.0f, l + (v - l) * lowScale, v);
    return select(x > 1.0f, l + (v - l) * highScale, v);
  };
  return {clip(c.r), clip(c.g), clip(c.b)};
}

template <class V>
Rgb<V> setLum(const Rgb<V>& c, V l) {
  V d = l - lum(c);
  return clipColor(Rgb<V>{c.r + d, c.g + d, c.b + d});
}

template <class V>
V sat(const Rgb<V>& c) {
  return max(max(c.r, c.g), c.b) - min(min(c.r, c.g), c.b);
}

// Stretches the colour so that max - min = s with its minimum at 0; the middle component keeps
// its relative position. A grey colour becomes black.
template <class V>
Rgb<V> setSat(const Rgb<V>& c, V s) {
  V n = min(min(c.r, c.g), c.b), x = max(max(c.r, c.g), c.b);
  V scale = s / nonZero(x - n);
  return {(c.r - n) * scale, (c.g - n) * scale, (c.b - n) * scale};
}

struct Hue {
  template <class V>
  static Rgb<V> apply(const Rgb<V>& cb, const Rgb<V>& cs) {
    return setLum(setSat(cs, sat(cb)), lum(cb));
  }
};

struct Saturation {
  template <class V>
  static Rgb<V> apply(const Rgb<V>& cb, const Rgb<V>& cs) {
    return setLum(setSat(cb, sat(cs)), lum(cb));
  }
};

struct Color {
  template <class V>
  static Rgb<V> apply(const Rgb<V>& cb, const Rgb<V>& cs) {
    return setLum(cs, lum(cb));
  }
};

struct Luminosity {
  template <class V>
  static Rgb<V> apply(const Rgb<V>& cb, const Rgb<V>& cs) {
    return setLum(cb, lum(cs));
  }
};

// ---- The equation over spans: `io` holds the source and receives the result. ----

// Always inlined: a call per four pixels would cost as much as the blend itself.
template <class Blend, class V>
[[gnu::always_inline]] inline void blendSeparableAt(Span& io, const Span& backdrop, int i) {
  V as = load<V>(io.a + i), ab = load<V>(backdrop.a + i);
  for (auto channel : {&Span::r, &Span::g, &Span::b}) {
    float* s = io.*channel + i;
    V cs = load<V>(s), cb = load<V>(backdrop.*channel + i);
    store(s, composite(cb, cs, ab, as, Blend::term(cb, cs, ab, as)));
  }
  store(io.a + i, as + ab - as * ab);
}

template <class Blend>
[[gnu::always_inline]] inline void blendSeparable(Span& io, const Span& backdrop) {
  const int n = io.n;
  int i = 0;
  for (; i + kLanes <= n; i += kLanes) blendSeparableAt<Blend, Lanes>(io, backdrop, i);
  for (; i < n; ++i) blendSeparableAt<Blend, float>(io, backdrop, i);
}

template <class Blend, class V>
[[gnu::always_inline]] inline void blendNonSeparableAt(Span& io, const Span& backdrop, int i) {
  V as = load<V>(io.a + i), ab = load<V>(backdrop.a + i);
  V toStraightS = inverseAlpha(as), toStraightB = inverseAlpha(ab);
  Rgb<V> cs{load<V>(io.r + i), load<V>(io.g + i), load<V>(io.b + i)};
  Rgb<V> cb{load<V>(backdrop.r + i), load<V>(backdrop.g + i), load<V>(backdrop.b + i)};
  Rgb<V> blended = Blend::apply(Rgb<V>{cb.r * toStraightB, cb.g * toStraightB, cb.b * toStraightB},
                                Rgb<V>{cs.r * toStraightS, cs.g * toStraightS, cs.b * toStraightS});
  V both = as * ab;
  store(io.r + i, composite(cb.r, cs.r, ab, as, both * blended.r));
  store(io.g + i, composite(cb.g, cs.g, ab, as, both * blended.g));
  store(io.b + i, composite(cb.b, cs.b, ab, as, both * blended.b));
  store(io.a + i, as + ab - as * ab);
}

template <class Blend>
[[gnu::always_inline]] inline void blendNonSeparable(Span& io, const Span& backdrop) {
  const int n = io.n;
  int i = 0;
  for (; i + kLanes <= n; i += kLanes) blendNonSeparableAt<Blend, Lanes>(io, backdrop, i);
  for (; i < n; ++i) blendNonSeparableAt<Blend, float>(io, backdrop, i);
}

}  // namespace brenvia::ci::blend
