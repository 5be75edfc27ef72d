#include "processor/image_processor.h"

#include "image/graphics_utilities.h"
#include "platform/foundation/log.h"
#include "platform/imageio/image_io.h"
#include "processor/filter_chain.h"

#include <nlohmann/json.hpp>

#include <algorithm>
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

bool hasSixteenBitSamples(CGPixelFormat format) {
  return format == CGPixelFormat::Gray16 || format == CGPixelFormat::RGB16 || format == CGPixelFormat::RGBA16;
}

// The pixels the picture was made from: its bitmap, or the decoded bitmap under its engine image.
CGImageRef sourceBitmap(const BVImage& image) {
  if (image.backingStorage() == BVImage::kBackingStorageCoreGraphics) return image.CGImage();
  CIImageRef engineImage = image.CIImage();
  return engineImage ? engineImage->bitmap() : nullptr;
}

// The picture with its orientation applied to the pixels (and recorded as 1), its canvas and scale
// adjustments kept for the run.
std::shared_ptr<BVImage> uprightPicture(const BVImage& image) {
  CIImageRef stored = image.CIImage();
  if (!stored) return nullptr;
  Value properties = stored->properties();
  properties["Orientation"] = 1;
  const int orientation = image.EXIFOrientation();
  const auto turned = [&](const CIImageRef& map) {
    return map ? map->imageByApplyingOrientation(orientation) : nullptr;
  };
  auto upright = BVImage::initWithCIImage(
      stored->imageByApplyingOrientation(orientation)->imageBySettingProperties(std::move(properties)),
      turned(image.disparityImageStorage()), turned(image.portraitMatteImageStorage()));
  upright->setScaleAdjustment(image.scaleAdjustment());
  upright->setCanvasAdjustment(image.canvasAdjustment());
  return upright;
}

// Works and writes in the picture's own colour space, so that its profile is kept.
std::shared_ptr<CIContext> contextForFile(const CGColorSpaceRef& space, int threads) {
  CIContextOptions options;
  options.threads = threads;
  if (space) options.workingColorSpace = options.outputColorSpace = space;
  return CIContext::contextWithOptions(options);
}

