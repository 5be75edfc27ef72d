#pragma once

#include "platform/coreimage/ops/blend_math.h"
#include "platform/coreimage/ops/op_support.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace brenvia::ci {

template <class Blend, bool Separable>
BV_VECTOR_CLONES void blendSpan(Span& io, const Span& backdrop) {
  if constexpr (Separable) {
    blend::blendSeparable<Blend>(io, backdrop);
  } else {
    blend::blendNonSeparable<Blend>(io, backdrop);
  }
}

// The blend equation with a separable or a non-separable blend function; input 0 is the source
// (the overlay), input 1 the backdrop. A point kernel, so it fuses with its neighbours.
template <class Blend, bool Separable>
class BlendModeKernel final : public PointKernel {
 public:
  explicit BlendModeKernel(std::string name) : name_(std::move(name)) {}
  std::string_view name() const override { return name_; }
  void apply(Span& s, std::span<const Span* const> others, const RenderEnv&) const override {
    blendSpan<Blend, Separable>(s, *others[0]);
  }

 private:
  std::string name_;
};

// Registers a blend mode operation: inputImage over inputBackgroundImage, no output unless both are
// set, extent the union of both.
template <class Blend, bool Separable = true>
void registerBlendMode(std::string_view name, std::string displayName, std::vector<std::string> categories) {
  auto kernel = std::make_shared<BlendModeKernel<Blend, Separable>>(std::string(name));
  CIFilter::registerOperation(
      std::string(name),
      {std::move(displayName), std::move(categories), {imageInput(), imageInput("inputBackgroundImage")}},
      [kernel](const CIFilter& f) -> CIImageRef {
        CIImageRef source = f.image("inputImage"), backdrop = f.image("inputBackgroundImage");
        if (!source || !backdrop) return nullptr;
        return CIImage::makePoint(kernel, {source, backdrop}, CGRectUnion(source->extent(), backdrop->extent()));
      });
}

}  // namespace brenvia::ci
