// The display of what is to be signed. This library has none: a site's own may. The table of announced signings is kept all
// the same, by thread, so that callers' calls pair up.
#include "keykern/call.h"
#include "platform/limits.h"

#include <map>

namespace keykern {
namespace {

struct Announced {
  HASH_MSG_RECORD record;
  bool active;
};

std::map<const void*, Announced>& ThreadTable() {
  thread_local std::map<const void*, Announced> table;
  return table;
}

}  // namespace
}  // namespace keykern

using namespace keykern;  // NOLINT(google-build-using-namespace): the rest of this file is the exported surface

extern "C" {

BOOL isDTBSEnabled(void) { return FALSE; }

BOOL TlsInitHashMsgIndex(void* key, DWORD reserved, const HASH_MSG_RECORD* record) {
  return Call([&]() -> DWORD {
    if (!key || reserved || !record) return ERROR_INVALID_PARAMETER;
    if (ThreadTable().size() >= certkern::kMaxAnnouncedSignings) return NTE_NO_MEMORY;
    ThreadTable()[key] = {*record, false};
    return ERROR_SUCCESS;
  });
}

BOOL TlsSetHashMsgIndex(void* key, DWORD active) {
  return Call([&]() -> DWORD {
    const auto entry = ThreadTable().find(key);
    if (entry == ThreadTable().end()) return NTE_NOT_FOUND;
    entry->second.active = active != 0;
    return ERROR_SUCCESS;
  });
}

BOOL TlsReleaseHashMsgIndex(void* key) {
  return Call([&]() -> DWORD { return ThreadTable().erase(key) ? ERROR_SUCCESS : NTE_NOT_FOUND; });
}

}  // extern "C"
