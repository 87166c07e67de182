// A store of the user's that only holds copies, and whose file does not read.
#ifndef CERTKERN_URL_UNREADABLE_STORE_H
#define CERTKERN_URL_UNREADABLE_STORE_H

#include <string>

namespace certkern {

// Gives the file of the user's system store another name, "<file>.damaged", so that the store can begin anew, and somebody
// can look at what happened to the old one. One that was set aside before gives way. False, with the last error untouched,
// when the file reads by now, or can't be told from one that does: its bytes, the lock or the directory can't be had.
[[nodiscard]] bool SetUnreadableStoreAside(const std::wstring& name);

}  // namespace certkern

#endif
