// The primitive fields of the hand-written codec, both directions side by side.
//
// Decoding: each function reads one element; the identifier is the caller's business unless said otherwise. An
// absent element (an empty reader) leaves a zero field. Text and bytes are copied into the arena.
// Encoding: each function writes one element under the identifier that is given.
#ifndef CERTKERN_BER_FIELDS_H
#define CERTKERN_BER_FIELDS_H

#include "ber/decode_arena.h"
#include "ber/read_cursor.h"
#include "ber/write_cursor.h"

#include <certkern/encode.h>

#include <cstdint>
#include <span>

namespace certkern {

// The bytes of a blob that a caller gave; a null pointer with a length is a failure without a code.
[[nodiscard]] bool BlobBytes(const CRYPT_DATA_BLOB& blob, std::span<const BYTE>& bytes);
// An array that a caller gave, by the same rule.
template <typename Record>
[[nodiscard]] bool ArrayOf(const Record* records, DWORD count, std::span<const Record>& array) {
  array = {records, records ? count : 0u};
  return records || !count;
}

// --- reading ---

// The element must have exactly this identifier, else CRYPT_E_ASN1_BADTAG.
[[nodiscard]] inline bool BerExpect(BerReadCursor& in, BYTE tag, BerReadCursor& content) {
  if (!in.nextIs(tag)) return Fault(CRYPT_E_ASN1_BADTAG);
  return in.readElement(tag, content);
}

[[nodiscard]] bool BerCopyBytes(std::span<const BYTE> bytes, CRYPT_DATA_BLOB& blob, BerDecodeArena& arena);
[[nodiscard]] bool BerCopyReversed(std::span<const BYTE> bytes, CRYPT_DATA_BLOB& blob, BerDecodeArena& arena);
// The dotted string of an identifier's content.
[[nodiscard]] bool BerCopyOidText(std::span<const BYTE> content, LPSTR& text, BerDecodeArena& arena);
// The content of a BIT STRING.
[[nodiscard]] bool BerCopyBits(std::span<const BYTE> content, CRYPT_BIT_BLOB& bits, BerDecodeArena& arena);
// 1 to 4 content octets, sign-extended; other sizes fail without a code.
[[nodiscard]] bool BerSignedValue(std::span<const BYTE> content, DWORD& value);

// A missing identifier would be a null string in the record, so it is a failure without a code.
[[nodiscard]] bool BerDecodeOidField(BerReadCursor& in, LPSTR& text, BerDecodeArena& arena);
[[nodiscard]] bool BerDecodeOctets(BerReadCursor& in, CRYPT_DATA_BLOB& blob, BerDecodeArena& arena);
// Little-endian; sign octets kept as they are.
[[nodiscard]] bool BerDecodeInteger(BerReadCursor& in, CRYPT_INTEGER_BLOB& blob, BerDecodeArena& arena);
// Little-endian, leading zero octets stripped.
[[nodiscard]] bool BerDecodeUint(BerReadCursor& in, CRYPT_UINT_BLOB& blob, BerDecodeArena& arena);
[[nodiscard]] bool BerDecodeBits(BerReadCursor& in, CRYPT_BIT_BLOB& bits, BerDecodeArena& arena);
// As BerDecodeBits where a string without a bit has no meaning, such as reason flags.
[[nodiscard]] bool BerDecodeSomeBits(BerReadCursor& in, CRYPT_BIT_BLOB& bits, BerDecodeArena& arena);
// BOOLEAN DEFAULT FALSE: another identifier, or none, is FALSE and stays unread.
[[nodiscard]] bool BerDecodeBoolean(BerReadCursor& in, BOOL& value);
// INTEGER with exactly that identifier, 1 to 4 octets.
[[nodiscard]] bool BerDecodeInteger32(BerReadCursor& in, DWORD& value);
// The version of a list or a request, which must be there; the identifier's class is not looked at.
[[nodiscard]] bool BerDecodeVersion(BerReadCursor& in, DWORD& version);
// One whole element, header included; there must be one.
[[nodiscard]] bool BerCaptureElement(BerReadCursor& in, CRYPT_DER_BLOB& blob, BerDecodeArena& arena);
// BMPString, identifier 30 exactly, to wide text with a NUL. An absent element leaves a null pointer.
[[nodiscard]] bool BerDecodeBmpText(BerReadCursor& in, LPWSTR& text, BerDecodeArena& arena);

// The array form: SEQUENCE OF or SET OF under exactly this identifier. An absent one is {0, null}.
// element(reader, record, arena) reads its own header.
template <typename Record, typename Element>
[[nodiscard]] bool BerReadElements(BerReadCursor content, DWORD& count, Record*& records,
                                   BerDecodeArena& arena, const Element& element) {
  count = 0;
  records = nullptr;
  if (content.empty()) return true;
  uint64_t elements = 0;
  if (arena.sizing()) {
    for (; !content.empty(); ++elements) {
      Record unkept{};  // where the fields go while the arena only counts
      if (!element(content, unkept, arena)) return false;
    }
    count = static_cast<DWORD>(elements);
    return arena.reserveRecords(static_cast<size_t>(elements), records);
  }
  // counting is a walk over headers: what is wrong inside shows when the elements are read
  std::span<const BYTE> skipped;
  for (BerReadCursor walk = content; !walk.empty(); ++elements) {
    if (!walk.readWhole(skipped)) return false;
  }
  if (!arena.reserveRecords(static_cast<size_t>(elements), records)) return false;
  for (Record* record = records; record != records + elements; ++record) {
    *record = Record{};
    if (!element(content, *record, arena)) return false;
  }
  count = static_cast<DWORD>(elements);
  return true;
}
template <typename Record, typename Element>
[[nodiscard]] bool BerReadSequenceOf(BerReadCursor& in, BYTE tag, DWORD& count, Record*& records,
                                     BerDecodeArena& arena, const Element& element) {
  count = 0;
  records = nullptr;
  if (in.empty()) return true;
  BerReadCursor content;
  return BerExpect(in, tag, content) && BerReadElements(content, count, records, arena, element);
}

// --- writing ---

[[nodiscard]] bool BerEncodeOidField(BYTE tag, LPCSTR dotted, BerWriteCursor& out);
[[nodiscard]] bool BerEncodeOctets(BYTE tag, const CRYPT_DATA_BLOB& blob, BerWriteCursor& out);
[[nodiscard]] bool BerEncodeBits(BYTE tag, const CRYPT_BIT_BLOB& bits, BerWriteCursor& out);
// Shortest two's complement.
[[nodiscard]] bool BerEncodeInteger32(BYTE tag, DWORD value, BerWriteCursor& out);
// From little-endian, shortest two's complement; an empty blob is 0 without content octets.
[[nodiscard]] bool BerEncodeInteger(BYTE tag, const CRYPT_INTEGER_BLOB& blob, BerWriteCursor& out);
// From little-endian, unsigned; a null pointer fails.
[[nodiscard]] bool BerEncodeUint(BYTE tag, const CRYPT_UINT_BLOB& blob, BerWriteCursor& out);
[[nodiscard]] bool BerEncodeTrue(BYTE tag, BerWriteCursor& out);
// The bytes are whole elements; an empty blob is NULL (05 00).
[[nodiscard]] bool BerEncodeVerbatim(const CRYPT_DER_BLOB& blob, BerWriteCursor& out);
// A list under one identifier, from an array that a caller gave: null with a count fails.
template <typename Record, typename Element>
[[nodiscard]] bool BerEncodeListOf(BYTE tag, const Record* records, DWORD count, BerWriteCursor& out,
                                   const Element& element) {
  std::span<const Record> list;
  if (!ArrayOf(records, count, list)) return false;
  return BerEncodeConstructed(tag, out, [&](BerWriteCursor& content) {
    for (const Record& record : list) {
      if (!element(record, content)) return false;
    }
    return true;
  });
}
// The low 16 bits of each character; a null pointer is empty text.
[[nodiscard]] bool BerEncodeBmpText(LPCWSTR text, BerWriteCursor& out);

}  // namespace certkern

#endif
