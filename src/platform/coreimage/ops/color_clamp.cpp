#include "platform/coreimage/ops/op_support.h"

#include <algorithm>

namespace brenvia::ci {
namespace {

BV_VECTOR_CLONES void clampSpan(Span& s, std::array<float, 4> lo, std::array<float, 4> hi) {
  for (int i = 0; i < s.n; ++i) {
    float k = unpremultiplyFactor(s.a[i]);
    float a = std::min(std::max(s.a[i], lo[3]), hi[3]);
    s.r[i] = std::min(std::max(s.r[i] * k, lo[0]), hi[0]) * a;
    s.g[i] = std::min(std::max(s.g[i] * k, lo[1]), hi[1]) * a;
    s.b[i] = std::min(std::max(s.b[i] * k, lo[2]), hi[2]) * a;
    s.a[i] = a;
  }
}

// Clamps every unpremultiplied component, alpha included, then premultiplies with the clamped
// alpha: a minimum alpha of 1 makes the result opaque.
class ColorClampKernel final : public PointKernel {
 public:
  ColorClampKernel(const CIVector& lo, const CIVector& hi) {
    for (size_t c = 0; c < 4; ++c) lo_[c] = float(lo.valueAtIndex(c)), hi_[c] = float(hi.valueAtIndex(c));
  }
  std::string_view name() const override { return "CIColorClamp"; }

  void apply(Span& s, std::span<const Span* const>, const RenderEnv&) const override { clampSpan(s, lo_, hi_); }

 private:
  std::array<float, 4> lo_{}, hi_{};
};

}  // namespace

void registerColorClamp() {
  CIFilter::registerOperation("CIColorClamp",
                              {"Color Clamp",
                               builtinCategories({kCICategoryColorAdjustment}),
                               {imageInput(), vectorInput("inputMinComponents", {0, 0, 0, 0}),
                                vectorInput("inputMaxComponents", {1, 1, 1, 1})}},
                              [](const CIFilter& f) -> CIImageRef {
                                CIImageRef input = f.image("inputImage");
                                if (!input) return nullptr;
                                auto kernel = std::make_shared<ColorClampKernel>(f.vector("inputMinComponents"),
                                                                                 f.vector("inputMaxComponents"));
                                return CIImage::makePoint(std::move(kernel), {input}, input->extent());
                              });
}

}  // namespace brenvia::ci
