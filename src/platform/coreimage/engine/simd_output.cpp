#include "platform/coreimage/engine/simd_output.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "platform/coreimage/engine/simd_output.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace brenvia::ci::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

template <class D, class V>
V encodeChannel(D d, V c, const float* table) {
  const hn::RebindToSigned<D> di;
  V t = hn::Mul(c, hn::Set(d, float(kEncodeTableSize)));
  auto i = hn::ConvertTo(di, t);
  V f = hn::Sub(t, hn::ConvertTo(d, i));
  V v0 = hn::GatherIndex(d, table, i);
  V v1 = hn::GatherIndex(d, table + 1, i);
  return hn::MulAdd(hn::Sub(v1, v0), f, v0);
}

void WriteBytes(const float* r, const float* g, const float* b, const float* a, int n, bool encode,
                const float* table, ByteOrder order, uint8_t* dst) {
  const hn::ScalableTag<float> d;
  const hn::RebindToSigned<decltype(d)> di;
  const size_t lanes = hn::Lanes(d);
  const auto zero = hn::Zero(d), one = hn::Set(d, 1.0f), scale = hn::Set(d, 255.0f), half = hn::Set(d, 0.5f);
  HWY_ALIGN int32_t tail[hn::MaxLanes(di)];
  for (int i = 0; i < n; i += int(lanes)) {
    auto va = hn::Min(hn::Max(hn::LoadU(d, a + i), zero), one);
    auto vr = hn::Max(hn::Min(hn::LoadU(d, r + i), va), zero);
    auto vg = hn::Max(hn::Min(hn::LoadU(d, g + i), va), zero);
    auto vb = hn::Max(hn::Min(hn::LoadU(d, b + i), va), zero);
    if (encode) {
      auto inv = hn::IfThenElseZero(hn::Gt(va, zero), hn::Div(one, va));
      vr = hn::Mul(encodeChannel(d, hn::Min(hn::Mul(vr, inv), one), table), va);
      vg = hn::Mul(encodeChannel(d, hn::Min(hn::Mul(vg, inv), one), table), va);
      vb = hn::Mul(encodeChannel(d, hn::Min(hn::Mul(vb, inv), one), table), va);
    }
    // Each pixel's four bytes are packed into one 32-bit lane, little-endian, in the target's order.
    auto byteAt = [&](auto v, int position) {
      return hn::ShiftLeftSame(hn::ConvertTo(di, hn::MulAdd(v, scale, half)), 8 * position);
    };
    auto packed = hn::Or(hn::Or(byteAt(vr, order.r), byteAt(vg, order.g)), hn::Or(byteAt(vb, order.b), byteAt(va, order.a)));
    const size_t count = std::min(lanes, size_t(n - i));
    if (count == lanes) {
      hn::StoreU(packed, di, reinterpret_cast<int32_t*>(dst + 4 * size_t(i)));
    } else {
      hn::Store(packed, di, tail);
      std::memcpy(dst + 4 * size_t(i), tail, 4 * count);
    }
  }
}

}  // namespace brenvia::ci::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace brenvia::ci {

HWY_EXPORT(WriteBytes);

void writeBytes(const float* r, const float* g, const float* b, const float* a, int n, bool encode,
                const float* encodeTable, ByteOrder order, uint8_t* dst) {
  HWY_DYNAMIC_DISPATCH(WriteBytes)(r, g, b, a, n, encode, encodeTable, order, dst);
}

}  // namespace brenvia::ci
#endif
