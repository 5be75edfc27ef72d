#pragma once

namespace brenvia {

// Registers every image operator of the library's own with the engine's registry. Filters
// register what they use on first use; tools that list operations call this to see them all.
void BVRegisterLibraryOperators();

}  // namespace brenvia
