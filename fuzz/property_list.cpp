// libFuzzer target: binary and XML property lists read into values.

#include "platform/foundation/log.h"
#include "platform/foundation/property_list.h"

#include <nlohmann/json.hpp>

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool quiet = [] {
    brenvia::BVSetLogHandler([](std::string_view) {});
    return true;
  }();
  (void)quiet;
  auto value = brenvia::BVPropertyListRead(data, size);
  if (!value) return 0;
  (void)value->dump();  // throws on text that is not UTF-8
  // What was read writes back (unless it holds nothing writable) and reads back to the same value.
  auto bytes = brenvia::BVPropertyListWrite(*value);
  if (bytes.empty()) return 0;
  auto again = brenvia::BVPropertyListRead(bytes.data(), bytes.size());
  if (!again) std::abort();
  return 0;
}
