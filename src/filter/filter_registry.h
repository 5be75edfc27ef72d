#pragma once

#include <functional>
#include <memory>
#include <string_view>
#include <vector>

namespace brenvia {

class BVFilter;
using BVFilterRef = std::shared_ptr<BVFilter>;

// A row of the type table: the recipe's `type`, the class, a line saying what it does and a maker of blank objects, for
// the factory, the keyed unarchiver and listings.
struct BVFilterClass {
  std::string_view type;
  std::string_view name;
  std::string_view doc;
  std::function<BVFilterRef()> make;
};

// The class for a type string, or null.
const BVFilterClass* BVFilterClassForType(std::string_view type);
// Every class of the table, by type.
std::vector<const BVFilterClass*> BVFilterClasses();

// Adds a class to the type table (a later row of the same type replaces the earlier one).
void BVRegisterFilterClass(BVFilterClass filterClass);

// The start-up step: the catalogue's filter classes and the library's operators are registered once, on the first use
// of the type table or of a filter. Safe to call from any thread.
void BVFilterStartUp();

// Registers the catalogue into the type table and the operators into the engine's registry. The catalogue defines it;
// only BVFilterStartUp calls it.
void BVRegisterCatalogue();

}  // namespace brenvia
