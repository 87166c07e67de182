// The rows of the object codec that run on generated types.
#ifndef CERTKERN_BER_GENERATED_CODEC_H
#define CERTKERN_BER_GENERATED_CODEC_H

#include <certkern/types.h>

#include <cstdint>
#include <span>

namespace certkern {

// A failure has set the last error. Neither function throws.
struct GeneratedType {
  uintptr_t number;
  // null: the hand-written codec's business. *size: in, bytes at encoded; out, the size of the encoding
  bool (*encode)(const void* record, BYTE* encoded, DWORD* size);
  // null: the same. *size: in, bytes at record; out, the size that is needed. A null record asks for it; too little room is
  // ERROR_MORE_DATA
  bool (*decode)(std::span<const BYTE> encoded, void* record, DWORD* size);
};

// Defined upstairs, where the generated types meet the records.
std::span<const GeneratedType> GeneratedTypes();

}  // namespace certkern

#endif
