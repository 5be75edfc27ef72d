#pragma once

#include "image/image.h"

#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

namespace brenvia {

// Pictures by key, each with a cost in bytes, bounded by a total cost: adding beyond the limit
// drops the least recently used entries. Hands out the stored objects themselves. Safe to use
// from any thread.
class BVImageCostCache {
 public:
  explicit BVImageCostCache(size_t totalCostLimit) : limit_(totalCostLimit) {}

  std::shared_ptr<BVImage> objectForKey(const std::string& key);
  void setObject(const std::string& key, std::shared_ptr<BVImage> image, size_t cost);
  void removeObjectForKey(const std::string& key);
  void removeAllObjects();

 private:
  struct Entry {
    std::string key;
    std::shared_ptr<BVImage> image;
    size_t cost;
  };
  using Order = std::list<Entry>;  // most recently used first

  void dropLocked(Order::iterator entry);

  std::mutex mutex_;
  Order order_;
  std::unordered_map<std::string, Order::iterator> entries_;
  size_t limit_, total_ = 0;
};

}  // namespace brenvia
