// A text file of several PEM blocks, as servers and tools keep them: certificates, lists and whole messages in any order,
// with keys, parameters and remarks between them.
#ifndef CERTKERN_STORE_PEM_BUNDLE_H
#define CERTKERN_STORE_PEM_BUNDLE_H

#include <string_view>

#include "store/message_store.h"

namespace certkern {

// For an object that could not be read, behind a call before which the last error was cleared: false with
// CRYPT_E_FILE_ERROR, unless memory was short.
bool FailAsUnreadable();

// Whether bytes are a text with more than one block.
bool IsPemBundle(std::string_view text);

// All certificates and lists, in the order of the text; blocks with anything else are passed over. False with
// CRYPT_E_FILE_ERROR when there is none, or one is not what its banner says.
// ERROR_NOT_ENOUGH_MEMORY says nothing about the bytes, and is kept.
[[nodiscard]] bool ReadPemBundle(std::string_view text, MessageObjects& objects);

}  // namespace certkern

#endif
