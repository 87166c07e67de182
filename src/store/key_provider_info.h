// CRYPT_KEY_PROV_INFO in its flat form: how it is kept as a property, in memory and on disk. Words of 32 bits, little-
// endian; offsets from the start; texts in UTF-16LE with terminator; sections padded to a multiple of 8 in length.
//
//   0  offset of the container name, 0: none        16  number of parameters
//   4  offset of the provider name, 0: none         20  28 if there are parameters, else 0
//   8  provider type                                24  key spec
//   12 flags                                        28  for each parameter: which, offset of its data, length, flags
//   then each parameter's data, the container name, the provider name
#ifndef CERTKERN_STORE_KEY_PROVIDER_INFO_H
#define CERTKERN_STORE_KEY_PROVIDER_INFO_H

#include <certkern/properties.h>

#include <span>

#include "store/property_block.h"

namespace certkern {

// Item 2 with the flat form. Empty with a code: ERROR_INVALID_PARAMETER (a count without an array, a length without
// bytes, more than 32 bits can count), ERROR_NO_UNICODE_TRANSLATION, ERROR_NOT_ENOUGH_MEMORY.
PropertyItemOwner FlattenKeyProviderInfo(const CRYPT_KEY_PROV_INFO& info);

// The record with all that it points to in one buffer. *size: in, bytes at `record`; out, the larger of the two forms'
// sizes. A null record asks for it; ERROR_MORE_DATA when there is too little room, ERROR_INVALID_DATA for a damaged
// form, and nothing is written then.
[[nodiscard]] bool ExpandKeyProviderInfo(std::span<const BYTE> flat, void* record, DWORD* size);

}  // namespace certkern

#endif
