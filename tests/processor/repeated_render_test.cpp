#include "filter/filter.h"
#include "image/image.h"
#include "processor/image_processor.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace brenvia {
namespace {

// Operations handed to one render are never reused by the next: an alternate operation with a
// background input connected to the first picture must not carry it into the second render.
TEST(RepeatedRenders, ASecondPictureShowsNothingOfTheFirst) {
  auto filters = BVFilter::filtersWithArray(Value::array(
      {{{"type", "color"}, {"colorHex", "#fff"}, {"alternateCIFilters", {{{"name", "CISourceOverCompositing"}}}}}}));
  auto processor = BVImageProcessor::initWithFilters(filters);
  for (std::array<uint8_t, 4> colour : {std::array<uint8_t, 4>{255, 0, 0, 255}, {0, 0, 255, 255}}) {
    auto result = processor->process(BVImage::initWithCGImage(test::solidBitmap(8, 8, colour)));
    ASSERT_TRUE(result);
    EXPECT_EQ(test::pixelAt(result->CGImage(), 4, 4), (std::array<int, 4>{colour[0], colour[1], colour[2], 255}));
  }
}

}  // namespace
}  // namespace brenvia
