#include "messages.h"

#include "platform/foundation/log.h"

#include <string>

namespace brenvia::cli {

void fail(std::string_view what, std::string_view why) {
  BVLog("brenvia: " + std::string(what) + ": " + std::string(why));
}

}  // namespace brenvia::cli
