#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {
namespace {

enum class MaskChannel { Green, Alpha };

BV_VECTOR_CLONES void maskMixSpan(Span& s, const Span& b, const float* k) {
  for (int i = 0; i < s.n; ++i) {
    float t = std::clamp(k[i], 0.0f, 1.0f);
    s.r[i] = b.r[i] + (s.r[i] - b.r[i]) * t;
    s.g[i] = b.g[i] + (s.g[i] - b.g[i]) * t;
    s.b[i] = b.b[i] + (s.b[i] - b.b[i]) * t;
    s.a[i] = b.a[i] + (s.a[i] - b.a[i]) * t;
  }
}

// out = mix(b, s, clamp(k, 0, 1)) on all four premultiplied channels, k read from the mask.
// Inputs: 0 the image, 1 the background, 2 the mask.
class BlendWithMaskKernel final : public PointKernel {
 public:
  explicit BlendWithMaskKernel(MaskChannel channel) : channel_(channel) {}
  std::string_view name() const override {
    return channel_ == MaskChannel::Green ? "CIBlendWithMask" : "CIBlendWithAlphaMask";
  }
  void apply(Span& s, std::span<const Span* const> others, const RenderEnv&) const override {
    maskMixSpan(s, *others[0], channel_ == MaskChannel::Green ? others[1]->g : others[1]->a);
  }

 private:
  MaskChannel channel_;
};

void registerMaskBlend(std::string name, std::string displayName, MaskChannel channel) {
  auto build = [kernel = std::make_shared<BlendWithMaskKernel>(channel)](const CIFilter& f) -> CIImageRef {
    CIImageRef image = f.image("inputImage"), mask = f.image("inputMaskImage");
    if (!image || !mask) return nullptr;
    // A missing background is the empty image: the result is the image cut by the mask.
    CIImageRef background = f.image("inputBackgroundImage");
    if (!background) background = CIImage::emptyImage();
    CGRect extent = CGRectUnion(background->extent(), CGRectIntersection(image->extent(), mask->extent()));
    return CIImage::makePoint(kernel, {image, background, mask}, extent);
  };
  CIFilter::registerOperation(std::move(name),
                              {std::move(displayName),
                               builtinCategories({kCICategoryStylize}),
                               {imageInput(), imageInput("inputBackgroundImage"), imageInput("inputMaskImage")},
                               CIOperationRole::Mask},
                              std::move(build));
}

}  // namespace

void registerBlendWithMaskOperations() {
  registerMaskBlend("CIBlendWithMask", "Blend With Mask", MaskChannel::Green);
  registerMaskBlend("CIBlendWithAlphaMask", "Blend With Alpha Mask", MaskChannel::Alpha);
}

}  // namespace brenvia::ci
