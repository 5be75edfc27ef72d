#include "filter/filter_registry.h"

#include "platform/foundation/once.h"

#include <map>
#include <mutex>
#include <string>

namespace brenvia {
namespace {

struct TypeTable {
  std::mutex mutex;
  std::map<std::string, BVFilterClass, std::less<>> classes;
};

TypeTable& typeTable() {
  static TypeTable table;
  return table;
}

}  // namespace

void BVFilterStartUp() {
  static BVOnce once;
  once([] { BVRegisterCatalogue(); });
}

void BVRegisterFilterClass(BVFilterClass filterClass) {
  TypeTable& table = typeTable();
  std::lock_guard lock(table.mutex);
  table.classes.insert_or_assign(std::string(filterClass.type), std::move(filterClass));
}

const BVFilterClass* BVFilterClassForType(std::string_view type) {
  BVFilterStartUp();
  TypeTable& table = typeTable();
  std::lock_guard lock(table.mutex);
  auto it = table.classes.find(type);
  return it == table.classes.end() ? nullptr : &it->second;
}

std::vector<const BVFilterClass*> BVFilterClasses() {
  BVFilterStartUp();
  TypeTable& table = typeTable();
  std::lock_guard lock(table.mutex);
  std::vector<const BVFilterClass*> all;
  for (const auto& [type, filterClass] : table.classes) all.push_back(&filterClass);
  return all;
}

}  // namespace brenvia
