#pragma once

#include "filter/filter.h"
#include "filter/input.h"
#include "filter/processing.h"
#include "image/bitmap_context.h"
#include "image/image.h"
#include "platform/coreimage/ci_context.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace brenvia {

struct BVImageProcessorOptions {
  bool renderWithCoreGraphics = false;  // draw each filter on a bitmap context
  bool renderWithCPUContext = false;    // make the context with the software renderer
  bool returnCIImage = false;           // leave the result deferred
  std::shared_ptr<CIContext> sharedCIContext;
  std::shared_ptr<BVInput> input;

  // Copies the flags, shares the context and copies the input.
  BVImageProcessorOptions copy() const;
};

// How processToFile writes its file.
struct BVFileOutputOptions {
  double quality = 1.0;  // JPEG, HEIF and WebP, 0 to 1
  // Threads of the context made for the run when the processor's options share none; 0: every core.
  int threads = 0;
};

// Why processToFile failed: the picture could not be read in full or rendered (`picture` true), or
// the file could not be encoded or written (`picture` false).
struct BVFileOutputFailure {
  bool picture = false;
  std::string reason;
};

// Runs a filter array over one still image at a time and gives back an image, a deferred image
// or a file.
class BVImageProcessor final : public BVProcessing, public std::enable_shared_from_this<BVImageProcessor> {
 public:
  static constexpr std::string_view processorVersion() { return "4.7"; }

  static std::shared_ptr<BVImageProcessor> initWithFilters(BVFilterArray filters,
                                                           std::optional<BVImageProcessorOptions> options = {});

  // A run; null when the image cannot be processed (a log line says why).
  std::shared_ptr<BVImage> process(const std::shared_ptr<BVImage>& image);
  std::shared_ptr<BVImage> process(const std::shared_ptr<BVImage>& image,
                                   std::shared_ptr<const void> randomizationContext);
  // A run that writes a JPEG at quality 1.0 (through a temporary name) instead of giving an image.
  // False, with a log line, when the file could not be written.
  bool processAsJPEG(const std::shared_ptr<BVImage>& image, const std::string& path, const Value& metadata = nullptr);
  // The same into "BVImageProcessorRender-<absolute time>.jpg" in the temporary folder; the path is
  // returned whether or not the write worked.
  std::string processAsTemporaryJPEG(const std::shared_ptr<BVImage>& image, const Value& metadata = nullptr);

  // A run that writes its result to `path`, in the format the name asks for (imageio::formatForPath),
  // through a temporary name. Unlike the other runs it always applies the picture's orientation and
  // scale adjustment first: filters see the picture upright, and the file holds it upright without
  // an orientation tag. JPEG is rendered in bands, each encoded as soon as it is done; the other
  // formats from one bitmap, with 16 bits per channel in PNG and TIFF when the picture's pixels have
  // them. The result is written in the picture's colour space with its profile.
  bool processToFile(const std::shared_ptr<BVImage>& image, const std::string& path,
                     const BVFileOutputOptions& options = {}, BVFileOutputFailure* failure = nullptr);
  // A picture file as processToFile takes it: decoded no larger than a longer side of maxSize needs
  // (0: full size; the rows of a large JPEG arrive while it is rendered), with its orientation, and
  // scaled so that its longer side, upright, is at most maxSize. Null, with the decoder's log line,
  // when the file cannot be read. The file's depth map and portrait matte come along as asked,
  // brought to the decoded picture's size.
  static std::shared_ptr<BVImage> pictureWithContentsOfFile(const std::string& path, size_t maxSize = 0,
                                                            bool withDisparity = false, bool withMatte = false);
  // Whether a filter of the recipe (an array of filter dictionaries) masks by the photo's map of
  // that kind ("disparity" or "portraitMatte"), which is then worth loading.
  static bool recipeUsesEmbeddedMap(const Value& recipe, std::string_view kind);

