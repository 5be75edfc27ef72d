#include "commands.h"
#include "messages.h"

#include "curves/acv_object.h"
#include "curves/curves_plot.h"
#include "platform/imageio/image_io.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>

namespace brenvia::cli {
namespace {

void printCurve(const CColorCurve& curve) {
  std::cout << curve.name().value_or("") << ':';
  for (const CGPoint& p : curve.points()) std::cout << ' ' << NSStringFromCGPoint(p);
  std::cout << '\n';
}

// A 510 x 510 PNG of the curves on a grid, written through a temporary name.
bool writePlot(const CACVObject& curves, const std::string& path) {
  CGImageRef plot = BVCurvesImage(curves, 2.0, true);
  std::vector<uint8_t> png;
  std::string error = "cannot draw the curves";
  if (plot && imageio::encodePNG(*plot, {}, png) && imageio::writeFileAtomically(path, png, &error)) return true;
  fail(path, error);
  return false;
}

}  // namespace

void addCurveCommand(CLI::App& app) {
  auto path = std::make_shared<std::string>();
  auto plot = std::make_shared<std::string>();
  auto* cmd = app.add_subcommand("curve", "Show the tone curves of an ACV file: control points of each channel");
  cmd->add_option("file", *path, "ACV curve file")->required();
  cmd->add_option("-o,--output", *plot, "Also draw the curves as a PNG plot (one line per channel)");
  cmd->callback([path, plot] {
    auto curves = CACVObject::initWithURL(*path);
    if (!curves) {
      fail(*path, "not a readable ACV curve file");
      setExitStatus(1);
      return;
    }
    for (const auto& curve : {curves->RGBCurve(), curves->redCurve(), curves->greenCurve(), curves->blueCurve()})
      printCurve(*curve);
    if (!plot->empty() && !writePlot(*curves, *plot)) setExitStatus(1);
  });
}

}  // namespace brenvia::cli
