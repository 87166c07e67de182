// The thread's last error code, one word a thread for every library that links this one.
#include <certkern/keykern.h>

namespace {
// Read and written at every step of the library above: one instruction each in this model, and its four bytes fit the
// room that the loader keeps for libraries that are opened late.
[[gnu::tls_model("initial-exec")]] constinit thread_local DWORD lastError = 0;
}  // namespace

extern "C" {

DWORD GetLastError(void) { return lastError; }

void SetLastError(DWORD dwErrCode) { lastError = dwErrCode; }

}  // extern "C"
