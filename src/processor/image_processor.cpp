#include "processor/image_processor.h"

#include "image/graphics_utilities.h"
#include "platform/foundation/log.h"
#include "processor/filter_chain.h"

#include <nlohmann/json.hpp>

#include <cstdio>

namespace brenvia {
namespace {

// An opaque filter hides what was made before it: the run starts there.
BVFilterArray filtersOfRun(const BVFilterArray& filters) {
  for (size_t i = 0; i < filters.size(); ++i) {
    if (filters[i] && filters[i]->isOpaque()) return BVFilterArray(filters.begin() + std::ptrdiff_t(i), filters.end());
  }
  return filters;
}

std::string formatNumber(const char* format, double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, format, value);
  return buffer;
}

}  // namespace

BVImageProcessorOptions BVImageProcessorOptions::copy() const {
  BVImageProcessorOptions other = *this;
  if (input) other.input = input->copy();
  return other;
}

std::shared_ptr<BVImageProcessor> BVImageProcessor::initWithFilters(BVFilterArray filters,
                                                                    std::optional<BVImageProcessorOptions> options) {
  auto processor = std::shared_ptr<BVImageProcessor>(new BVImageProcessor());
  processor->filters_ = std::move(filters);
  processor->options_ = options ? std::move(*options) : BVImageProcessorOptions{};
  processor->context_ = processor->options_.sharedCIContext;
  return processor;
}

std::shared_ptr<BVImage> BVImageProcessor::process(const std::shared_ptr<BVImage>& image) {
  return run(image, nullptr, nullptr, nullptr);
}

std::shared_ptr<BVImage> BVImageProcessor::process(const std::shared_ptr<BVImage>& image,
                                                   std::shared_ptr<const void> randomizationContext) {
  return run(image, nullptr, nullptr, std::move(randomizationContext));
}

bool BVImageProcessor::processAsJPEG(const std::shared_ptr<BVImage>& image, const std::string& path,
                                     const Value& metadata) {
  lastWriteFailed_ = true;
  run(image, &path, metadata, nullptr);
  return !lastWriteFailed_;
}

std::string BVImageProcessor::processAsTemporaryJPEG(const std::shared_ptr<BVImage>& image, const Value& metadata) {
  std::string path = BVTemporaryFilePath("BVImageProcessorRender", "jpg");
  processAsJPEG(image, path, metadata);
  return path;
}

std::shared_ptr<BVImage> BVImageProcessor::run(const std::shared_ptr<BVImage>& image, const std::string* path,
                                               const Value& metadata, std::shared_ptr<const void> randomizationContext) {
  originalImage_ = image;
  randomizationContext_ = std::move(randomizationContext);
  if (!image) return nullptr;
  BVFilterArray filters = filtersOfRun(filters_);
  if (options_.renderWithCoreGraphics) return runCoreGraphics(image, filters, path, metadata);
  return runCoreImage(image, filters, path, metadata);
}

void BVImageProcessor::setCoreImageContext(std::shared_ptr<CIContext> context) {
  context_ = std::move(context);
  bitmapContext_.reset();
}

void BVImageProcessor::setBitmapContext(std::shared_ptr<BVBitmapContext> context) {
  bitmapContext_ = std::move(context);
  context_.reset();
}

std::shared_ptr<BVImage> BVImageProcessor::runCoreGraphics(const std::shared_ptr<BVImage>& image,
                                                           const BVFilterArray& filters, const std::string* path,
                                                           const Value& metadata) {
  CGImageRef bitmap = image->CGImage();
  if (!bitmap) return nullptr;
  const CGSize size = image->size();
  processingRect_ = CGRectMake(0, 0, size.width, size.height);
  setBitmapContext(BVBitmapContext::initWithCGImage(bitmap));
  if (!bitmapContext_) return nullptr;
  // Here prepareToApply comes before shouldApply, the reverse of the engine's chain.
  for (const auto& filter : filters) {
    if (!filter) continue;
    filter->setProcessor(shared_from_this());
    if (!filter->isEnabled()) continue;
    filter->prepareToApply();
    if (!filter->shouldApply()) continue;
    CGContextSaveGState(bitmapContext_->context());
    filter->applyToCGContext(bitmapContext_.get());
    CGContextRestoreGState(bitmapContext_->context());
  }
  auto result = BVImage::initWithCGImage(CGBitmapContextCreateImage(bitmapContext_->context()));
  bitmapContext_.reset();
  if (!path) return result;
  if (result && CGImageWriteToFile(result->CGImage(), *path, kUTTypeJPEG, metadata)) lastWriteFailed_ = false;
  return nullptr;
}

std::shared_ptr<CIContext> BVImageProcessor::contextFor(const BVImage& image) {
  CIContextOptions options;
  if (CGColorSpaceRef space = image.colorSpace()) {
    colorSpace_ = space;
    options.outputColorSpace = space;
    options.workingColorSpace = space;
  }
  options.useSoftwareRenderer = options_.renderWithCPUContext;
  if (!context_) context_ = BVGetCIContextWithOptionsAndContext(options);
  if (!options_.returnCIImage) {
    CGSize maximum = context_->inputImageMaximumSize();
    if (maximum.width < processingRect_.size.width || maximum.height < processingRect_.size.height) {
      BVLog("[BVImageProcessor] Input image exceeds maximum size for core image context (" +
            formatNumber("%0.0f", maximum.width) + "x" + formatNumber("%0.0f", maximum.height) +
            "), resetting context with CPU rendering...");
      options.useSoftwareRenderer = true;
      context_ = BVGetCIContextWithOptionsAndContext(options);
    }
  }
  return context_;
}

std::shared_ptr<BVImage> BVImageProcessor::runCoreImage(const std::shared_ptr<BVImage>& image,
                                                        const BVFilterArray& filters, const std::string* path,
                                                        const Value& metadata) {
  CIImageRef adjusted = image->adjustedCIImage();
  if (!adjusted) {
    BVLog("[BVImageProcessor] Could not render adjusted CIImage to process. Output will be nil.");
    return nullptr;
  }
  disparityImage_ = image->disparityImageStorage();
  portraitMatteImage_ = image->portraitMatteImageStorage();
  processingRect_ = adjusted->extent();
  for (const auto& filter : filters) {
    if (filter) filter->setProcessor(shared_from_this());
  }
  std::shared_ptr<CIContext> context = contextFor(*image);

  CIImageRef result = CIImageWithBVFilters(adjusted, filters, processingRect_.size);
  if (!result) {
    BVLog("[BVImageProcessor] Could not create CIFilter chain from BVFilters, returning nil image.");
    return nullptr;
  }
  if (path) {
    CIImageRef cropped = result->imageByCroppingToRect(processingRect_);
    if (!metadata.is_null()) cropped = cropped->imageBySettingProperties(metadata);
    std::string error;
    if (context->writeJPEGRepresentationOfImage(cropped, *path, colorSpace_, {1.0}, &error)) {
      lastWriteFailed_ = false;
    } else {
      BVLog("[BVImageProcessor] Error processing image to file: " + error);
    }
    return nullptr;
  }
  if (options_.returnCIImage) {
    if (CGRectIsInfinite(result->extent())) result = result->imageByCroppingToRect(processingRect_);
    return BVImage::initWithCIImage(result);
  }
  CGImageRef bitmap = context->createCGImage(result, processingRect_);
  return bitmap ? BVImage::initWithCGImage(bitmap) : nullptr;
}

}  // namespace brenvia
