#include "ber/fields.h"

#include "ber/oid_text.h"

#include <cstring>
#include <cwchar>

namespace certkern {
namespace {

// Size that is left of little-endian bytes when what only repeats the sign is dropped; 1 at least.
size_t SignedSize(std::span<const BYTE> little) {
  const BYTE fill = little.back() & 0x80 ? 0xFF : 0x00;
  size_t size = little.size();
  while (size > 1 && little[size - 1] == fill && (little[size - 2] & 0x80) == (fill & 0x80)) --size;
  return size;
}

// Serial numbers and key parts are long enough that eight bytes at a time pay.
void ReverseCopy(std::span<const BYTE> bytes, BYTE* place) {
  const BYTE* end = bytes.data() + bytes.size();
  size_t left = bytes.size();
  for (; left >= sizeof(uint64_t); left -= sizeof(uint64_t), place += sizeof(uint64_t)) {
    uint64_t word;
    end -= sizeof(word);
    std::memcpy(&word, end, sizeof(word));
    word = __builtin_bswap64(word);
    std::memcpy(place, &word, sizeof(word));
  }
  while (left--) *place++ = *--end;
}

bool EncodeReversed(BYTE tag, std::span<const BYTE> little, bool zeroInFront, BerWriteCursor& out) {
  BYTE* place;
  if (!BerBeginElement(tag, little.size() + zeroInFront, out, place)) return false;
  if (!place) return true;
  if (zeroInFront) *place++ = 0;
  ReverseCopy(little, place);
  return true;
}

}  // namespace

bool BlobBytes(const CRYPT_DATA_BLOB& blob, std::span<const BYTE>& bytes) {
  if (!blob.pbData && blob.cbData) return false;
  bytes = {blob.pbData, blob.cbData};
  return true;
}

bool BerCopyBytes(std::span<const BYTE> bytes, CRYPT_DATA_BLOB& blob, BerDecodeArena& arena) {
  BYTE* place;
  if (!arena.reserve(bytes.size(), place)) return false;
  if (place && !bytes.empty()) std::memcpy(place, bytes.data(), bytes.size());
  blob.cbData = static_cast<DWORD>(bytes.size());
  blob.pbData = place;
  return true;
}

bool BerCopyReversed(std::span<const BYTE> bytes, CRYPT_DATA_BLOB& blob, BerDecodeArena& arena) {
  BYTE* place;
  if (!arena.reserve(bytes.size(), place)) return false;
  if (place) ReverseCopy(bytes, place);
  blob.cbData = static_cast<DWORD>(bytes.size());
  blob.pbData = place;
  return true;
}

bool BerCopyOidText(std::span<const BYTE> content, LPSTR& text, BerDecodeArena& arena) {
  size_t size;
  const std::span<BYTE> room = arena.rest();
  if (room.size() >= OidTextBound(content.size())) {
    text = reinterpret_cast<LPSTR>(room.data());
    if (!BerDecodeOidRoomy(content, text, size)) return false;
    arena.commit(size);
    return true;
  }
  BYTE* place;
  if (!BerDecodeOid(content, nullptr, size) || !arena.reserve(size, place)) return false;
  text = reinterpret_cast<LPSTR>(place);
  return !place || BerDecodeOid(content, text, size);
}

bool BerCopyBits(std::span<const BYTE> content, CRYPT_BIT_BLOB& bits, BerDecodeArena& arena) {
  if (content.empty() || content[0] > 7) return false;
  CRYPT_DATA_BLOB bytes;
  if (!BerCopyBytes(content.subspan(1), bytes, arena)) return false;
  bits = {bytes.cbData, bytes.pbData, content[0]};
  return true;
}

bool BerSignedValue(std::span<const BYTE> content, DWORD& value) {
  if (content.empty() || content.size() > 4) return false;
  value = content[0] & 0x80 ? ~DWORD{0} : 0;
  for (const BYTE octet : content) value = value << 8 | octet;
  return true;
}

bool BerDecodeOidField(BerReadCursor& in, LPSTR& text, BerDecodeArena& arena) {
  BYTE tag;
  BerReadCursor content;
  if (in.empty()) return false;
  return in.readElement(tag, content) && BerCopyOidText(content.rest(), text, arena);
}

bool BerDecodeOctets(BerReadCursor& in, CRYPT_DATA_BLOB& blob, BerDecodeArena& arena) {
  BYTE tag;
  BerReadCursor content;
  if (in.empty()) return true;
  return in.readElement(tag, content) && BerCopyBytes(content.rest(), blob, arena);
}

bool BerDecodeInteger(BerReadCursor& in, CRYPT_INTEGER_BLOB& blob, BerDecodeArena& arena) {
  BYTE tag;
  BerReadCursor content;
  if (in.empty()) return true;
  return in.readElement(tag, content) && BerCopyReversed(content.rest(), blob, arena);
}

bool BerDecodeUint(BerReadCursor& in, CRYPT_UINT_BLOB& blob, BerDecodeArena& arena) {
  BYTE tag;
  BerReadCursor content;
  if (in.empty()) return true;
  if (!in.readElement(tag, content)) return false;
  while (content.nextIs(0)) content.skip(1);
  return BerCopyReversed(content.rest(), blob, arena);
}

bool BerDecodeBits(BerReadCursor& in, CRYPT_BIT_BLOB& bits, BerDecodeArena& arena) {
  BYTE tag;
  BerReadCursor content;
  if (in.empty()) return true;
  return in.readElement(tag, content) && BerCopyBits(content.rest(), bits, arena);
}

bool BerDecodeSomeBits(BerReadCursor& in, CRYPT_BIT_BLOB& bits, BerDecodeArena& arena) {
  BYTE tag;
  BerReadCursor content;
  if (in.empty()) return true;
  return in.readElement(tag, content) && content.size() > 1 && BerCopyBits(content.rest(), bits, arena);
}

bool BerDecodeBoolean(BerReadCursor& in, BOOL& value) {
  value = FALSE;
  if (!in.nextIs(kTagBoolean)) return true;
  BYTE tag;
  BerReadCursor content;
  if (!in.readElement(tag, content)) return false;
  value = !content.empty() && *content.data() ? TRUE : FALSE;
  return true;
}

bool BerDecodeInteger32(BerReadCursor& in, DWORD& value) {
  BerReadCursor content;
  return BerExpect(in, kTagInteger, content) && BerSignedValue(content.rest(), value);
}

bool BerDecodeVersion(BerReadCursor& in, DWORD& version) {
  BYTE tag;
  BerReadCursor content;
  return in.nextIs(kTagInteger, 31) && in.readElement(tag, content)
      && BerSignedValue(content.rest(), version);
}

bool BerCaptureElement(BerReadCursor& in, CRYPT_DER_BLOB& blob, BerDecodeArena& arena) {
  std::span<const BYTE> element;
  if (in.empty()) return false;
  return in.readWhole(element) && BerCopyBytes(element, blob, arena);
}

bool BerDecodeBmpText(BerReadCursor& in, LPWSTR& text, BerDecodeArena& arena) {
  text = nullptr;
  if (in.empty()) return true;
  BerReadCursor content;
  if (!BerExpect(in, kTagBmpString, content)) return false;
  const size_t characters = content.size() / 2;
  WCHAR* place;
  if (!arena.reserveRecords(characters + 1, place)) return false;
  const BYTE* unit = content.data();
  for (size_t i = 0; place && i < characters; ++i, unit += 2)
    place[i] = static_cast<WCHAR>(unit[0] << 8 | unit[1]);
  if (place) place[characters] = L'\0';
  text = place;
  return true;
}

bool BerEncodeOidField(BYTE tag, LPCSTR dotted, BerWriteCursor& out) {
  size_t size;
  BYTE* place;
  if (!BerEncodeOid(dotted, nullptr, size) || !BerBeginElement(tag, size, out, place)) return false;
  return !place || BerEncodeOid(dotted, place, size);
}

bool BerEncodeOctets(BYTE tag, const CRYPT_DATA_BLOB& blob, BerWriteCursor& out) {
  std::span<const BYTE> bytes;
  BYTE* place;
  if (!BlobBytes(blob, bytes) || !BerBeginElement(tag, bytes.size(), out, place)) return false;
  if (place && !bytes.empty()) std::memcpy(place, bytes.data(), bytes.size());
  return true;
}

bool BerEncodeBits(BYTE tag, const CRYPT_BIT_BLOB& bits, BerWriteCursor& out) {
  std::span<const BYTE> bytes;
  BYTE* place;
  if (bits.cUnusedBits > 7 || !BlobBytes({bits.cbData, bits.pbData}, bytes)) return false;
  if (!BerBeginElement(tag, bytes.size() + 1, out, place)) return false;
  if (!place) return true;
  *place++ = static_cast<BYTE>(bits.cUnusedBits);
  if (!bytes.empty()) std::memcpy(place, bytes.data(), bytes.size());
  return true;
}

bool BerEncodeInteger32(BYTE tag, DWORD value, BerWriteCursor& out) {
  const BYTE little[] = {static_cast<BYTE>(value), static_cast<BYTE>(value >> 8),
                         static_cast<BYTE>(value >> 16), static_cast<BYTE>(value >> 24)};
  return EncodeReversed(tag, std::span(little).first(SignedSize(little)), false, out);
}

bool BerEncodeInteger(BYTE tag, const CRYPT_INTEGER_BLOB& blob, BerWriteCursor& out) {
  std::span<const BYTE> little;
  if (!BlobBytes(blob, little)) return false;
  if (!little.empty()) little = little.first(SignedSize(little));
  return EncodeReversed(tag, little, false, out);
}

bool BerEncodeUint(BYTE tag, const CRYPT_UINT_BLOB& blob, BerWriteCursor& out) {
  std::span<const BYTE> little;
  if (!blob.pbData || !BlobBytes(blob, little)) return false;
  while (!little.empty() && !little.back()) little = little.first(little.size() - 1);
  return EncodeReversed(tag, little, !little.empty() && (little.back() & 0x80), out);
}

bool BerEncodeTrue(BYTE tag, BerWriteCursor& out) {
  BYTE* place;
  if (!BerBeginElement(tag, 1, out, place)) return false;
  if (place) *place = 0xFF;
  return true;
}

bool BerEncodeVerbatim(const CRYPT_DER_BLOB& blob, BerWriteCursor& out) {
  static constexpr BYTE kNull[] = {kTagNull, 0};
  std::span<const BYTE> bytes;
  return BlobBytes(blob, bytes) && out.write(bytes.empty() ? std::span<const BYTE>(kNull) : bytes);
}

bool BerEncodeBmpText(LPCWSTR text, BerWriteCursor& out) {
  const size_t characters = text ? std::wcslen(text) : 0;
  BYTE* place;
  if (!BerBeginElement(kTagBmpString, 2 * characters, out, place)) return false;
  for (size_t i = 0; place && i < characters; ++i) {
    *place++ = static_cast<BYTE>(text[i] >> 8);
    *place++ = static_cast<BYTE>(text[i]);
  }
  return true;
}

}  // namespace certkern
