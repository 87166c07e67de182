// The border of the codecs between a record and its encoding, over the cursors and the arena of the library above: one
// function each way, which runs once to learn a size and once to fill. A decoder fails with a code, or without one, which
// then is CRYPT_E_ASN1_CORRUPT; whatever stops an encoder is CRYPT_E_BAD_ENCODE.
#ifndef CERTKERN_EXTKERN_RECORD_CODEC_H
#define CERTKERN_EXTKERN_RECORD_CODEC_H

#include "ber/decode_arena.h"
#include "ber/fields.h"
#include "ber/read_cursor.h"
#include "ber/write_cursor.h"

#include <span>
#include <vector>

namespace extkern {

using certkern::BerDecodeArena;
using certkern::BerReadCursor;
using certkern::BerWriteCursor;
using certkern::Fault;

// What a decoder takes, and has no use for: everything is copied.
inline constexpr DWORD kDecodeFlags = CRYPT_DECODE_NOCOPY_FLAG | CRYPT_DECODE_TO_BE_SIGNED_FLAG;

// Room for a record whose size is being learnt.
inline constexpr size_t kLargestRecord = 64;

struct RecordType {
  size_t size;
  bool (*encode)(const void* record, BerWriteCursor& out);
  bool (*decode)(BerReadCursor& in, void* record, BerDecodeArena& arena);
};

// As the exported functions answer: TRUE, or FALSE with the last error. Behind the element nothing may follow.
BOOL EncodeRecord(const RecordType& type, const void* record, BYTE* encoded, DWORD* size);
BOOL DecodeRecord(const RecordType& type, std::span<const BYTE> encoded, DWORD flags, void* record,
                  DWORD* size);

template <typename Record, bool (*kEncode)(const Record&, BerWriteCursor&),
          bool (*kDecode)(BerReadCursor&, Record&, BerDecodeArena&)>
requires(sizeof(Record) <= kLargestRecord) inline constexpr RecordType kRecordType = {
    sizeof(Record),
    [](const void* record, BerWriteCursor& out) { return kEncode(*static_cast<const Record*>(record), out); },
    [](BerReadCursor& in, void* record, BerDecodeArena& arena) {
      return kDecode(in, *static_cast<Record*>(record), arena);
    }};
template <typename Record, bool (*kDecode)(BerReadCursor&, Record&, BerDecodeArena&)>
requires(sizeof(Record) <= kLargestRecord) inline constexpr RecordType kReadOnlyType = {
    sizeof(Record), nullptr, [](BerReadCursor& in, void* record, BerDecodeArena& arena) {
      return kDecode(in, *static_cast<Record*>(record), arena);
    }};

// --- for the grammars ---

// The content of the next element, which must have exactly this identifier.
[[nodiscard]] inline bool Expect(BerReadCursor& in, BYTE tag, BerReadCursor& content) {
  return in.empty() ? Fault(CRYPT_E_ASN1_EOD) : certkern::BerExpect(in, tag, content);
}
// Nothing may be left.
[[nodiscard]] inline bool Finished(const BerReadCursor& in) {
  return in.empty() || Fault(CRYPT_E_ASN1_CORRUPT);
}
// One whole element with this identifier, and nothing else.
[[nodiscard]] bool IsElement(std::span<const BYTE> bytes, BYTE tag);
[[nodiscard]] bool IsElement(std::span<const BYTE> bytes);
// The bytes of a blob that a caller gave, which must be one such element.
[[nodiscard]] bool WriteElement(const CRYPT_DER_BLOB& blob, BYTE tag, BerWriteCursor& out);

}  // namespace extkern

#endif
