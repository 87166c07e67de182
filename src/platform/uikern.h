// The operation of the dialog library, libuikern.so, which asks the user before something is trusted. The library is
// optional: it is loaded on first use, and where it is missing nobody can say yes. A site may install another one
// under this name, perhaps with windows, so nothing beyond these declarations may be relied on.
#ifndef CERTKERN_PLATFORM_UIKERN_H
#define CERTKERN_PLATFORM_UIKERN_H

#include <certkern/types.h>

#include <cstddef>

extern "C" {

struct SV_DIALOG_REQUEST {
  DWORD cbSize;      // sizeof(SV_DIALOG_REQUEST); a later one is longer and begins alike
  DWORD dwStyle;     // SV_DIALOG_YES_NO
  DWORD dwLanguage;  // of the question and its answers, a published identifier: 0x409 English, 0x419 Russian
  LPCSTR pszText;    // UTF-8, lines apart by a newline; NUL-terminated
};
CERTKERN_RECORD_SIZE(SV_DIALOG_REQUEST, 24);

// A question that only an explicit yes affirms.
#define SV_DIALOG_YES_NO 3u

// 0: the user said yes. Otherwise a code that is also the last error: ERROR_CANCELLED: the user said no, or nothing of
// the kind, or there is nobody to ask; ERROR_INVALID_PARAMETER: no request, a short or unknown one, no text or too much;
// ERROR_NOT_ENOUGH_MEMORY. Waits as long as the user does. Threads are asked for one after the other.
CERTKERN_API DWORD SVDisplayMessageEx(const SV_DIALOG_REQUEST* pRequest);

}  // extern "C"

namespace certkern {

inline constexpr char kDialogLibrary[] = "libuikern.so";
inline constexpr char kDialogFunction[] = "SVDisplayMessageEx";

// Bytes of a text that a dialog shows. Who asks for a decision must not scroll what it is about out of sight.
inline constexpr size_t kMaxDialogText = 4096;

}  // namespace certkern

#endif
