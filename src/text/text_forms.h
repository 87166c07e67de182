// The text forms of the exported text functions: which value of dwFlags selects which form, and how counts, room and
// overlapping buffers are treated. The exported functions add the trace and the argument checks that need no form.
//
// All four set the last error when they fail. std::bad_alloc is the one exception that they let out.
#ifndef CERTKERN_TEXT_TEXT_FORMS_H
#define CERTKERN_TEXT_TEXT_FORMS_H

#include <certkern/types.h>

#include <span>
#include <string_view>

namespace certkern {

// Writes bytes as text and a NUL, or copies them (CRYPT_STRING_BINARY, without a NUL).
// A null out asks for the size, which for text includes the NUL; after writing, *count is without it.
// ERROR_MORE_DATA: the first *count characters were written, and *count is the size only where just the NUL had no
// room; of bytes nothing is written. ERROR_INVALID_PARAMETER: no such form, or a size above 32 bits.
[[nodiscard]] bool BinaryToString(std::span<const BYTE> data, DWORD flags, char* out, DWORD* count);

// The same in wide characters, by the current multibyte encoding; what is not text in it has no wide form.
[[nodiscard]] bool BinaryToWideString(std::span<const BYTE> data, DWORD flags, wchar_t* out, DWORD* count);

// Where StringToBinary puts its answers; skip and flags may be null.
struct DecodedOutput {
  BYTE* bytes;   // null asks for the size
  DWORD* count;  // in: room; out: bytes written, or the size for a query
  DWORD* skip;   // 0 for bytes that were copied and for too little room, otherwise kept
  DWORD* flags;  // the form that matched, 0 for too little room; kept by hexadecimal and by any other failure
};

// Reads the bytes of a text. On failure the bytes and *count are as they were.
// CRYPT_E_BAD_ENCODE: no such text; ERROR_MORE_DATA: too little room; ERROR_INVALID_PARAMETER: no such form.
[[nodiscard]] bool StringToBinary(std::string_view text, DWORD flags, const DecodedOutput& out);

// The same for a wide text, by the current multibyte encoding. For CRYPT_STRING_BINARY see CryptStringToBinaryW.
[[nodiscard]] bool WideStringToBinary(std::wstring_view text, DWORD flags, const DecodedOutput& out);

}  // namespace certkern

#endif
