#include "thumbnails/image_cost_cache.h"

#include <gtest/gtest.h>

namespace brenvia {
namespace {

TEST(ImageCostCache, DropsTheLeastRecentlyUsedBeyondTheCostLimit) {
  BVImageCostCache cache(100);
  auto a = std::make_shared<BVImage>(), b = std::make_shared<BVImage>(), c = std::make_shared<BVImage>();
  cache.setObject("a", a, 60);
  cache.setObject("b", b, 30);
  EXPECT_EQ(cache.objectForKey("a"), a);  // now b is the least recently used
  cache.setObject("c", c, 30);
  EXPECT_EQ(cache.objectForKey("b"), nullptr);
  EXPECT_EQ(cache.objectForKey("a"), a);
  EXPECT_EQ(cache.objectForKey("c"), c);
  cache.setObject("a", b, 10);  // replacing frees the old cost
  cache.setObject("d", a, 60);
  EXPECT_EQ(cache.objectForKey("a"), b);
  EXPECT_EQ(cache.objectForKey("c"), c);
  cache.removeObjectForKey("c");
  EXPECT_EQ(cache.objectForKey("c"), nullptr);
  cache.removeAllObjects();
  EXPECT_EQ(cache.objectForKey("a"), nullptr);
}

}  // namespace
}  // namespace brenvia
