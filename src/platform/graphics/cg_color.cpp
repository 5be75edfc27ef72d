#include "platform/graphics/cg_color.h"

namespace brenvia {

CGColorRef CGColorCreate(const CGColorSpaceRef& space, const double* components) {
  if (!space || !components) return nullptr;
  size_t count = (space->model() == CGColorSpaceModel::RGB ? 3 : 1) + 1;
  return std::make_shared<CGColor>(space, std::vector<double>(components, components + count));
}

}  // namespace brenvia
