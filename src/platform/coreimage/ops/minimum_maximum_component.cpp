#include "platform/coreimage/ops/op_support.h"

#include <algorithm>

namespace brenvia::ci {
namespace {

template <bool Maximum>
BV_VECTOR_CLONES void componentSpan(Span& s) {
  for (int i = 0; i < s.n; ++i) {
    float v = Maximum ? std::max(s.r[i], std::max(s.g[i], s.b[i])) : std::min(s.r[i], std::min(s.g[i], s.b[i]));
    s.r[i] = s.g[i] = s.b[i] = v;
  }
}

// Grey from the smallest (or largest) colour component. Premultiplying commutes with min and max,
// so premultiplied pixels are used as they are.
template <bool Maximum>
class ComponentKernel final : public PointKernel {
 public:
  std::string_view name() const override { return Maximum ? "CIMaximumComponent" : "CIMinimumComponent"; }
  void apply(Span& s, std::span<const Span* const>, const RenderEnv&) const override { componentSpan<Maximum>(s); }
};

template <bool Maximum>
void registerComponent(const char* name, const char* displayName) {
  CIFilter::registerOperation(name, {displayName, builtinCategories({kCICategoryColorEffect}), {imageInput()}},
                              [](const CIFilter& f) -> CIImageRef {
                                CIImageRef input = f.image("inputImage");
                                if (!input) return nullptr;
                                return CIImage::makePoint(std::make_shared<ComponentKernel<Maximum>>(), {input},
                                                          input->extent());
                              });
}

}  // namespace

void registerMinimumMaximumComponent() {
  registerComponent<false>("CIMinimumComponent", "Minimum Component");
  registerComponent<true>("CIMaximumComponent", "Maximum Component");
}

}  // namespace brenvia::ci
