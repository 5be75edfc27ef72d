#include "platform/coreimage/ci_detector.h"

#include "platform/coreimage/ci_context.h"
#include "platform/foundation/log.h"

#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <numbers>
#include <optional>
#include <sstream>

namespace brenvia {

// Classifiers keep scratch state while detecting, so each is used by one caller at a time.
struct CIDetector::Cascades {
  std::mutex mutex;
  cv::CascadeClassifier faces, eyes, eyesWithGlasses;
};

namespace {

constexpr double kLongestDetectionSide = 1024;
constexpr std::string_view kFaceCascade = "haarcascade_frontalface_default.xml";

// The folders where the data package's cascades may be: only the one named in
// BRENVIA_CASCADE_FOLDER when it is set, else the one of the OpenCV the library was built with and
// those of the system's data folders.
std::vector<std::filesystem::path> cascadeFolders() {
  if (const char* chosen = std::getenv("BRENVIA_CASCADE_FOLDER")) return {chosen};
  std::vector<std::filesystem::path> folders;
#ifdef BRENVIA_OPENCV_CASCADES
  folders.emplace_back(BRENVIA_OPENCV_CASCADES);
#endif
  const char* data = std::getenv("XDG_DATA_DIRS");
  std::stringstream list(data && *data ? data : "/usr/local/share:/usr/share");
  for (std::string folder; std::getline(list, folder, ':');) {
    if (!folder.empty()) folders.push_back(std::filesystem::path(folder) / "opencv4" / "haarcascades");
  }
  return folders;
}

std::shared_ptr<CIDetector::Cascades> loadCascades() {
  static std::mutex mutex;
  static std::shared_ptr<CIDetector::Cascades> loaded;
  std::lock_guard lock(mutex);
  if (loaded) return loaded;
  std::error_code error;
  std::string searched;
  for (const std::filesystem::path& folder : cascadeFolders()) {
    searched += (searched.empty() ? "" : ", ") + folder.string();
    if (!std::filesystem::exists(folder / kFaceCascade, error)) continue;
    auto cascades = std::make_shared<CIDetector::Cascades>();
    if (!cascades->faces.load((folder / kFaceCascade).string()) ||
        !cascades->eyes.load((folder / "haarcascade_eye.xml").string())) {
      BVLog("[CIDetector] The face cascades in " + folder.string() + " could not be read.");
      return nullptr;
    }
    cascades->eyesWithGlasses.load((folder / "haarcascade_eye_tree_eyeglasses.xml").string());
    return loaded = cascades;
  }
  BVLog("[CIDetector] Face detection needs the Haar cascade files of the opencv-data package; none found in " +
        searched + ".");
  return nullptr;
}

// 8-bit brightness of the picture at `scale`, top row first, histogram equalised.
std::optional<cv::Mat> greyCopy(const CIContext& context, const CIImageRef& image, double scale) {
  CIImageRef reduced = scale == 1 ? image : image->imageByApplyingTransform(CGAffineTransformMakeScale(scale, scale));
  const CGRect e = CGRectIntegral(reduced->extent());
  CGImageRef pixels = context.createCGImage(reduced, e);
  if (!pixels) return std::nullopt;
  cv::Mat grey(int(pixels->height()), int(pixels->width()), CV_8UC1);
  for (size_t y = 0; y < pixels->height(); ++y) {
    const uint8_t* row = pixels->row(y);
    uint8_t* out = grey.ptr<uint8_t>(int(y));
    for (size_t x = 0; x < pixels->width(); ++x) {
      const uint8_t* p = row + 4 * x;
      out[x] = uint8_t((2126 * p[0] + 7152 * p[1] + 722 * p[2] + 5000) / 10000);
    }
  }
  cv::equalizeHist(grey, grey);
  return grey;
}

// Eye centres in the box (top-left origin, y down): the two largest detections on either side of
// the box's middle, else where faces have them.
std::pair<cv::Point2d, cv::Point2d> eyeCentres(CIDetector::Cascades& cascades, const cv::Mat& grey,
                                               const cv::Rect& face) {
  const cv::Rect upper(face.x, face.y, face.width, int(face.height * 0.6));
  const cv::Mat region = grey(upper);
  const cv::Size smallest(std::max(4, face.width / 10), std::max(4, face.width / 10));
  for (cv::CascadeClassifier* cascade : {&cascades.eyes, &cascades.eyesWithGlasses}) {
    if (cascade->empty()) continue;
    std::vector<cv::Rect> found;
    cascade->detectMultiScale(region, found, 1.1, 3, 0, smallest, cv::Size(face.width / 2, face.width / 2));
    std::optional<cv::Rect> left, right;
    for (const cv::Rect& eye : found) {
      std::optional<cv::Rect>& side = eye.x + eye.width / 2 < face.width / 2 ? left : right;
      if (!side || eye.area() > side->area()) side = eye;
    }
    if (left && right) {
      auto centre = [](const cv::Rect& r) { return cv::Point2d(r.x + r.width / 2.0, r.y + r.height / 2.0); };
      return {centre(*left), centre(*right)};
    }
  }
  return {{0.30 * face.width, 0.38 * face.height}, {0.70 * face.width, 0.38 * face.height}};
}

}  // namespace

std::shared_ptr<CIDetector> CIDetector::detectorOfType(std::string_view type, const std::shared_ptr<CIContext>& context,
                                                       const Value& options) {
  if (type != CIDetectorTypeFace) {
    BVLog("[CIDetector] Unsupported detector type " + std::string(type));
    return nullptr;
  }
  std::shared_ptr<Cascades> cascades = loadCascades();
  if (!cascades) return nullptr;
  auto detector = std::make_shared<CIDetector>();
  detector->context_ = context ? context : CIContext::context();
  detector->cascades_ = std::move(cascades);
  if (const Value* accuracy = BVMember(options, CIDetectorAccuracy)) {
    detector->highAccuracy_ = BVString(*accuracy).value_or("") != CIDetectorAccuracyLow;
  }
  if (const Value* size = BVMember(options, CIDetectorMinFeatureSize)) {
    detector->minFeatureSize_ = std::clamp(BVNumber(*size).value_or(0.05), 0.0, 1.0);
  }
  return detector;
}

std::vector<CIFaceFeature> CIDetector::featuresInImage(const CIImageRef& image) const {
  if (!image) return {};
  const CGRect extent = image->extent();
  if (!std::isfinite(extent.size.width) || !std::isfinite(extent.size.height) || extent.size.width < 1 ||
      extent.size.height < 1)
    return {};
  const double k = std::min(1.0, kLongestDetectionSide / std::max(extent.size.width, extent.size.height));
  std::optional<cv::Mat> grey = greyCopy(*context_, image, k);
  if (!grey) return {};
  const int shorter = std::min(grey->cols, grey->rows);
  const int minimum = std::max(24, int(std::lround(minFeatureSize_ * shorter)));
  const CGRect scaled = CGRectIntegral(CGRectApplyAffineTransform(extent, CGAffineTransformMakeScale(k, k)));

  std::lock_guard lock(cascades_->mutex);
  std::vector<cv::Rect> boxes;
  cascades_->faces.detectMultiScale(*grey, boxes, highAccuracy_ ? 1.05 : 1.2, highAccuracy_ ? 8 : 3, 0,
                                    cv::Size(minimum, minimum));
  // Back to the picture: x from the left edge, y up from the bottom edge.
  const double top = scaled.origin.y + scaled.size.height;
  const auto point = [&](double x, double y) { return CGPoint{(scaled.origin.x + x) / k, (top - y) / k}; };
  std::vector<CIFaceFeature> faces;
  for (const cv::Rect& box : boxes) {
    CIFaceFeature face;
    const CGPoint bottomLeft = point(box.x, box.br().y);
    face.bounds = CGRectMake(bottomLeft.x, bottomLeft.y, box.width / k, box.height / k);
    const auto [left, right] = eyeCentres(*cascades_, *grey, box);
    face.leftEyePosition = point(box.x + left.x, box.y + left.y);
    face.rightEyePosition = point(box.x + right.x, box.y + right.y);
    face.mouthPosition = point(box.x + 0.5 * box.width, box.y + 0.78 * box.height);
    face.hasLeftEyePosition = face.hasRightEyePosition = face.hasMouthPosition = face.hasFaceAngle = true;
    face.faceAngle =
        std::atan2(face.rightEyePosition.y - face.leftEyePosition.y, face.rightEyePosition.x - face.leftEyePosition.x) *
        180 / std::numbers::pi;
    faces.push_back(face);
  }
  std::sort(faces.begin(), faces.end(), [](const CIFaceFeature& a, const CIFaceFeature& b) {
    return std::pair(a.bounds.origin.x, a.bounds.origin.y) < std::pair(b.bounds.origin.x, b.bounds.origin.y);
  });
  return faces;
}

}  // namespace brenvia
