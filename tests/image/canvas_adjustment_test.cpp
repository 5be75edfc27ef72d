#include "image/canvas_adjustment.h"

#include "image/image.h"
#include "platform/coreimage/ci_context.h"
#include "platform/foundation/keyed_archive.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>

namespace brenvia {
namespace {

void expectRect(const CGRect& actual, const CGRect& expected) {
  EXPECT_TRUE(CGRectEqualToRect(actual, expected))
      << NSStringFromCGRect(actual) << " != " << NSStringFromCGRect(expected);
}

TEST(CanvasRecords, ComparisonsAndHash) {
  EXPECT_EQ(BVImageOrientationAdjustmentAdd90CW(3), 0);
  EXPECT_EQ(BVImageOrientationAdjustmentAdd90CW(7), 1);

  EXPECT_TRUE(BVCanvasAdjustment::identityAdjustment()->isEqualToCanvasAdjustment(nullptr));
  auto squared = BVCanvasAdjustment::adjustmentWithOrientation(2);
  EXPECT_FALSE(squared->isIdentity());
  EXPECT_EQ(squared->hash(), 2u);  // the sentinel's -1s count as 0
  // A rotation alone makes a crop that is not the zero crop.
  EXPECT_FALSE(BVImageCropEqualToCrop(BVImageCropMake(0, 0, 0, 0, 10), BVImageCropZero));
}

TEST(CanvasRecords, StoredFormsRoundTripAndRefuseWhatIsMissing) {
  const BVImageCrop crop = BVImageCropMake(10.5, 20, 300, 400.25, 3);
  const BVPlanarAdjustment planar = BVPlanarAdjustmentMake(1.5, -0.1, 0.2, 0.3, 0.4);
  EXPECT_TRUE(BVImageCropEqualToCrop(*BVImageCropFromValue(BVImageCropToValue(crop)), crop));
  EXPECT_TRUE(BVPlanarAdjustmentEqual(*BVPlanarAdjustmentFromValue(BVPlanarAdjustmentToValue(planar)), planar));
  Value partial = BVPlanarAdjustmentToValue(planar);
  partial.erase("verticalStretch");
  EXPECT_FALSE(BVPlanarAdjustmentFromValue(partial));
  EXPECT_FALSE(BVImageCropFromValue({{"rect", "{{1, 2}, {3}}"}, {"rotation", 0}}));

  EXPECT_TRUE(BVImageCropEqualToCrop(*BVImageCropFromLegacyData(BVImageCropLegacyData(crop)), crop));
  EXPECT_FALSE(BVImageCropFromLegacyData(std::vector<uint8_t>(20)));

  // The coder form reads 40 bytes as doubles, 20 as floats, anything else as zeros.
  struct Record : BVCoding {
    std::string className() const override { return "CanvasRecord"; }
    void encodeWithCoder(BVKeyedArchiver& coder) const override {
      BVEncodeImageCrop(coder, BVImageCropMake(1, 2, 3, 4, 5), "crop");
      BVEncodePlanarAdjustment(coder, BVPlanarAdjustmentMake(1, 2, 3, 4, 5), "planar");
      std::vector<uint8_t> floats(20, 0), odd(24, 1);
      const float half = 0.5f;
      std::memcpy(floats.data(), &half, 4);
      coder.encodeObject(Value{{"$data", BVBase64Encode(floats.data(), floats.size())}}, "floats");
      coder.encodeObject(Value{{"$data", BVBase64Encode(odd.data(), odd.size())}}, "odd");
    }
  };
  struct Decoded : BVCoding {
    std::string className() const override { return "CanvasRecord"; }
    void encodeWithCoder(BVKeyedArchiver&) const override {}
    BVImageCrop crop, floats, odd;
    BVPlanarAdjustment planar;
  };
  BVKeyedUnarchiver::registerClass("CanvasRecord", [](BVKeyedUnarchiver& coder) {
    auto made = std::make_shared<Decoded>();
    made->crop = BVDecodeImageCrop(coder, "crop");
    made->planar = BVDecodePlanarAdjustment(coder, "planar");
    made->floats = BVDecodeImageCrop(coder, "floats");
    made->odd = BVDecodeImageCrop(coder, "odd");
    return made;
  });
  const std::vector<uint8_t> bytes = BVKeyedArchiver::archivedData(Record());
  auto decoded = BVKeyedUnarchiver::unarchivedObjectOfClass<Decoded>(bytes.data(), bytes.size());
  ASSERT_TRUE(decoded);
  EXPECT_TRUE(BVImageCropEqualToCrop(decoded->crop, BVImageCropMake(1, 2, 3, 4, 5)));
  EXPECT_EQ(decoded->planar.verticalStretch, 4);
  EXPECT_EQ(decoded->floats.rect.origin.x, 0.5);
  EXPECT_TRUE(BVImageCropEqualToCrop(decoded->odd, BVImageCropZero));
}

TEST(CanvasGraph, SquareSentinelsAndCropsResolveFromTheTop) {
  const CGSize landscape{4000, 3000}, portrait{3000, 4000};
  expectRect(BVResolvedCropRect(BVImageCropSquareMin, landscape), {0, 0, 3000, 3000});
  expectRect(BVResolvedCropRect(BVImageCropSquareMin, portrait), {0, 1000, 3000, 3000});
  expectRect(BVResolvedCropRect(BVImageCropSquareMedian, landscape), {500, 0, 3000, 3000});
  expectRect(BVResolvedCropRect(BVImageCropSquareMedian, portrait), {0, 500, 3000, 3000});
  expectRect(BVResolvedCropRect(BVImageCropSquareMax, landscape), {500, 0, 3000, 3000});
  expectRect(BVResolvedCropRect(BVImageCropSquareMax, portrait), {0, 0, 3000, 3000});
  expectRect(BVResolvedCropRect(BVImageCropMake(100, 200, 300, 400, 0), {1000, 1000}), {100, 400, 300, 400});
}

TEST(CanvasGraph, QuarterTurnsComposeWithTheSourceOrientation) {
  // A 4 by 2 picture whose left half is red and right half blue.
  auto source = CIImage::imageWithCGImage(test::makeBitmap(4, 2, [](size_t x, size_t) {
    return x < 2 ? std::array<uint8_t, 4>{255, 0, 0, 255} : std::array<uint8_t, 4>{0, 0, 255, 255};
  }));
  auto context = CIContext::contextWithOptions({});
  auto topLeft = [&](const BVCanvasAdjustment* adjustment, BVImageOrientation orientation) {
    CIImageRef out = BVImageWithCanvasAdjustment(source, adjustment, 1.0, orientation);
    return test::pixelAt(context->createCGImage(out, out->extent()), 0, 0)[0];
  };
  const auto quarter = BVCanvasAdjustment::adjustmentWithCrop(BVImageCropZero, 1);
  // Right turned once more clockwise is down: the blue half comes to the top left.
  EXPECT_EQ(topLeft(nullptr, BVImageOrientationUp), 255);
  EXPECT_EQ(topLeft(quarter.get(), BVImageOrientationRight), 0);
  CIImageRef turned = BVImageWithCanvasAdjustment(source, quarter.get(), 0.5, BVImageOrientationUp);
  expectRect(turned->extent(), {0, 0, 1, 2});  // turned, then scaled
}

// The straightened picture fills its frame: no corner of the output is transparent.
TEST(CanvasGraph, StraighteningKeepsNoEmptyCorners) {
  auto source = CIImage::imageWithCGImage(test::makeBitmap(120, 80, [](size_t x, size_t y) {
    return std::array<uint8_t, 4>{uint8_t(x * 2), uint8_t(y * 3), 90, 255};
  }));
  auto context = CIContext::contextWithOptions({});
  for (double degrees : {0.5, 3.0, -12.0, 45.0}) {
    auto adjustment = BVCanvasAdjustment::adjustmentWithCrop(BVImageCropMake(0, 0, 120, 80, 0), 0,
                                                             BVPlanarAdjustmentMakeWithRotation(degrees));
    CIImageRef out = BVImageWithCanvasAdjustment(source, adjustment.get(), 1.0, BVImageOrientationUp);
    expectRect(out->extent(), {0, 0, 120, 80});
    CGImageRef pixels = context->createCGImage(out, out->extent());
    for (auto [x, y] : {std::pair<size_t, size_t>{0, 0}, {119, 0}, {0, 79}, {119, 79}}) {
      EXPECT_EQ(test::pixelAt(pixels, x, y)[3], 255) << degrees << " at " << x << "," << y;
    }
  }
}

// A keystone correction maps straight lines to straight lines.
TEST(CanvasGraph, KeystoneKeepsLinesStraight) {
  const size_t w = 200, h = 200;
  auto source = CIImage::imageWithCGImage(test::makeBitmap(w, h, [](size_t x, size_t) {
    return x >= 60 && x < 66 ? std::array<uint8_t, 4>{0, 0, 0, 255} : std::array<uint8_t, 4>{255, 255, 255, 255};
  }));
  auto adjustment = BVCanvasAdjustment::adjustmentWithCrop(BVImageCropMake(0, 0, w, h, 0), 0,
                                                           BVPlanarAdjustmentMakeWithRotationAndSkew(0, 0.2, 0));
  CIImageRef out = BVImageWithCanvasAdjustment(source, adjustment.get(), 1.0, BVImageOrientationUp);
  CGImageRef pixels = CIContext::contextWithOptions({})->createCGImage(out, out->extent());
  // The centre of the dark line in each row, then its distance from the line through the first and last.
  std::vector<std::pair<double, double>> centres;
  for (size_t y = 10; y < h - 10; y += 10) {
    double sum = 0, weight = 0;
    for (size_t x = 0; x < w; ++x) {
      const double dark = 255 - test::pixelAt(pixels, x, y)[0];
      sum += dark * double(x);
      weight += dark;
    }
    if (weight > 0) centres.emplace_back(double(y), sum / weight);
  }
  ASSERT_GT(centres.size(), 10u);
  const auto [y0, x0] = centres.front();
  const auto [y1, x1] = centres.back();
  EXPECT_GT(std::abs(x1 - x0), 3.0);  // the line did lean
  for (const auto& [y, x] : centres) EXPECT_NEAR(x, x0 + (x1 - x0) * (y - y0) / (y1 - y0), 0.75) << y;
}

}  // namespace
}  // namespace brenvia
