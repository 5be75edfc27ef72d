#include "platform/coreimage/ops/op_support.h"

#include <algorithm>

namespace brenvia::ci {
namespace {

// c0 and c1 are the two colours in the working space, alpha last.
BV_VECTOR_CLONES void falseColourSpan(Span& s, std::array<float, 4> c0, std::array<float, 4> c1) {
  const float dr = c1[0] - c0[0], dg = c1[1] - c0[1], db = c1[2] - c0[2], da = c1[3] - c0[3];
  for (int i = 0; i < s.n; ++i) {
    float k = unpremultiplyFactor(s.a[i]);
    float l = (0.2126f * s.r[i] + 0.7152f * s.g[i] + 0.0722f * s.b[i]) * k;
    l = std::min(std::max(l, 0.0f), 1.0f);
    float a = s.a[i] * (c0[3] + da * l);
    s.r[i] = (c0[0] + dr * l) * a;
    s.g[i] = (c0[1] + dg * l) * a;
    s.b[i] = (c0[2] + db * l) * a;
    s.a[i] = a;
  }
}

// Maps the Rec. 709 luma of the unpremultiplied colour, clamped to [0, 1], onto the line between
// the two colours (taken in the working space); the colours' alphas scale the pixel's alpha.
class FalseColorKernel final : public PointKernel {
 public:
  FalseColorKernel(CIColor c0, CIColor c1) : c0_(std::move(c0)), c1_(std::move(c1)) {}
  std::string_view name() const override { return "CIFalseColor"; }

  void apply(Span& s, std::span<const Span* const>, const RenderEnv& env) const override {
    auto working = [&env](const CIColor& c) {
      auto rgb = env.toWorking({c.red(), c.green(), c.blue()}, c.colorSpace().get());
      return std::array<float, 4>{float(rgb[0]), float(rgb[1]), float(rgb[2]), float(c.alpha())};
    };
    falseColourSpan(s, working(c0_), working(c1_));
  }

 private:
  CIColor c0_, c1_;
};

}  // namespace

void registerFalseColor() {
  CIFilter::registerOperation("CIFalseColor",
                              {"False Color",
                               builtinCategories({kCICategoryColorEffect}),
                               {imageInput(), colorInput("inputColor0", CIColor(0.3, 0.0, 0.0, 1.0)),
                                colorInput("inputColor1", CIColor(1.0, 0.9, 0.8, 1.0))}},
                              [](const CIFilter& f) -> CIImageRef {
                                CIImageRef input = f.image("inputImage");
                                if (!input) return nullptr;
                                auto kernel =
                                    std::make_shared<FalseColorKernel>(f.color("inputColor0"), f.color("inputColor1"));
                                return CIImage::makePoint(std::move(kernel), {input}, input->extent());
                              });
}

}  // namespace brenvia::ci
