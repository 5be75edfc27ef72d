#include "commands.h"

#include "curves/acv_object.h"

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

}  // namespace

void addCurveCommand(CLI::App& app) {
  auto path = std::make_shared<std::string>();
  auto* cmd = app.add_subcommand("curve", "Show the tone curves of an ACV file: control points of each channel");
  cmd->add_option("file", *path, "ACV curve file")->required();
  cmd->callback([path] {
    auto curves = CACVObject::initWithURL(*path);
    if (!curves) {
      std::cerr << "brenvia: " << *path << ": not a readable ACV curve file\n";
      setExitStatus(1);
      return;
    }
    for (const auto& curve : {curves->RGBCurve(), curves->redCurve(), curves->greenCurve(), curves->blueCurve()})
      printCurve(*curve);
  });
}

}  // namespace brenvia::cli
