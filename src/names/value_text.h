// The decoded value of a name's attribute as text.
#ifndef CERTKERN_NAMES_VALUE_TEXT_H
#define CERTKERN_NAMES_VALUE_TEXT_H

#include <certkern/encode.h>

#include <string>
#include <string_view>

namespace certkern {

// For display, appended: text up to its NUL, of bytes through the current code page; what is no text in hexadecimal
// behind a "#". The value is a decoded one, so that text ends with a NUL and its characters are wide from
// UniversalString on.
enum class Quoting { WhereNeeded, Never };
void AppendDisplayValue(const CERT_RDN_ATTR& attribute, Quoting quoting, std::wstring& out);

// A value of a caller's, whole: bytes one to one, and BMPString in units of 16 bits. False with ERROR_INVALID_PARAMETER
// for a length without bytes and E_NOTIMPL for a type that has no text; an empty value has one whatever its type.
[[nodiscard]] bool PlainValue(DWORD type, const CERT_RDN_VALUE_BLOB& value, std::wstring& text);
// The same of a decoded value, where BMPString has become wide characters.
[[nodiscard]] bool PlainDecodedValue(const CERT_RDN_ATTR& attribute, std::wstring& text);

// A plain value into a caller's narrow buffer, up to a NUL: bytes as they are, characters in the current encoding.
// Answers as CopyNarrowed does.
DWORD CopyNarrowValue(DWORD type, std::wstring_view text, LPSTR out, DWORD room);

}  // namespace certkern

#endif
