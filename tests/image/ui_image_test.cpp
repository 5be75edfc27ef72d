#include "test_support.h"

#include "image/graphics_utilities.h"
#include "image/image.h"
#include "image/ui_image.h"

#include <gtest/gtest.h>

namespace brenvia {
namespace {

TEST(UIImage, PicturesCarryScaleAndOrientationBothWays) {
  CGImageRef bitmap = test::solidBitmap(40, 20, {10, 20, 30, 255});
  auto image = UIImage::imageWithCGImage(bitmap, 2.0, BVImageOrientationRightMirrored);
  EXPECT_EQ(image->size(), CGSizeMake(10, 20));  // points, turned a quarter
  auto carries = [&](const auto& converted) {
    EXPECT_EQ(converted->CGImage(), bitmap);
    EXPECT_EQ(converted->scale(), 2.0);
    EXPECT_EQ(converted->imageOrientation(), BVImageOrientationRightMirrored);
  };
  carries(image->BVImage());
  carries(image->BVImage()->UIImage());
  EXPECT_FALSE(UIImage::imageWithCGImage(nullptr));
  EXPECT_FALSE(BVImage().UIImage());
}

TEST(UIImage, ScaledAndRotatedCopiesHaveDefaultScaleAndOrientation) {
  auto image = UIImage::imageWithCGImage(test::solidBitmap(40, 20, {10, 20, 30, 255}), 3.0, BVImageOrientationDown);
  const struct {
    std::shared_ptr<UIImage> result;
    size_t width, height;
  } cases[] = {
      {image->scaledImageWithSize(CGSizeMake(8, 6)), 8, 6},
      {image->rotatedImageWithAngle(90), 20, 40},
  };
  for (const auto& c : cases) {
    ASSERT_TRUE(c.result);
    EXPECT_EQ(CGImageGetWidth(c.result->CGImage()), c.width);
    EXPECT_EQ(CGImageGetHeight(c.result->CGImage()), c.height);
    EXPECT_EQ(c.result->scale(), 1.0);
    EXPECT_EQ(c.result->imageOrientation(), BVImageOrientationUp);
  }
}

TEST(UIColor, HexColoursAreThoseOfTheDrawingApi) {
  auto red = UIColor::initWithHex("#f00");
  ASSERT_TRUE(red);
  EXPECT_EQ(red->CGColor()->components(), CGColorCreateWithHex("ff0000ff")->components());
  EXPECT_FALSE(UIColor::initWithHex("f0000"));
  EXPECT_FALSE(UIColor::initWithHex(""));
}

}  // namespace
}  // namespace brenvia
