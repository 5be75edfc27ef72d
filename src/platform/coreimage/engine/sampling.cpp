#include "platform/coreimage/engine/sampling.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "platform/coreimage/engine/sampling.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace brenvia::ci::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Samples one vector of points into out[c][0, lanes). Every point, near the border or not, takes the
// same arithmetic, so a sample does not depend on where its span starts: neighbours outside the
// buffer get zero weight, and points outside it (or NaN) read as transparent.
template <class D>
void sampleVector(D d, const PlanarView& src, const float* sx, const float* sy, float* const out[4]) {
  const hn::RebindToSigned<D> di;
  const PixelRect& r = src.rect;
  const auto one = hn::Set(d, 1.0f);
  const auto fx = hn::Sub(hn::LoadU(d, sx), hn::Set(d, 0.5f)), fy = hn::Sub(hn::LoadU(d, sy), hn::Set(d, 0.5f));
  // Comparisons with NaN are false, so NaN points are outside.
  const auto seen = hn::And(hn::And(hn::Gt(fx, hn::Set(d, float(r.x - 1))), hn::Lt(fx, hn::Set(d, float(r.maxX())))),
                            hn::And(hn::Gt(fy, hn::Set(d, float(r.y - 1))), hn::Lt(fy, hn::Set(d, float(r.maxY())))));
  const auto x0 = hn::IfThenElseZero(seen, hn::Floor(fx)), y0 = hn::IfThenElseZero(seen, hn::Floor(fy));
  const auto tx = hn::Sub(fx, x0), ty = hn::Sub(fy, y0);
  const auto hasLeft = hn::Ge(x0, hn::Set(d, float(r.x))), hasRight = hn::Lt(x0, hn::Set(d, float(r.maxX() - 1)));
  const auto hasTop = hn::Ge(y0, hn::Set(d, float(r.y))), hasBottom = hn::Lt(y0, hn::Set(d, float(r.maxY() - 1)));
  const auto column = hn::ConvertTo(di, hn::Sub(x0, hn::Set(d, float(r.x))));
  const auto line = hn::ConvertTo(di, hn::Sub(y0, hn::Set(d, float(r.y))));
  const auto stride = hn::Set(di, int32_t(src.stride)), step = hn::Set(di, 1);
  const auto index = hn::Add(hn::Mul(line, stride), column);
  struct Neighbour {
    decltype(fx) weight;
    decltype(index) at;
  };
  const auto neighbour = [&](auto valid, auto weight, auto at) {
    const auto inside = hn::And(seen, valid);
    return Neighbour{hn::IfThenElseZero(inside, weight), hn::IfThenElseZero(hn::RebindMask(di, inside), at)};
  };
  const Neighbour n[4] = {
      neighbour(hn::And(hasLeft, hasTop), hn::Mul(hn::Sub(one, tx), hn::Sub(one, ty)), index),
      neighbour(hn::And(hasRight, hasTop), hn::Mul(tx, hn::Sub(one, ty)), hn::Add(index, step)),
      neighbour(hn::And(hasLeft, hasBottom), hn::Mul(hn::Sub(one, tx), ty), hn::Add(index, stride)),
      neighbour(hn::And(hasRight, hasBottom), hn::Mul(tx, ty), hn::Add(hn::Add(index, stride), step)),
  };
  for (int c = 0; c < 4; ++c) {
    auto sum = hn::Zero(d);
    for (const Neighbour& k : n) sum = hn::MulAdd(k.weight, hn::GatherIndex(d, src.plane[c], k.at), sum);
    hn::StoreU(sum, d, out[c]);
  }
}

void SampleBilinear(const PlanarView& src, const float* sx, const float* sy, Span& s) {
  const hn::ScalableTag<float> d;
  const int lanes = int(hn::Lanes(d));
  int i = 0;
  for (; i + lanes <= s.n; i += lanes) {
    float* const out[4] = {s.r + i, s.g + i, s.b + i, s.a + i};
    sampleVector(d, src, sx + i, sy + i, out);
  }
  if (i == s.n) return;
  // The last points, padded with NaN points that read as transparent.
  HWY_ALIGN float px[hn::MaxLanes(d)], py[hn::MaxLanes(d)], rest[4][hn::MaxLanes(d)];
  const int count = s.n - i;
  std::fill_n(px, lanes, std::numeric_limits<float>::quiet_NaN());
  std::fill_n(py, lanes, std::numeric_limits<float>::quiet_NaN());
  std::memcpy(px, sx + i, sizeof(float) * size_t(count));
  std::memcpy(py, sy + i, sizeof(float) * size_t(count));
  float* const out[4] = {rest[0], rest[1], rest[2], rest[3]};
  sampleVector(d, src, px, py, out);
  float* const to[4] = {s.r, s.g, s.b, s.a};
  for (int c = 0; c < 4; ++c) std::memcpy(to[c] + i, rest[c], sizeof(float) * size_t(count));
}

}  // namespace brenvia::ci::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace brenvia::ci {

namespace {

// The same samples point by point with 64-bit offsets, for buffers beyond the gathers' reach.
void sampleBilinearWide(const PlanarView& src, const float* sx, const float* sy, Span& s) {
  const PixelRect& r = src.rect;
  float* const out[4] = {s.r, s.g, s.b, s.a};
  for (int i = 0; i < s.n; ++i) {
    const float fx = sx[i] - 0.5f, fy = sy[i] - 0.5f;
    for (int c = 0; c < 4; ++c) out[c][i] = 0;
    if (!(fx > float(r.x - 1) && fx < float(r.maxX()) && fy > float(r.y - 1) && fy < float(r.maxY()))) continue;
    const float x0 = std::floor(fx), y0 = std::floor(fy), tx = fx - x0, ty = fy - y0;
    const float w[4] = {(1 - tx) * (1 - ty), tx * (1 - ty), (1 - tx) * ty, tx * ty};
    for (int k = 0; k < 4; ++k) {
      const int64_t x = int64_t(x0) + (k & 1), y = int64_t(y0) + (k >> 1);
      if (x < r.x || x >= r.maxX() || y < r.y || y >= r.maxY()) continue;
      const size_t at = size_t(y - r.y) * src.stride + size_t(x - r.x);
      for (int c = 0; c < 4; ++c) out[c][i] = std::fma(w[k], src.plane[c][at], out[c][i]);
    }
  }
}

}  // namespace

HWY_EXPORT(SampleBilinear);

void sampleBilinear(const PlanarView& src, const float* sx, const float* sy, Span& out) {
  // Lanes that read nothing still gather at offset 0, which an empty buffer does not have.
  if (src.rect.empty()) return out.clear();
  if (src.stride * size_t(src.rect.h) > size_t(std::numeric_limits<int32_t>::max())) {
    return sampleBilinearWide(src, sx, sy, out);
  }
  HWY_DYNAMIC_DISPATCH(SampleBilinear)(src, sx, sy, out);
}

}  // namespace brenvia::ci
#endif
