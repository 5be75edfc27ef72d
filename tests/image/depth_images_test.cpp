// Depth maps made fit for masks: disparity stretched to 0 to 1, and both maps brought to the size
// of the picture along its edges.
#include "image/depth_images.h"

#include "image/image.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <functional>

namespace brenvia {
namespace {

CIImageRef greyMap(size_t w, size_t h, const std::function<uint8_t(size_t x)>& value) {
  auto map = CGImage::allocate(w, h, CGPixelFormat::Gray8, CGColorSpaceRef());
  for (size_t y = 0; y < h; ++y)
    for (size_t x = 0; x < w; ++x) map->mutableRow(y)[x] = value(x);
  return CIImage::imageWithCGImage(map);
}

// Red of the middle row, as working-space values.
std::vector<float> middleRow(const CIImageRef& image) {
  const CGRect e = image->extent();
  std::vector<float> rgba = test::renderFloat(image, e, test::unmanaged());
  std::vector<float> row;
  const size_t w = size_t(e.size.width), y = size_t(e.size.height) / 2;
  for (size_t x = 0; x < w; ++x) row.push_back(rgba[(y * w + x) * 4]);
  return row;
}

TEST(DepthImages, DisparityIsStretchedToTheUnitRange) {
  // 51 to 204 of 255: 0.2 to 0.8.
  std::vector<float> ramp =
      middleRow(BVNormalizedDisparityImage(greyMap(16, 4, [](size_t x) { return 51 + x * 153 / 15; })));
  ASSERT_EQ(ramp.size(), 16u);
  EXPECT_NEAR(ramp.front(), 0.0f, 1e-3f);
  EXPECT_NEAR(ramp.back(), 1.0f, 1e-3f);
  EXPECT_NEAR(ramp[5], 5 / 15.0f, 5e-3f);
  std::vector<float> flat = middleRow(BVNormalizedDisparityImage(greyMap(8, 4, [](size_t) { return 90; })));
  EXPECT_EQ(flat, std::vector<float>(8, 0.0f));
  EXPECT_FALSE(BVNormalizedDisparityImage(nullptr));
}

// A map with a step at the picture's edge, brought to twice its size, keeps the step sharp where
// plain interpolation would spread it over several pixels; a map of the picture's size is kept.
TEST(DepthImages, UpsamplingFollowsThePicturesEdges) {
  CIImageRef picture = CIImage::imageWithCGImage(test::makeBitmap(64, 32, [](size_t x, size_t) {
    const uint8_t v = x < 32 ? 40 : 210;
    return std::array<uint8_t, 4>{v, v, v, 255};
  }));
  CIImageRef step = greyMap(32, 16, [](size_t x) { return x < 16 ? 0 : 255; });
  std::vector<float> row = middleRow(BVEdgePreservingUpsampledImage(step, picture));
  ASSERT_EQ(row.size(), 64u);
  EXPECT_LT(row[30], 0.02f);
  EXPECT_LT(row[31], 0.02f);
  EXPECT_GT(row[32], 0.98f);
  EXPECT_GT(row[33], 0.98f);

  CIImageRef same = greyMap(64, 32, [](size_t x) { return uint8_t(x); });
  EXPECT_EQ(BVEdgePreservingUpsampledImage(same, picture), same);
}

TEST(DepthImages, PictureStoresPreparedMaps) {
  BVImage empty;
  empty.setDisparityImage(greyMap(8, 4, [](size_t x) { return x; }));
  EXPECT_FALSE(empty.disparityImageStorage());

  auto image = BVImage::initWithCIImage(CIImage::imageWithCGImage(test::solidBitmap(32, 16, {90, 90, 90, 255})));
  image->setDisparityImage(greyMap(16, 8, [](size_t x) { return 100 + x; }));
  image->setPortraitMatteImage(greyMap(16, 8, [](size_t x) { return 100 + x; }));
  ASSERT_TRUE(image->disparityImageStorage() && image->portraitMatteImageStorage());
  EXPECT_TRUE(CGRectEqualToRect(image->disparityImageStorage()->extent(), CGRectMake(0, 0, 32, 16)));
  std::vector<float> disparity = middleRow(image->disparityImageStorage());
  std::vector<float> matte = middleRow(image->portraitMatteImageStorage());
  // The outermost pixels mix in their inner neighbours.
  EXPECT_NEAR(disparity.front(), 0.0f, 0.02f);
  EXPECT_NEAR(disparity.back(), 1.0f, 0.02f);
  EXPECT_NEAR(matte.front(), 100 / 255.0f, 0.005f) << "the matte keeps its values";
  EXPECT_NEAR(matte.back(), 115 / 255.0f, 0.005f);
}

}  // namespace
}  // namespace brenvia
