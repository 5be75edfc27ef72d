#include "platform/coreimage/engine/simd_output.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "platform/coreimage/engine/simd_output.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace brenvia::ci::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// One gather per channel: each entry packs the curve value (low 16 bits, fixed point over 65535)
// and the step to the next entry (high 16 bits, 16 times finer).
template <class D, class V>
V encodeChannel(D d, V c, const uint32_t* table) {
  const hn::RebindToSigned<D> di;
  V t = hn::Mul(c, hn::Set(d, float(kEncodeTableSize)));
  auto i = hn::ConvertTo(di, t);
  V f = hn::Sub(t, hn::ConvertTo(d, i));
  auto entry = hn::GatherIndex(di, reinterpret_cast<const int32_t*>(table), i);
  V v0 = hn::ConvertTo(d, hn::And(entry, hn::Set(di, 0xffff)));
  V step = hn::ConvertTo(d, hn::ShiftRight<16>(entry));
  return hn::Mul(hn::MulAdd(step, hn::Mul(f, hn::Set(d, 1.0f / 16)), v0), hn::Set(d, 1.0f / 65535));
}

// 1/a to float precision without a division: the approximation refined by one Newton step.
template <class D, class V>
V reciprocal(D d, V a) {
  V x = hn::ApproximateReciprocal(a);
  return hn::Mul(x, hn::NegMulAdd(a, x, hn::Set(d, 2.0f)));
}

void WriteBytes(const float* r, const float* g, const float* b, const float* a, int n, bool encode,
                const uint32_t* table, ByteOrder order, uint8_t* dst) {
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
      auto inv = hn::IfThenElseZero(hn::Gt(va, zero), reciprocal(d, va));
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
namespace {

const uint32_t* packedEncodeTable() {
  static const std::vector<uint32_t> table = [] {
    const float* curve = srgbEncodeTable();
    std::vector<uint32_t> packed(kEncodeTableSize + 1);
    for (int i = 0; i <= kEncodeTableSize; ++i) {
      uint32_t value = uint32_t(std::lround(curve[i] * 65535.0));
      uint32_t step = uint32_t(std::lround((curve[i + 1] - curve[i]) * 65535.0 * 16));
      packed[size_t(i)] = value | (step << 16);
    }
    return packed;
  }();
  return table.data();
}

}  // namespace

HWY_EXPORT(WriteBytes);

void writeBytes(const float* r, const float* g, const float* b, const float* a, int n, bool encode, ByteOrder order,
                uint8_t* dst) {
  HWY_DYNAMIC_DISPATCH(WriteBytes)(r, g, b, a, n, encode, packedEncodeTable(), order, dst);
}

}  // namespace brenvia::ci
#endif
