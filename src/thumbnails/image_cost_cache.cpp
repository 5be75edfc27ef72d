#include "thumbnails/image_cost_cache.h"

namespace brenvia {

std::shared_ptr<BVImage> BVImageCostCache::objectForKey(const std::string& key) {
  std::lock_guard lock(mutex_);
  auto found = entries_.find(key);
  if (found == entries_.end()) return nullptr;
  order_.splice(order_.begin(), order_, found->second);
  return found->second->image;
}

void BVImageCostCache::setObject(const std::string& key, std::shared_ptr<BVImage> image, size_t cost) {
  std::lock_guard lock(mutex_);
  if (auto found = entries_.find(key); found != entries_.end()) dropLocked(found->second);
  order_.push_front({key, std::move(image), cost});
  entries_[key] = order_.begin();
  total_ += cost;
  while (total_ > limit_ && !order_.empty()) dropLocked(std::prev(order_.end()));
}

void BVImageCostCache::removeObjectForKey(const std::string& key) {
  std::lock_guard lock(mutex_);
  if (auto found = entries_.find(key); found != entries_.end()) dropLocked(found->second);
}

void BVImageCostCache::removeAllObjects() {
  std::lock_guard lock(mutex_);
  order_.clear();
  entries_.clear();
  total_ = 0;
}

void BVImageCostCache::dropLocked(Order::iterator entry) {
  total_ -= entry->cost;
  entries_.erase(entry->key);
  order_.erase(entry);
}

}  // namespace brenvia
