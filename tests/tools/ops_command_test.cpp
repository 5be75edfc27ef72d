#include "cli_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "operators/library_operators.h"
#include "platform/coreimage/ci_filter.h"

namespace brenvia {
namespace {

TEST(OpsCommand, ListsEveryRegisteredOperationWithInputs) {
  BVRegisterLibraryOperators();
  auto result = test::runCli("ops");
  ASSERT_EQ(result.status, 0) << result.out;
  for (const auto& name : CIFilter::filterNames()) EXPECT_NE(result.out.find(name + "\n"), std::string::npos) << name;
  EXPECT_NE(result.out.find("  inputRVector (CIVector) default [1 0 0 0]"), std::string::npos);
}

TEST(OpsCommand, JsonHoldsAttributesAndInputKeys) {
  auto result = test::runCli("ops CIExposureAdjust --json");
  ASSERT_EQ(result.status, 0) << result.out;
  auto json = nlohmann::json::parse(result.out);
  ASSERT_EQ(json.size(), 1u);
  EXPECT_EQ(json[0]["CIAttributeFilterName"], "CIExposureAdjust");
  EXPECT_EQ(json[0]["inputKeys"], nlohmann::json({"inputImage", "inputEV"}));
  EXPECT_EQ(json[0]["inputEV"]["CIAttributeDefault"], 0.0);
}

TEST(OpsCommand, UnknownOperationAndUsageErrors) {
  auto unknown = test::runCli("ops CINothing");
  EXPECT_EQ(unknown.status, 1);
  EXPECT_EQ(unknown.out, "brenvia: ops: unknown operation `CINothing`\n");
  EXPECT_EQ(test::runCli("frobnicate").status, 2);
}

}  // namespace
}  // namespace brenvia
