// The thread's last error code, one word a thread for every library that links this one.
#include <certkern/keykern.h>

namespace {
constinit thread_local DWORD lastError = 0;
}  // namespace

extern "C" {

DWORD GetLastError(void) { return lastError; }

void SetLastError(DWORD dwErrCode) { lastError = dwErrCode; }

}  // extern "C"
