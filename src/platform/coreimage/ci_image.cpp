#include "platform/coreimage/ci_image.h"

#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"

#include <nlohmann/json.hpp>

namespace brenvia {
namespace {

const std::shared_ptr<const Value>& noProperties() {
  static const auto empty = std::make_shared<const Value>(Value::object());
  return empty;
}

// The affine map of an EXIF orientation on a W x H picture at the origin.
CGAffineTransform orientationTransform(int orientation, double w, double h) {
  switch (orientation) {
    case 2: return {-1, 0, 0, 1, w, 0};
    case 3: return {-1, 0, 0, -1, w, h};
    case 4: return {1, 0, 0, -1, 0, h};
    case 5: return {0, -1, -1, 0, h, w};
    case 6: return {0, -1, 1, 0, 0, w};
    case 7: return {0, 1, 1, 0, 0, 0};
    case 8: return {0, 1, -1, 0, h, 0};
    default: return CGAffineTransformIdentity;
  }
}

}  // namespace

CIImage::CIImage(Kind kind, const CGRect& extent) : kind_(kind), extent_(extent), properties_(noProperties()) {}

CIImage::~CIImage() {
  thread_local std::vector<CIImageRef> released;
  thread_local bool releasing = false;
  for (CIImageRef& input : inputs_) released.push_back(std::move(input));
  if (releasing) return;
  releasing = true;
  while (!released.empty()) {
    CIImageRef last = std::move(released.back());
    released.pop_back();
  }
  releasing = false;
}

const Value& CIImage::properties() const { return *properties_; }

CIImageRef CIImage::imageWithCGImage(CGImageRef image) { return imageWithCGImage(std::move(image), Value::object()); }

CIImageRef CIImage::imageWithCGImage(CGImageRef image, Value properties) {
  if (!image) return nullptr;
  auto node =
      std::make_shared<CIImage>(Kind::Bitmap, CGRectMake(0, 0, double(image->width()), double(image->height())));
  node->colorSpace_ = image->colorSpace();
  node->bitmap_ = std::move(image);
  if (properties.is_object() && !properties.empty())
    node->properties_ = std::make_shared<const Value>(std::move(properties));
  return node;
}

CIImageRef CIImage::imageWithColor(const CIColor& color) {
  auto node = std::make_shared<CIImage>(Kind::Color, CGRectInfinite);
  node->color_ = color;
  node->colorSpace_ = color.colorSpace();
  return node;
}

CIImageRef CIImage::emptyImage() {
  static const CIImageRef empty = std::make_shared<const CIImage>(Kind::Empty, CGRectNull);
  return empty;
}

CIImageRef CIImage::imageByApplyingTransform(const CGAffineTransform& t) const {
  if (CGAffineTransformIsIdentity(t) || kind_ == Kind::Empty) return self();
  double det = t.a * t.d - t.b * t.c;
  if (det == 0 || !std::isfinite(det)) return emptyImage();
  // A transform of a transform is one transform: the pixels are resampled once.
  const CIImage& source = kind_ == Kind::Transform ? *inputs_[0] : *this;
  CGAffineTransform total = kind_ == Kind::Transform ? CGAffineTransformConcat(transform_, t) : t;
  if (CGAffineTransformIsIdentity(total)) return source.self();
  auto node = std::make_shared<CIImage>(Kind::Transform, CGRectApplyAffineTransform(source.extent_, total));
  node->inputs_ = {source.self()};
  node->transform_ = total;
  node->colorSpace_ = colorSpace_;
  node->properties_ = properties_;
  return node;
}

CIImageRef CIImage::imageByCroppingToRect(const CGRect& rect) const {
  CGRect extent = CGRectIntersection(extent_, rect);
  if (CGRectIsEmpty(extent)) return emptyImage();
  if (!CGRectIsInfinite(extent_) && CGRectEqualToRect(CGRectIntegral(extent_), extent_) &&
      CGRectContainsRect(rect, extent_))
    return self();
  const CIImage& source = kind_ == Kind::Crop ? *inputs_[0] : *this;
  CGRect total = kind_ == Kind::Crop ? CGRectIntersection(rect_, rect) : rect;
  auto node = std::make_shared<CIImage>(Kind::Crop, extent);
  node->inputs_ = {source.self()};
  node->rect_ = total;
  node->colorSpace_ = colorSpace_;
  node->properties_ = properties_;
  return node;
}

CIImageRef CIImage::imageByClampingToExtent() const {
  if (CGRectIsEmpty(extent_) || CGRectIsInfinite(extent_)) return self();
  auto node = std::make_shared<CIImage>(Kind::Clamp, CGRectInfinite);
  node->inputs_ = {self()};
  node->rect_ = extent_;
  node->colorSpace_ = colorSpace_;
  node->properties_ = properties_;
  return node;
}

CIImageRef CIImage::imageByCompositingOverImage(const CIImageRef& background) const {
  return imageByApplyingFilter("CISourceOverCompositing", {{"inputBackgroundImage", background}});
}

CIImageRef CIImage::imageByApplyingFilter(std::string_view name, const CIFilterParameters& parameters) const {
  auto filter = CIFilter::filterWithName(name, parameters);
  if (!filter) return nullptr;
  filter->setValue(self(), "inputImage");
  return filter->outputImage();
}

CIImageRef CIImage::imageBySettingProperties(Value properties) const {
  auto node = std::make_shared<CIImage>(*this);
  node->properties_ = std::make_shared<const Value>(properties.is_object() ? std::move(properties) : Value::object());
  return node;
}

CIImageRef CIImage::imageByApplyingOrientation(int orientation) const {
  if (orientation < 1 || orientation > 8) {
    BVLog("[CIImage] Unknown orientation " + std::to_string(orientation) + ", image left unchanged.");
    return self();
  }
  if (orientation == 1 || CGRectIsEmpty(extent_) || CGRectIsInfinite(extent_)) return self();
  CGPoint o = extent_.origin;
  CGAffineTransform t = CGAffineTransformMakeTranslation(-o.x, -o.y);
  t = CGAffineTransformConcat(t, orientationTransform(orientation, extent_.size.width, extent_.size.height));
  t = CGAffineTransformConcat(t, CGAffineTransformMakeTranslation(o.x, o.y));
  return imageByApplyingTransform(t);
}

CIImageRef CIImage::kernelNode(Kind kind, ci::KernelRef kernel, std::vector<CIImageRef> inputs, const CGRect& extent) {
  if (CGRectIsEmpty(extent)) return emptyImage();
  auto node = std::make_shared<CIImage>(kind, extent);
  node->kernel_ = std::move(kernel);
  for (const auto& input : inputs) {
    if (input && !node->colorSpace_) node->colorSpace_ = input->colorSpace_;
  }
  node->inputs_ = std::move(inputs);
  for (auto& input : node->inputs_) {
    if (!input) input = emptyImage();
  }
  return node;
}

CIImageRef CIImage::makePoint(std::shared_ptr<const ci::PointKernel> kernel, std::vector<CIImageRef> inputs,
                              const CGRect& extent) {
  return kernelNode(Kind::Point, std::move(kernel), std::move(inputs), extent);
}

CIImageRef CIImage::makeWarp(std::shared_ptr<const ci::WarpKernel> kernel, CIImageRef input, const CGRect& extent) {
  return kernelNode(Kind::Warp, std::move(kernel), {std::move(input)}, extent);
}

CIImageRef CIImage::makeRegion(std::shared_ptr<const ci::RegionKernel> kernel, std::vector<CIImageRef> inputs,
                               const CGRect& extent) {
  return kernelNode(Kind::Region, std::move(kernel), std::move(inputs), extent);
}

CIImageRef CIImage::makeWholeImage(std::shared_ptr<const ci::WholeImageKernel> kernel, std::vector<CIImageRef> inputs,
                                   const CGRect& extent) {
  return kernelNode(Kind::WholeImage, std::move(kernel), std::move(inputs), extent);
}

}  // namespace brenvia
