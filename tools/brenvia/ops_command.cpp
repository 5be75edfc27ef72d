#include "commands.h"
#include "messages.h"

#include "operators/library_operators.h"
#include "platform/coreimage/ci_filter.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>

namespace brenvia::cli {
namespace {

int status = 0;

std::string describe(const CIValue& v) {
  if (v.isNull()) return "";
  if (auto d = v.get<double>()) return nlohmann::json(*d).dump();
  if (auto s = v.get<std::string>()) return *s;
  if (auto vec = v.get<CIVector>()) return vec->stringRepresentation();
  if (auto c = v.get<CIColor>()) return "(" + c->stringRepresentation() + ")";
  if (auto t = v.get<CGAffineTransform>()) {
    return "[" + nlohmann::json(t->a).dump() + " " + nlohmann::json(t->b).dump() + " " + nlohmann::json(t->c).dump() +
           " " + nlohmann::json(t->d).dump() + " " + nlohmann::json(t->tx).dump() + " " + nlohmann::json(t->ty).dump() +
           "]";
  }
  return "";
}

void printText(const std::vector<std::string>& names) {
  for (const auto& name : names) {
    auto filter = CIFilter::filterWithName(name);
    if (!filter) continue;
    std::cout << name << '\n';
    for (const auto& input : filter->classAttributes().inputs) {
      std::cout << "  " << input.key << " (" << input.attributeClass << ")";
      std::string d = describe(input.defaultValue);
      if (!d.empty()) std::cout << " default " << d;
      if (input.min) std::cout << " min " << nlohmann::json(*input.min).dump();
      if (input.max) std::cout << " max " << nlohmann::json(*input.max).dump();
      std::cout << '\n';
    }
  }
}

void printJson(const std::vector<std::string>& names) {
  nlohmann::json all = nlohmann::json::array();
  for (const auto& name : names) {
    if (auto filter = CIFilter::filterWithName(name)) {
      nlohmann::json entry = filter->attributes();
      entry["inputKeys"] = filter->inputKeys();
      all.push_back(std::move(entry));
    }
  }
  std::cout << all.dump(2) << '\n';
}

}  // namespace

int exitStatus() { return status; }
void setExitStatus(int s) { status = s; }

void addOpsCommand(CLI::App& app) {
  auto* cmd = app.add_subcommand("ops", "List the registered image operations with their inputs and defaults");
  auto json = std::make_shared<bool>(false);
  auto name = std::make_shared<std::string>();
  cmd->add_flag("--json", *json, "Print the attributes of each operation as JSON");
  cmd->add_option("name", *name, "Show only this operation");
  cmd->callback([json, name] {
    BVRegisterLibraryOperators();
    std::vector<std::string> names = CIFilter::filterNames();
    if (!name->empty()) {
      if (!CIFilter::filterWithName(*name)) {
        fail("ops", "unknown operation `" + *name + "`");
        setExitStatus(1);
        return;
      }
      names = {*name};
    }
    *json ? printJson(names) : printText(names);
  });
}

}  // namespace brenvia::cli
