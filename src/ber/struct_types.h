// The table of the structure types that the hand-written codec knows, and its two entries.
#ifndef CERTKERN_BER_STRUCT_TYPES_H
#define CERTKERN_BER_STRUCT_TYPES_H

#include "ber/decode_arena.h"
#include "ber/read_cursor.h"
#include "ber/write_cursor.h"

#include <certkern/encode.h>

#include <cstdint>
#include <span>

namespace certkern {

// Types that only the library itself asks for, and two attributes that have no published number.
inline constexpr uintptr_t kTypeElementContent =
    4096;                                        // one whole element as a blob; an empty one is nothing
inline constexpr uintptr_t kTypeElement = 4097;  // the same; an empty one is NULL
inline constexpr uintptr_t kTypeNameValuePair = 32966;
inline constexpr uintptr_t kTypeCspProvider = 32967;
inline constexpr uintptr_t kTypeDisplayName = 32968;    // a Name with lenient values, decoding only
inline constexpr uintptr_t kTypeWideAttribute = 32969;  // one CERT_RDN_ATTR with a wide value, encoding only

inline uintptr_t StructNumber(LPCSTR type) { return reinterpret_cast<uintptr_t>(type); }

struct StructType {
  uintptr_t number;
  const char* name;      // for people: tools and messages
  uint16_t recordSize;   // what the record asks for, in bytes
  uint16_t recordLeast;  // what a caller inside the library, who knows the size, may give
  bool (*encode)(const void* record, BerWriteCursor& out);                 // null: not written
  bool (*decode)(BerReadCursor& in, void* record, BerDecodeArena& arena);  // null: not read
};

std::span<const StructType> StructTypes();
// Null for a type that the table does not have, any string among them.
const StructType* FindStructType(uintptr_t number);

// Encodes a record. *size: in, bytes at out; out, the size of the encoding. A null out asks for it.
// ERROR_INVALID_PARAMETER for a null record or size and for type 0; an unknown type fails without a code.
[[nodiscard]] bool BerEncodeByType(uintptr_t type, const void* record, BYTE* out, DWORD* size);

enum class SizeKnown { No, Yes };
// Decodes a record. *size: in, bytes at record; out, the size that is needed. A null record asks for it; too little
// room fails without a code. With SizeKnown::Yes the size is taken from *size, which stays, and no pass is spent on it.
// flags: CRYPT_DECODE_TO_BE_SIGNED_FLAG tells that the input is not wrapped in a signed object.
[[nodiscard]] bool BerDecodeEntry(SizeKnown known, const StructType& type, std::span<const BYTE> input,
                                  DWORD flags, void* record, DWORD* size);

}  // namespace certkern

#endif
