// The gradient filter laid over a grey picture from a recipe, on the engine road and the drawing road.
#include "catalogue/gradient_filter.h"
#include "image/image.h"
#include "processor/image_processor.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace brenvia {
namespace {

CGImageRef render(const Value& filter, bool bitmapRoad) {
  auto grey = BVImage::initWithCIImage(CIImage::imageWithCGImage(test::solidBitmap(81, 9, {128, 128, 128, 255})));
  BVImageProcessorOptions options;
  options.renderWithCoreGraphics = bitmapRoad;
  auto out =
      BVImageProcessor::initWithFilters(BVFilter::filtersWithArray(Value::array({filter})), options)->process(grey);
  return out ? out->CGImage() : nullptr;
}

void expectNear(std::array<int, 3> got, std::array<int, 3> want, const char* where) {
  for (size_t c = 0; c < 3; ++c) EXPECT_NEAR(got[c], want[c], 4) << where << " channel " << c;
}

// All three stops show on both roads, and the filter's opacity mixes them with the picture.
TEST(BVGradientFilter, DrawsEveryStopOnBothRoads) {
  const Value gradient = {{"colors", {"#ff0000", "#00ff00", "#0000ff"}}};
  for (bool bitmapRoad : {false, true}) {
    SCOPED_TRACE(bitmapRoad ? "drawing road" : "engine road");
    CGImageRef opaque = render({{"type", "gradient"}, {"mode", "Normal"}, {"gradient", gradient}}, bitmapRoad);
    ASSERT_TRUE(opaque);
    expectNear(test::rgbAt(*opaque, 0, 4), {255, 0, 0}, "left");
    expectNear(test::rgbAt(*opaque, 40, 4), {0, 255, 0}, "middle");
    expectNear(test::rgbAt(*opaque, 80, 4), {0, 0, 255}, "right");

    CGImageRef half =
        render({{"type", "gradient"}, {"mode", "Normal"}, {"alpha", 0.5}, {"gradient", gradient}}, bitmapRoad);
    ASSERT_TRUE(half);
    expectNear(test::rgbAt(*half, 0, 4), {191, 64, 64}, "half-opaque left");
  }
}

TEST(BVGradientFilter, ListsItsGradientAndCopiesIt) {
  auto filter = BVFilter::filterWithParameters(
      {{"type", "gradient"}, {"gradient", {{"type", "radial"}, {"colors", {"#ffffff", "#000000"}}}}});
  ASSERT_TRUE(filter);
  const std::vector<BVParameterInfo> parameters = filter->parameterList();
  EXPECT_TRUE(std::any_of(parameters.begin(), parameters.end(), [](const BVParameterInfo& p) {
    return p.key == "gradient" && p.kind == BVParameterKind::Dictionary;
  }));
  auto copy = std::dynamic_pointer_cast<BVGradientFilter>(filter->copy());
  auto original = std::dynamic_pointer_cast<BVGradientFilter>(filter);
  ASSERT_TRUE(copy && original);
  EXPECT_NE(copy->gradient(), original->gradient());
  EXPECT_EQ(copy->gradient()->parameters(), original->gradient()->parameters());
}

}  // namespace
}  // namespace brenvia
