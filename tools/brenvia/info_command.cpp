#include "commands.h"
#include "messages.h"

#include "image/image.h"
#include "platform/coreimage/ci_detector.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cmath>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace brenvia::cli {
namespace {

std::string whole(double v) { return std::to_string(std::lround(v)); }

// One line per face of the upright picture, in its coordinates (origin at the bottom left). False
// when faces cannot be looked for.
bool listFaces(const BVImage& picture) {
  auto detector = CIDetector::detectorOfType(CIDetectorTypeFace, nullptr, Value::object());
  if (!detector) return false;
  const std::vector<CIFaceFeature> faces = detector->featuresInImage(picture.imageWithUpOrientation()->CIImage());
  std::cout << "faces: " << faces.size() << '\n';
  for (const CIFaceFeature& face : faces) {
    const CGRect& b = face.bounds;
    std::cout << "face: " << whole(b.origin.x) << ' ' << whole(b.origin.y) << ' ' << whole(b.size.width) << ' '
              << whole(b.size.height) << ", left eye " << whole(face.leftEyePosition.x) << ' '
              << whole(face.leftEyePosition.y) << ", right eye " << whole(face.rightEyePosition.x) << ' '
              << whole(face.rightEyePosition.y) << '\n';
  }
  return true;
}

// The colour space as people name it. Other RGB profiles never reach here: they are converted to
// sRGB as the picture is read.
std::string readableName(const CGColorSpaceRef& space) {
  static const std::map<std::string_view, std::string_view> kNames{
      {kCGColorSpaceSRGB, "sRGB"},
      {kCGColorSpaceDisplayP3, "Display P3"},
      {kCGColorSpaceLinearSRGB, "linear sRGB"},
      {kCGColorSpaceExtendedSRGB, "extended sRGB"},
      {kCGColorSpaceExtendedLinearSRGB, "extended linear sRGB"},
      {kCGColorSpaceGenericGrayGamma2_2, "grey, gamma 2.2"},
  };
  if (!space) return "none";
  if (auto known = kNames.find(space->name()); known != kNames.end()) return std::string(known->second);
  return space->model() == CGColorSpaceModel::Monochrome ? "grey" : "sRGB";
}

}  // namespace

void addInfoCommand(CLI::App& app) {
  auto path = std::make_shared<std::string>();
  auto* cmd = app.add_subcommand("info", "Describe a picture: size, orientation, colour space, depth and matte");
  cmd->add_option("input", *path, "Picture file")->required();
  auto faces = std::make_shared<bool>(false);
  cmd->add_flag("--faces", *faces, "Also list the faces found: bounds (x y width height, y up) and eye positions");
  cmd->callback([path, faces] {
    // The engine-image backing reads the file's orientation as well as its pixels.
    auto picture =
        BVImage::initWithContentsOfFile(*path, Value{{std::string(kBVImageInitializationOptionStorageAPIKey),
                                                      std::string(kBVImageInitializationOptionStorageAPICoreImage)}});
    if (!picture || !picture->CIImage()) {
      fail(*path, "cannot read the picture");
      setExitStatus(1);
      return;
    }
    CGSize size = picture->size(), shown = picture->sizeWithOrientation();
    CGColorSpaceRef space = picture->colorSpace();
    std::cout << "size: " << size.width << " x " << size.height << '\n'
              << "orientation: " << picture->EXIFOrientation() << " (shown " << shown.width << " x " << shown.height
              << ")\n"
              << "colour space: " << readableName(space) << '\n'
              << "depth: " << (picture->disparityImageStorage() ? "yes" : "no") << '\n'
              << "matte: " << (picture->portraitMatteImageStorage() ? "yes" : "no") << '\n';
    if (*faces && !listFaces(*picture)) {
      std::cerr << "brenvia: faces cannot be looked for; see the line above\n";
      setExitStatus(1);
    }
  });
}

}  // namespace brenvia::cli
