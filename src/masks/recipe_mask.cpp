#include "masks/recipe_mask.h"

#include "filter/dynamic_parameters.h"
#include "filter/filter.h"
#include "filter/processing.h"
#include "image/image.h"
#include "platform/coreimage/ci_context.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>

namespace brenvia {
namespace {

// The relative rectangle the focus is measured in when there is no face to focus on.
constexpr CGRect kCentreRectangle{0.4, 0.4, 0.2, 0.2};

std::optional<std::string> stringOf(const BVParameters& parameters, std::string_view key) {
  auto it = parameters.find(key);
  if (it == parameters.end() || !std::holds_alternative<std::string>(it->second)) return std::nullopt;
  return std::get<std::string>(it->second);
}

// The image moved to the part of the canvas being processed; masks are made at the origin.
std::shared_ptr<BVImage> offset(const std::shared_ptr<BVImage>& image, double dx, double dy) {
  CIImageRef picture = image->CIImage();
  if (!picture) {
    BVLog("[BVMask] Unable to offset as BVImage is not CI-backed");
    return image;
  }
  if (dx == 0 && dy == 0) return image;
  return BVImage::initWithCIImage(picture->imageByApplyingTransform(CGAffineTransformMakeTranslation(dx, dy)));
}

CIImageRef clampedTo01(const CIImageRef& image, double scale, double bias) {
  CIImageRef scaled =
      image->imageByApplyingFilter("CIColorMatrix", {{"inputRVector", CIVector{scale, 0, 0, 0}},
                                                     {"inputGVector", CIVector{0, scale, 0, 0}},
                                                     {"inputBVector", CIVector{0, 0, scale, 0}},
                                                     {"inputBiasVector", CIVector{bias, bias, bias, 0}}});
  return scaled->imageByApplyingFilter("CIColorClamp");
}

// A trapezoid over disparity: 1 within field / 2 of the focal value, 0 beyond a further 1 / slope.
CIImageRef focusMask(const CIImageRef& disparity, const BVDisparityMaskFocus& focus) {
  const double s = focus.slope, f = focus.focalValue, h = (focus.field + 2 / s) * 0.5;
  CIImageRef rising = clampedTo01(disparity, s, (f - h) * -s);
  CIImageRef falling = clampedTo01(disparity, -s, s * (f + h));
  return rising->imageByApplyingFilter("CIDarkenBlendMode", {{"inputBackgroundImage", falling}});
}

}  // namespace

BVDisparityMaskFocus BVDisparityMaskFocus::withPreset(double focalValue, std::string_view preset) {
  if (preset == BVParameterStringValue::deep) return {0.5, focalValue, 4.0};
  if (preset == BVParameterStringValue::shallow) return {0.05, focalValue, 8.0};
  return {0.2, focalValue, 6.0};
}

double BVDisparityMaskFocus::focalValueIn(const CGRect& r, const CIImageRef& disparity) {
  const CGRect e = disparity->extent();
  const CGRect sample =
      r.size.width == 0 && r.size.height == 0
          ? CGRectMake(e.origin.x + e.size.width * r.origin.x - 5, e.origin.y + e.size.height * r.origin.y - 5, 10, 10)
          : CGRectMake(e.origin.x + e.size.width * r.origin.x, e.origin.y + e.size.height * r.origin.y,
                       e.size.width * r.size.width, e.size.height * r.size.height);
  CIContextOptions unmanaged;
  unmanaged.workingColorSpace = CGColorSpaceRef();
  unmanaged.outputColorSpace = CGColorSpaceRef();
  CGImageRef pixels = CIContext::contextWithOptions(unmanaged)->createCGImage(disparity->imageByClampingToExtent(),
                                                                              CGRectIntegral(sample));
  if (!pixels) return 0;
  int largest = 0;
  for (size_t y = 0; y < pixels->height(); ++y) {
    const uint8_t* row = pixels->row(y);
    for (size_t x = 0; x < pixels->width(); ++x) largest = std::max<int>(largest, row[x * 4]);
  }
  return largest / 255.0;
}

std::shared_ptr<BVRecipeMask> BVRecipeMask::initWithDictionary(const Value& dictionary) {
  const BVParameters p = BVParametersFromDictionary(dictionary);
  if (p.empty()) return nullptr;
  auto mask = std::make_shared<BVRecipeMask>();
  if (auto name = stringOf(p, kBVFilterImageNameKey)) mask->imageName_ = name;
  if (auto it = p.find(kBVFilterGrayscaleKey); it != p.end() && std::holds_alternative<bool>(it->second)) {
    mask->grayscale_ = std::get<bool>(it->second);
  }
  if (auto scaling = stringOf(p, kBVFilterImageScalingKey))
    mask->imageScalingMode_ = BVImageScalingModeFromString(*scaling);
  if (auto it = p.find(kBVFilterGradientKey); it != p.end() && std::holds_alternative<Value>(it->second)) {
    mask->gradient_ = BVGradient::gradientWithParameters(std::get<Value>(it->second));
  }
  mask->preferredEmbeddedType_ = stringOf(p, kBVFilterPreferEmbeddedKey);
  mask->disparityAutofocus_ = stringOf(p, kBVFilterDisparityAutofocusKey);
  mask->disparityDepthMaskPreset_ = stringOf(p, kBVFilterDisparityDepthPresetKey);
  return mask;
}

std::shared_ptr<BVImage> BVRecipeMask::maskImageForFilter(const BVFilter& filter) {
  std::shared_ptr<BVProcessing> running = filter.processor();
  if (!running) {
    BVLog("[BVMask] Unable to get processing rect for filter, cannot apply mask.");
    return nullptr;
  }
  const CGRect rect = running->processingRect();
  if (std::shared_ptr<BVImage> embedded = embeddedMask(filter)) return embedded;
  if (imageName_) {
    std::shared_ptr<BVImage> picture = filter.imageNamed(*imageName_, rect.size, imageScalingMode_);
    return picture ? offset(picture, rect.origin.x, rect.origin.y) : nullptr;
  }
  if (gradient_) {
    std::shared_ptr<BVImage> drawn = gradientMask(rect.size);
    return drawn ? offset(drawn, rect.origin.x, rect.origin.y) : nullptr;
  }
  return nullptr;
}

// The inverted depth or matte, so that the subject is black and the effect falls around it.
std::shared_ptr<BVImage> BVRecipeMask::embeddedMask(const BVFilter& filter) const {
  std::shared_ptr<BVProcessing> running = filter.processor();
  CIImageRef source;
  if (preferredEmbeddedType_ == BVParameterStringValue::disparity) {
    if (CIImageRef disparity = running->disparityImage()) source = disparityMask(filter, disparity);
  } else if (preferredEmbeddedType_ == BVParameterStringValue::portraitMatte) {
    source = running->portraitMatteImage();
  }
  return source ? BVImage::initWithCIImage(source->imageByApplyingFilter("CIColorInvert")) : nullptr;
}

// Focused by preset and autofocus when both are given, otherwise the depth itself. Faces and eyes
// focus on the processor's key face (the left eye only); without one, or where it gives no depth,
// the centre is taken.
CIImageRef BVRecipeMask::disparityMask(const BVFilter& filter, const CIImageRef& disparity) const {
  if (!disparityDepthMaskPreset_ || !disparityAutofocus_) return disparity;
  std::optional<double> focal;
  std::shared_ptr<BVProcessing> running = filter.processor();
  const bool byFace = *disparityAutofocus_ == BVParameterStringValue::face;
  const bool byEyes = *disparityAutofocus_ == BVParameterStringValue::eyes;
  if ((byFace || byEyes) && running) {
    if (std::optional<CIFaceFeature> face = running->detectedKeyFaceFeature()) {
      const CGRect r = running->processingRect();
      const auto relative = [&](CGPoint p) {
        return CGPoint{(p.x - r.origin.x) / r.size.width, (p.y - r.origin.y) / r.size.height};
      };
      const CGPoint corner = relative(face->bounds.origin);
      const CGRect sample = byEyes ? CGRect{relative(face->leftEyePosition), {0, 0}}
                                   : CGRectMake(corner.x, corner.y, face->bounds.size.width / r.size.width,
                                                face->bounds.size.height / r.size.height);
      focal = BVDisparityMaskFocus::focalValueIn(sample, disparity);
      if (*focal == 0.0) focal.reset();
    }
  }
  if (!focal) focal = BVDisparityMaskFocus::focalValueIn(kCentreRectangle, disparity);
  return focusMask(disparity, BVDisparityMaskFocus::withPreset(*focal, *disparityDepthMaskPreset_));
}

std::shared_ptr<BVImage> BVRecipeMask::gradientMask(CGSize size) {
  char key[64];
  std::snprintf(key, sizeof key, "%.0fx%.0f", size.width, size.height);
  {
    std::lock_guard lock(cacheMutex_);
    if (auto it = cachedGradientMaskImages_.find(key); it != cachedGradientMaskImages_.end()) return it->second;
  }
  CGContextRef context = CGBitmapContextCreateWithSize(size);
  if (!context) return nullptr;
  gradient_->drawInContext(context);
  std::shared_ptr<BVImage> drawn = BVImage::initWithCGImage(CGBitmapContextCreateImage(context));
  if (!drawn) return nullptr;
  // Engine-backed, so that it can be moved to the processed rectangle.
  drawn = BVImage::initWithCIImage(drawn->CIImage());
  std::lock_guard lock(cacheMutex_);
  cachedGradientMaskImages_[key] = drawn;
  return drawn;
}

std::shared_ptr<CIFilter> BVRecipeMask::maskCIFilterForFilter(const BVFilter& filter) {
  std::shared_ptr<BVImage> mask = maskImageForFilter(filter);
  CIImageRef picture = mask ? mask->CIImage() : nullptr;
  if (!picture) return nullptr;
  auto operation =
      CIFilter::filterWithName(grayscale_ || preferredEmbeddedType_ ? "CIBlendWithMask" : "CIBlendWithAlphaMask");
  operation->setValue(picture, "inputMaskImage");
  return operation;
}

void BVRecipeMask::clearProcessingCache() {
  std::lock_guard lock(cacheMutex_);
  cachedGradientMaskImages_.clear();
}

}  // namespace brenvia