  // BVProcessing
  std::shared_ptr<CIContext> context() const override { return context_; }
  std::shared_ptr<BVInput> input() const override { return options_.input; }
  Value output() const override { return output_; }
  CGRect processingRect() const override { return processingRect_; }
  BVFilterArray filters() const override { return filters_; }
  std::shared_ptr<const void> randomizationContext() const override { return randomizationContext_; }

  void setFilters(BVFilterArray filters) { filters_ = std::move(filters); }
  const BVImageProcessorOptions& options() const { return options_; }
  // Leaves the stored context alone.
  void setOptions(BVImageProcessorOptions options) { options_ = std::move(options); }
  // The run's context is either an engine context or a bitmap context: setting one drops the other.
  const std::shared_ptr<CIContext>& coreImageContext() const { return context_; }
  void setCoreImageContext(std::shared_ptr<CIContext> context);
  // The bitmap context of a run through the drawing API, while it runs.
  const std::shared_ptr<BVBitmapContext>& bitmapContext() const { return bitmapContext_; }
  void setBitmapContext(std::shared_ptr<BVBitmapContext> context);
  const std::shared_ptr<BVImage>& originalImage() const { return originalImage_; }
  void replaceOriginalImage(std::shared_ptr<BVImage> image) { originalImage_ = std::move(image); }
  void setOutput(Value output) { output_ = std::move(output); }
  void setProcessingRect(const CGRect& rect) { processingRect_ = rect; }
  const CGColorSpaceRef& colorSpace() const { return colorSpace_; }
  CIImageRef disparityImage() const override { return disparityImage_; }
  CIImageRef portraitMatteImage() const override { return portraitMatteImage_; }
  std::optional<CIFaceFeature> detectedKeyFaceFeature() const override;

 private:
  BVImageProcessor() = default;
  // One run; with a path the result is written there and no image is returned.
  std::shared_ptr<BVImage> run(const std::shared_ptr<BVImage>& image, const std::string* path, const Value& metadata,
                               std::shared_ptr<const void> randomizationContext);
  std::shared_ptr<BVImage> runCoreImage(const std::shared_ptr<BVImage>& image, const BVFilterArray& filters,
                                        const std::string* path, const Value& metadata);
  // The engine run up to its deferred result; `rendersHere` says whether the result will be rendered
  // whole by this context, which then must be able to hold it. With `edgesExtend` the filters see the
  // picture's edge pixels repeated beyond its border.
  CIImageRef chainedImage(const std::shared_ptr<BVImage>& image, const BVFilterArray& filters, bool rendersHere,
                          bool edgesExtend = false);
  // The deferred result of a file run of the upright picture, on either road.
  CIImageRef fileRunResult(const std::shared_ptr<BVImage>& picture, const std::shared_ptr<CIContext>& context);
  // Each filter draws on a bitmap context of the picture through applyToCGContext.
  std::shared_ptr<BVImage> runCoreGraphics(const std::shared_ptr<BVImage>& image, const BVFilterArray& filters,
                                           const std::string* path, const Value& metadata);
  std::shared_ptr<CIContext> contextFor(const BVImage& image, bool rendersHere);

  BVFilterArray filters_;
  BVImageProcessorOptions options_;
  CGColorSpaceRef colorSpace_ = CGColorSpaceCreateDeviceRGB();
  CIImageRef disparityImage_, portraitMatteImage_;
  // The picture faces are looked for in, and the key face once looked for.
  CIImageRef faceSource_;
  mutable std::mutex faceMutex_;
  mutable std::optional<std::optional<CIFaceFeature>> keyFace_;
  std::shared_ptr<BVImage> originalImage_;
  Value output_;
  CGRect processingRect_ = CGRectZero;
  std::shared_ptr<const void> randomizationContext_;
  std::shared_ptr<CIContext> context_;
  std::shared_ptr<BVBitmapContext> bitmapContext_;
  bool lastWriteFailed_ = false;
};

}  // namespace brenvia
