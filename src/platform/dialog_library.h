// The dialog library, bound when somebody is first asked. Where it is missing a later call looks again, so that a
// library that is installed meanwhile is found; once found it stays loaded as long as the process lives.
#ifndef CERTKERN_PLATFORM_DIALOG_LIBRARY_H
#define CERTKERN_PLATFORM_DIALOG_LIBRARY_H

#include "platform/uikern.h"

namespace certkern {

// Asks a question in the language of messages, and waits as long as the user does. False unless he said yes, with
// NTE_SILENT_CONTEXT (no library, or one without this function) or the library's own code. The text is UTF-8.
[[nodiscard]] bool AskYesOrNo(LPCSTR text);

}  // namespace certkern

#endif
