// From the OID of an extension or attribute to the structure type that is behind it.
#ifndef CERTKERN_BER_STRUCT_TYPE_OID_H
#define CERTKERN_BER_STRUCT_TYPE_OID_H

#include <certkern/types.h>

namespace certkern {

// Below this lpszStructType is a number, not a string.
inline constexpr uintptr_t kFirstStringType = 0x10000;

// The number of a type; a string that the table does not have stays what it is, which is no number of any type.
uintptr_t StructTypeFromOid(LPCSTR type);

}  // namespace certkern

#endif
