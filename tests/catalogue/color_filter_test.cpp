#include "catalogue/color_filter.h"

#include "platform/coreimage/ci_filter.h"
#include "processor/input.h"
#include "processor/processing.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace brenvia {
namespace {

class RectProcessing : public BVProcessing {
 public:
  explicit RectProcessing(CGRect rect) : rect_(rect) {}
  std::shared_ptr<CIContext> context() const override { return nullptr; }
  std::shared_ptr<BVInput> input() const override { return nullptr; }
  Value output() const override { return Value(); }
  CGRect processingRect() const override { return rect_; }
  std::vector<std::shared_ptr<BVFilter>> filters() const override { return {}; }

 private:
  CGRect rect_;
};

std::shared_ptr<BVColorFilter> colorFilter(Value parameters) {
  parameters["type"] = "color";
  return std::dynamic_pointer_cast<BVColorFilter>(BVFilter::filterWithParameters(parameters));
}

double byte(int level) { return double(float(level) / 255.0f); }

TEST(ColorFilter, HexWinsOverComponentsAndEmptyOrBadHexKeepsTheColour) {
  struct Case {
    Value parameters;
    double r, g, b;
    size_t logged;
  };
  const std::vector<Case> cases = {
      {{{"colorRed", 255}, {"colorGreen", 128}}, 1.0, byte(128), 0.0, 0},
      {{{"colorHex", "#336699cc"}, {"colorRed", 255}}, byte(0x33), byte(0x66), byte(0x99), 0},
      {{{"colorHex", "f80"}}, 1.0, byte(0x88), 0.0, 0},
      {{{"colorHex", 7}, {"colorBlue", 51}}, 0.0, 0.0, byte(51), 0},
      {{{"colorRed", "red"}, {"colorGreen", {1}}}, 0.0, 0.0, 0.0, 0},
      {{{"colorHex", ""}}, 0.0, 0.0, 0.0, 0},
      {{{"colorHex", "#12345"}}, 0.0, 0.0, 0.0, 1}};
  for (const Case& c : cases) {
    test::LogCapture log;
    auto filter = colorFilter(c.parameters);
    EXPECT_EQ(filter->colorRed(), c.r) << c.parameters;
    EXPECT_EQ(filter->colorGreen(), c.g) << c.parameters;
    EXPECT_EQ(filter->colorBlue(), c.b) << c.parameters;
    EXPECT_EQ(log.lines.size(), c.logged) << c.parameters;
  }
  auto filter = colorFilter({{"colorHex", "#ff0000"}});
  filter->setColorHex("");
  filter->setColorHex("zz");
  EXPECT_EQ(filter->colorRed(), 1.0);
  EXPECT_EQ(filter->colorHex(), "zz");
  auto copy = std::static_pointer_cast<BVColorFilter>(filter->copy());
  EXPECT_EQ(copy->colorRed(), 1.0);
}

TEST(ColorFilter, ColourLayerCarriesTheOpacityAndCoversTheProcessedArea) {
  auto filter = colorFilter({{"colorHex", "#336699"}, {"alpha", 0.5}, {"mode", "Multiply"}});
  EXPECT_EQ(filter->description().substr(filter->description().find(';')),
            "; Multiply 50%; red = 51; green = 102; blue = 153>");
  auto processing = std::make_shared<RectProcessing>(CGRectMake(10, 20, 4, 3));
  filter->setProcessor(processing);
  CIFilterArray operations = filter->CIFiltersForSize({4, 3});
  ASSERT_EQ(operations.size(), 1u);
  EXPECT_EQ(operations[0]->name(), "CIMultiplyBlendMode");
  const CIValue layerValue = operations[0]->valueForKey(kCIInputImageKey);
  const CIImageRef* layer = layerValue.get<CIImageRef>();
  ASSERT_TRUE(layer && *layer);
  EXPECT_TRUE(CGRectEqualToRect((*layer)->extent(), CGRectMake(10, 20, 4, 3)));
  std::vector<float> pixel = test::renderFloat(*layer, CGRectMake(10, 20, 1, 1), test::unmanaged());
  EXPECT_NEAR(pixel[0], 0.5 * byte(0x33), 1e-6);
  EXPECT_NEAR(pixel[2], 0.5 * byte(0x99), 1e-6);
  EXPECT_NEAR(pixel[3], 0.5, 1e-6);

  filter->setProcessor(nullptr);
  const CIValue alone = filter->CIFiltersForSize({8, 5})[0]->valueForKey(kCIInputImageKey);
  EXPECT_TRUE(CGRectEqualToRect((*alone.get<CIImageRef>())->extent(), CGRectMake(0, 0, 8, 5)));
}

TEST(ColorFilter, RecipeOperationsReplaceTheColourLayer) {
  auto filter = colorFilter({{"colorHex", "#ffffff"}, {"alternateCIFilters", {{{"name", "CIColorInvert"}}}}});
  CIFilterArray operations = filter->CIFiltersForSize({4, 4});
  ASSERT_EQ(operations.size(), 1u);
  EXPECT_EQ(operations[0]->name(), "CIColorInvert");
  EXPECT_TRUE(operations[0]->valueForKey(kCIInputImageKey).isNull());
  EXPECT_TRUE(colorFilter({{"skipCIFilter", true}})->CIFiltersForSize({4, 4}).empty());
}

}  // namespace
}  // namespace brenvia
