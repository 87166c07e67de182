// The question whether a certificate is to become one of the user's trusted roots. Everything that the user reads there
// comes from whoever made the certificate, so it is kept from looking like a part of the question.
#ifndef CERTKERN_STORE_ROOT_CONFIRMATION_H
#define CERTKERN_STORE_ROOT_CONFIRMATION_H

#include <certkern/store.h>

#include <string>
#include <string_view>

namespace certkern {

// Shows the name and the SHA-1 hash, and waits for the user. Only his clear yes is true; false with a code, which tells
// what was in the way: no catalogue, no library, nobody to ask, a certificate without a name, no memory.
[[nodiscard]] bool ConfirmRootAdd(PCCERT_CONTEXT certificate);

// A name on one line, of at most kMaxConfirmedName characters: blanks become one space, what is harmful U+FFFD, and what
// is cut off three dots.
std::wstring ShownName(std::wstring_view name);

}  // namespace certkern

#endif
