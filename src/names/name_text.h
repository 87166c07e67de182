// An encoded name as text for people.
#ifndef CERTKERN_NAMES_NAME_TEXT_H
#define CERTKERN_NAMES_NAME_TEXT_H

#include <certkern/name.h>

#include <string>

namespace certkern {

// What is no name gives an empty text. stringType: form and modifiers as in CertNameToStr.
std::wstring NameText(const CERT_NAME_BLOB* name, DWORD stringType);

// The form, in the low bits of a dwStrType.
inline constexpr DWORD kNameFormMask = 0xFFFF;

}  // namespace certkern

#endif
