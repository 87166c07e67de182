// Attributes looked for in a name.
#ifndef CERTKERN_NAMES_ATTRIBUTE_SEARCH_H
#define CERTKERN_NAMES_ATTRIBUTE_SEARCH_H

#include <certkern/encode.h>

#include <span>
#include <string>

namespace certkern {

// The value of the first attribute that is there, in the order of the identifiers; of several with one identifier that
// of the last relative name. Without identifiers: the first attribute of the last relative name that holds any. Empty
// for none, for an empty value, and for a value that has no text.
std::wstring SearchAttribute(const CERT_NAME_BLOB& name, std::span<const LPCSTR> oids);

// In a decoded name of a caller's, from first to last; null for none. A list that has a length and no elements is
// ERROR_INVALID_PARAMETER.
PCERT_RDN_ATTR FindAttribute(LPCSTR oid, const CERT_NAME_INFO& name);

// Whether every wanted attribute is somewhere in a decoded name. Of a wanted one only what is given must be equal:
// identifier, type other than 0, bytes.
bool HasAttributes(const CERT_NAME_INFO& name, const CERT_RDN& wanted);

}  // namespace certkern

#endif
