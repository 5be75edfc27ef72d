#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {
namespace {

BV_VECTOR_CLONES void sourceOverSpan(Span& s, const Span& b) {
  for (int i = 0; i < s.n; ++i) {
    float k = 1.0f - s.a[i];
    s.r[i] += b.r[i] * k;
    s.g[i] += b.g[i] * k;
    s.b[i] += b.b[i] * k;
    s.a[i] += b.a[i] * k;
  }
}

BV_VECTOR_CLONES void sourceAtopSpan(Span& s, const Span& b) {
  for (int i = 0; i < s.n; ++i) {
    float k = 1.0f - s.a[i];
    s.r[i] = s.r[i] * b.a[i] + b.r[i] * k;
    s.g[i] = s.g[i] * b.a[i] + b.g[i] * k;
    s.b[i] = s.b[i] * b.a[i] + b.b[i] * k;
    s.a[i] = b.a[i];
  }
}

BV_VECTOR_CLONES void maximumSpan(Span& s, const Span& b) {
  for (int i = 0; i < s.n; ++i) {
    s.r[i] = std::max(s.r[i], b.r[i]);
    s.g[i] = std::max(s.g[i], b.g[i]);
    s.b[i] = std::max(s.b[i], b.b[i]);
    s.a[i] = std::max(s.a[i], b.a[i]);
  }
}

// out = s + b·(1 − αs) on premultiplied values.
class SourceOverKernel final : public PointKernel {
 public:
  std::string_view name() const override { return "CISourceOverCompositing"; }
  void apply(Span& s, std::span<const Span* const> others, const RenderEnv&) const override {
    sourceOverSpan(s, *others[0]);
  }
};

// out.rgb = cs·αb + cb·(1 − αs), out.a = αb.
class SourceAtopKernel final : public PointKernel {
 public:
  std::string_view name() const override { return "CISourceAtopCompositing"; }
  void apply(Span& s, std::span<const Span* const> others, const RenderEnv&) const override {
    sourceAtopSpan(s, *others[0]);
  }
};

// Per component maximum, alpha included.
class MaximumKernel final : public PointKernel {
 public:
  std::string_view name() const override { return "CIMaximumCompositing"; }
  void apply(Span& s, std::span<const Span* const> others, const RenderEnv&) const override {
    maximumSpan(s, *others[0]);
  }
};

enum class ExtentRule { Union, Background };

void registerPorterDuff(std::string name, std::string displayName, std::shared_ptr<const PointKernel> kernel,
                        ExtentRule rule) {
  auto build = [kernel = std::move(kernel), rule](const CIFilter& f) -> CIImageRef {
    CIImageRef source = f.image("inputImage"), backdrop = f.image("inputBackgroundImage");
    if (!source || !backdrop) return nullptr;
    CGRect extent = rule == ExtentRule::Union ? CGRectUnion(source->extent(), backdrop->extent()) : backdrop->extent();
    return CIImage::makePoint(kernel, {source, backdrop}, extent);
  };
  CIFilter::registerOperation(std::move(name),
                              {std::move(displayName),
                               builtinCategories({kCICategoryCompositeOperation}),
                               {imageInput(), imageInput("inputBackgroundImage")}},
                              std::move(build));
}

}  // namespace

void registerPorterDuffOperations() {
  registerPorterDuff("CISourceOverCompositing", "Source Over", std::make_shared<SourceOverKernel>(), ExtentRule::Union);
  registerPorterDuff("CISourceAtopCompositing", "Source Atop", std::make_shared<SourceAtopKernel>(),
                     ExtentRule::Background);
  registerPorterDuff("CIMaximumCompositing", "Maximum", std::make_shared<MaximumKernel>(), ExtentRule::Union);
}

}  // namespace brenvia::ci
