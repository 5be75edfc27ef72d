#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {
namespace {

BV_VECTOR_CLONES void lumaPlaneSpan(Span& s) {
  for (int i = 0; i < s.n; ++i) {
    float y = unpremultipliedLuma(s, i);
    s.r[i] = s.g[i] = s.b[i] = y;
    s.a[i] = 1;
  }
}

class LumaPlaneKernel final : public PointKernel {
 public:
  std::string_view name() const override { return "luma plane"; }
  void apply(Span& s, std::span<const Span* const>, const RenderEnv&) const override { lumaPlaneSpan(s); }
};

}  // namespace

CIImageRef lumaPlane(const CIImageRef& image) {
  return CIImage::makePoint(std::make_shared<LumaPlaneKernel>(), {image}, image->extent());
}

}  // namespace brenvia::ci
