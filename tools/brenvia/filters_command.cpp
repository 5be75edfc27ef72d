#include "commands.h"
#include "messages.h"

#include "filter/filter.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>

namespace brenvia::cli {
namespace {

nlohmann::json parameterJson(const BVParameterInfo& p) {
  nlohmann::json entry = {{"key", p.key}, {"kind", BVParameterKindName(p.kind)}, {"default", p.defaultValue}};
  if (p.range) {
    entry["minimum"] = p.range->minimum;
    entry["maximum"] = p.range->maximum;
  }
  entry["doc"] = p.doc;
  return entry;
}

nlohmann::json classJson(const BVFilterClass& filterClass) {
  nlohmann::json parameters = nlohmann::json::array();
  for (const BVParameterInfo& p : filterClass.make()->parameterList()) parameters.push_back(parameterJson(p));
  return {{"type", filterClass.type},
          {"class", filterClass.name},
          {"doc", filterClass.doc},
          {"parameters", std::move(parameters)}};
}

void printText(const BVFilterClass& filterClass) {
  std::cout << filterClass.type << " (" << filterClass.name << "): " << filterClass.doc << '\n';
  for (const BVParameterInfo& p : filterClass.make()->parameterList()) {
    std::cout << "  " << p.key << " (" << BVParameterKindName(p.kind) << ")";
    if (!p.defaultValue.is_null()) std::cout << " default " << p.defaultValue.dump();
    if (p.range)
      std::cout << " range " << BVShortestNumberText(p.range->minimum) << " to "
                << BVShortestNumberText(p.range->maximum);
    std::cout << ": " << p.doc << '\n';
  }
}

}  // namespace

void addFiltersCommand(CLI::App& app) {
  auto* cmd = app.add_subcommand("filters", "List the filter types a recipe can use, with their parameters");
  auto json = std::make_shared<bool>(false);
  auto type = std::make_shared<std::string>();
  cmd->add_flag("--json", *json, "Print the types and parameters as JSON");
  cmd->add_option("type", *type, "Show only this filter type");
  cmd->callback([json, type] {
    std::vector<const BVFilterClass*> classes = BVFilterClasses();
    if (!type->empty()) {
      const BVFilterClass* only = BVFilterClassForType(*type);
      if (!only) {
        fail("filters", "unknown filter type `" + *type + "`");
        setExitStatus(1);
        return;
      }
      classes = {only};
    }
    if (!*json) {
      for (const BVFilterClass* filterClass : classes) printText(*filterClass);
      return;
    }
    nlohmann::json all = nlohmann::json::array();
    for (const BVFilterClass* filterClass : classes) all.push_back(classJson(*filterClass));
    std::cout << all.dump(2) << '\n';
  });
}

}  // namespace brenvia::cli
