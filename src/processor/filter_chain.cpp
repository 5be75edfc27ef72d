#include "processor/filter_chain.h"

#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"

namespace brenvia {
namespace {

CIOperationRole roleOf(const CIFilter& f) { return f.classAttributes().role; }

bool hasInput(const CIFilter& f, std::string_view key) {
  for (const auto& input : f.classAttributes().inputs) {
    if (input.key == key) return true;
  }
  return false;
}

bool isSet(const CIFilter& f, std::string_view key) { return !f.valueForKey(key).isNull(); }

CIImageRef sourceOver(const CIImageRef& image, const CIImageRef& background) {
  auto over = CIFilter::filterWithName("CISourceOverCompositing");
  over->setValue(image, kCIInputImageKey);
  over->setValue(background, kCIInputBackgroundImageKey);
  return over->outputImage();
}

}  // namespace

void bv_CIImageChainWithFilters(const CIFilterArray& operations, CIImageRef& previous, CIImageRef& current) {
  std::shared_ptr<CIFilter> pendingAlpha;
  for (size_t i = 0; i < operations.size(); ++i) {
    CIFilter& f = *operations[i];
    if (roleOf(f) == CIOperationRole::Mask && !isSet(f, kCIInputImageKey)) {
      f.setValue(current, kCIInputImageKey);
      f.setValue(CIImage::emptyImage(), kCIInputBackgroundImageKey);
      current = f.outputImage();
      continue;
    }
    if (hasInput(f, kCIInputBackgroundImageKey)) {
      if (isSet(f, kCIInputImageKey)) {
        f.setValue(current, kCIInputBackgroundImageKey);
      } else {
        f.setValue(pendingAlpha ? pendingAlpha->outputImage() : current, kCIInputImageKey);
        f.setValue(previous, kCIInputBackgroundImageKey);
      }
      pendingAlpha = nullptr;
    } else if (hasInput(f, kCIInputImageKey)) {
      f.setValue(pendingAlpha ? sourceOver(pendingAlpha->outputImage(), previous) : current, kCIInputImageKey);
      if (roleOf(f) == CIOperationRole::Opacity) {
        pendingAlpha = operations[i];
        if (i + 1 == operations.size()) current = sourceOver(f.outputImage(), previous);
        continue;
      }
      pendingAlpha = nullptr;
    }
    previous = current;
    current = f.outputImage();
  }
}

CIImageRef CIImageWithCIFilters(const CIImageRef& image, const CIFilterArray& operations) {
  CIImageRef previous = image, current = image;
  bv_CIImageChainWithFilters(operations, previous, current);
  return current;
}

CIImageRef CIImageWithBVFilters(const CIImageRef& image, const BVFilterArray& filters, CGSize size) {
  if (!image) {
    BVLog(
        "[BVUtilities] CIImageWithBVFilters cannot chain with a nil image "
        "input.");
    return nullptr;
  }
  CIImageRef previous = image, current = image;
  for (const auto& filter : filters) {
    if (!filter) throw std::invalid_argument("all filters must be decendent of class BVFilter");
    if (filter->isEnabled() && filter->shouldApply()) {
      filter->prepareToApply();
      bv_CIImageChainWithFilters(filter->CIFiltersForSize(size), previous, current);
    }
  }
  return current;
}

std::shared_ptr<CIContext> BVGetCIContextWithOptionsAndContext(const CIContextOptions& options) {
  return CIContext::contextWithOptions(options);
}

double BVMemoryCostForFilters(const BVFilterArray& filters) {
  double cost = 0.0;
  for (const auto& filter : filters) cost += filter->memoryCost();
  return cost;
}

}  // namespace brenvia
