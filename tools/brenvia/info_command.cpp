#include "commands.h"
#include "messages.h"

#include "image/image.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace brenvia::cli {

namespace {

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
  cmd->callback([path] {
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
  });
}

}  // namespace brenvia::cli