// Renders the image's extent into the file in `space`: JPEG in bands straight into the file, the
// other formats through one bitmap (float when 16-bit samples are asked for).
bool writeImageFile(const CIContext& context, const CIImageRef& image, const CGColorSpaceRef& space,
                    const std::string& path, imageio::ImageFormat format, const imageio::EncodeOptions& encode,
                    BVFileOutputFailure& failure) {
  std::string error;
  if (format == imageio::ImageFormat::JPEG) {
    if (context.writeJPEGRepresentationOfImage(image, path, space, {encode.quality}, &error)) return true;
    failure = {false, error};
    return false;
  }
  CGImageRef bitmap =
      context.createCGImage(image, image->extent(), encode.sixteenBit ? kCIFormatRGBAf : kCIFormatRGBA8, space);
  if (!bitmap) {
    failure = {true, "rendering failed"};
    return false;
  }
  std::vector<uint8_t> bytes;
  if (!imageio::encode(*bitmap, format, encode, bytes)) {
    failure = {false, "cannot encode the picture"};
    return false;
  }
  if (imageio::writeFileAtomically(path, bytes, &error)) return true;
  failure = {false, error};
  return false;
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
                                               const Value& metadata,
                                               std::shared_ptr<const void> randomizationContext) {
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

std::shared_ptr<CIContext> BVImageProcessor::contextFor(const BVImage& image, bool rendersHere) {
  CIContextOptions options;
  if (CGColorSpaceRef space = image.colorSpace()) {
    colorSpace_ = space;
    options.outputColorSpace = space;
    options.workingColorSpace = space;
  }
  options.useSoftwareRenderer = options_.renderWithCPUContext;
  if (!context_) context_ = BVGetCIContextWithOptionsAndContext(options);
  if (rendersHere) {
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

std::optional<CIFaceFeature> BVImageProcessor::detectedKeyFaceFeature() const {
  std::lock_guard lock(faceMutex_);
  if (keyFace_) return *keyFace_;
  keyFace_.emplace();
  auto detector = faceSource_ ? CIDetector::detectorOfType(CIDetectorTypeFace, context_, Value::object()) : nullptr;
  if (!detector) return std::nullopt;
  const auto area = [](const CIFaceFeature& f) { return f.bounds.size.width * f.bounds.size.height; };
  for (const CIFaceFeature& face : detector->featuresInImage(faceSource_)) {
    if (!*keyFace_ || area(face) > area(**keyFace_)) *keyFace_ = face;
  }
  return *keyFace_;
}

CIImageRef BVImageProcessor::chainedImage(const std::shared_ptr<BVImage>& image, const BVFilterArray& filters,
                                          bool rendersHere, bool edgesExtend) {
  CIImageRef adjusted = image->adjustedCIImage();
  if (!adjusted) {
    BVLog("[BVImageProcessor] Could not render adjusted CIImage to process. Output will be nil.");
    return nullptr;
  }
  processingRect_ = adjusted->extent();
  // Maps follow a picture scaled for the render onto the processed rectangle.
  const auto fitted = [&](const CIImageRef& map) -> CIImageRef {
    if (!map) return nullptr;
    const CGRect from = map->extent(), to = processingRect_;
    if (CGRectEqualToRect(from, to)) return map;
    CGAffineTransform placed =
        CGAffineTransformMakeScale(to.size.width / from.size.width, to.size.height / from.size.height);
    placed.tx = to.origin.x - from.origin.x * placed.a;
    placed.ty = to.origin.y - from.origin.y * placed.d;
    return map->imageByApplyingTransform(placed);
  };
  disparityImage_ = fitted(image->disparityImageStorage());
  portraitMatteImage_ = fitted(image->portraitMatteImageStorage());
  {
    std::lock_guard lock(faceMutex_);
    faceSource_ = adjusted;
    keyFace_.reset();
  }
  for (const auto& filter : filters) {
    if (filter) filter->setProcessor(shared_from_this());
  }
  contextFor(*image, rendersHere);
  CIImageRef result =
      CIImageWithBVFilters(edgesExtend ? adjusted->imageByClampingToExtent() : adjusted, filters, processingRect_.size);
  if (!result) BVLog("[BVImageProcessor] Could not create CIFilter chain from BVFilters, returning nil image.");
  return result;
}

std::shared_ptr<BVImage> BVImageProcessor::runCoreImage(const std::shared_ptr<BVImage>& image,
                                                        const BVFilterArray& filters, const std::string* path,
                                                        const Value& metadata) {
  CIImageRef result = chainedImage(image, filters, !options_.returnCIImage);
  if (!result) return nullptr;
  if (path) {
    CIImageRef cropped = result->imageByCroppingToRect(processingRect_);
    if (!metadata.is_null()) cropped = cropped->imageBySettingProperties(metadata);
    BVFileOutputFailure failure;
    if (writeImageFile(*context_, cropped, colorSpace_, *path, imageio::ImageFormat::JPEG, {}, failure)) {
      lastWriteFailed_ = false;
    } else {
      BVLog("[BVImageProcessor] Error processing image to file: " + failure.reason);
    }
    return nullptr;
  }
  if (options_.returnCIImage) {
    if (CGRectIsInfinite(result->extent())) result = result->imageByCroppingToRect(processingRect_);
    return BVImage::initWithCIImage(result);
  }
  CGImageRef bitmap = context_->createCGImage(result, processingRect_);
  return bitmap ? BVImage::initWithCGImage(bitmap) : nullptr;
}

std::shared_ptr<BVImage> BVImageProcessor::pictureWithContentsOfFile(const std::string& path, size_t maxSize,
                                                                     bool withDisparity, bool withMatte) {
  auto picture = BVImage::initWithCIImage(CIImage::imageWithContentsOfFile(path, maxSize));
  // The edges that guide a map's upsampling are read from a decode of about twice the map's size.
  const auto guideFor = [&](const CIImageRef& map) {
    const CGSize size = map ? map->extent().size : CGSizeZero;
    return map ? CIImage::imageWithContentsOfFile(path, size_t(2 * std::max(size.width, size.height))) : nullptr;
  };
  if (picture && withDisparity) {
    CIImageRef map = CIImage::auxiliaryImageWithContentsOfFile(path, CIImage::Auxiliary::Disparity);
    picture->setDisparityImage(map, guideFor(map));
  }
  if (picture && withMatte) {
    CIImageRef map = CIImage::auxiliaryImageWithContentsOfFile(path, CIImage::Auxiliary::PortraitMatte);
    picture->setPortraitMatteImage(map, guideFor(map));
  }
  if (!picture || maxSize == 0) return picture;
  const CGSize size = picture->size();
  const double longer = std::max(size.width, size.height);
  if (longer > double(maxSize)) picture->setScaleAdjustment(double(maxSize) / longer);
  return picture;
}

bool BVImageProcessor::recipeUsesEmbeddedMap(const Value& recipe, std::string_view kind) {
  if (!recipe.is_array()) return false;
  return std::any_of(recipe.begin(), recipe.end(), [&](const Value& filter) {
    const Value* mask = BVMember(filter, "mask");
    const Value* preferred = mask ? BVMember(*mask, "preferEmbedded") : nullptr;
    return preferred && BVString(*preferred) == kind;
  });
}

CIImageRef BVImageProcessor::fileRunResult(const std::shared_ptr<BVImage>& picture,
                                           const std::shared_ptr<CIContext>& context) {
  originalImage_ = picture;
  randomizationContext_ = nullptr;
  const BVFilterArray filters = filtersOfRun(filters_);
  if (options_.renderWithCoreGraphics) {
    // The drawing road works on a bitmap of the upright, scaled picture.
    CIImageRef adjusted = picture->adjustedCIImage();
    auto drawn = runCoreGraphics(BVImage::initWithCGImage(context->createCGImage(adjusted, adjusted->extent())),
                                 filters, nullptr, nullptr);
    return drawn ? drawn->CIImage() : nullptr;
  }
  setCoreImageContext(context);
  // Neighbourhood filters (blurs, sharpening) read the picture's edge pixels beyond its border, so
  // that no dark or light frame appears; the result is cropped back to the picture.
  CIImageRef result = chainedImage(picture, filters, false, true);
  // The file holds the whole pixels of the picture the filters worked on, whatever extent the filters
  // gave their result.
  return result ? result->imageByCroppingToRect(CGRectIntegral(processingRect_)) : nullptr;
}

bool BVImageProcessor::processToFile(const std::shared_ptr<BVImage>& image, const std::string& path,
                                     const BVFileOutputOptions& options, BVFileOutputFailure* failure) {
  BVFileOutputFailure unreported;
  BVFileOutputFailure& why = failure ? *failure : unreported;
  const std::optional<imageio::ImageFormat> format = imageio::formatForPath(path);
  if (!format) {
    why = {false, "the name asks for no known picture format"};
    return false;
  }
  CGImageRef source = image ? sourceBitmap(*image) : nullptr;
  auto picture = image ? uprightPicture(*image) : nullptr;
  // A picture found damaged only while it is rendered is the picture's failure, whatever failed next.
  auto failed = [&](bool inPicture, std::string reason) {
    if (source && !source->complete()) {
      why = {true, "cannot read the picture"};
    } else {
      why = {inPicture, std::move(reason)};
    }
    return false;
  };
  if (!picture) return failed(true, "cannot read the picture");
  std::shared_ptr<CIContext> context = options_.sharedCIContext;
  if (!context) context = contextForFile(picture->colorSpace(), options.threads);
  CIImageRef result = fileRunResult(picture, context);
  if (!result) return failed(true, "rendering failed");
  imageio::EncodeOptions encode;
  encode.quality = options.quality;
  encode.sixteenBit = source && hasSixteenBitSamples(source->format()) && imageio::formatHoldsSixteenBits(*format);
  BVFileOutputFailure written;
  if (writeImageFile(*context, result, context->outputColorSpace(), path, *format, encode, written)) return true;
  return failed(written.picture, written.reason);
}

}  // namespace brenvia
