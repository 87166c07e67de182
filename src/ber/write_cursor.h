// Where an encoder puts its bytes.
//
// Without a buffer the cursor counts; with one it writes, and counts down the room. One piece of code runs in both
// modes: every constructed element runs its content once to learn the length and, when filling, once more to write it.
#ifndef CERTKERN_BER_WRITE_CURSOR_H
#define CERTKERN_BER_WRITE_CURSOR_H

#include <certkern/types.h>

#include <cstddef>
#include <span>

namespace certkern {

inline constexpr BYTE kTagBoolean = 1;
inline constexpr BYTE kTagInteger = 2;
inline constexpr BYTE kTagBitString = 3;
inline constexpr BYTE kTagOctetString = 4;
inline constexpr BYTE kTagNull = 5;
inline constexpr BYTE kTagOid = 6;
inline constexpr BYTE kTagEnumerated = 10;
inline constexpr BYTE kTagUtf8String = 12;
inline constexpr BYTE kTagUtcTime = 23;
inline constexpr BYTE kTagGeneralizedTime = 24;
inline constexpr BYTE kTagBmpString = 30;
inline constexpr BYTE kTagSequence = 0x30;
inline constexpr BYTE kTagSet = 0x31;
inline constexpr BYTE kConstructed = 0x20;
// No identifier of its own: any is read, none is written.
inline constexpr BYTE kNoTag = 31;

// Context-specific identifiers.
constexpr BYTE Context(int number) { return static_cast<BYTE>(0x80 | number); }
constexpr BYTE ContextConstructed(int number) { return static_cast<BYTE>(0xA0 | number); }

class BerWriteCursor {
 public:
  BerWriteCursor() = default;  // counts
  BerWriteCursor(BYTE* out, size_t room) : out_(out), count_(room) {}

  bool sizing() const { return out_ == nullptr; }
  // Counting: bytes so far. Filling: room that is left.
  size_t count() const { return count_; }

  // Room for size bytes, which the caller writes at once; null while counting. Too little room is ERROR_MORE_DATA.
  [[nodiscard]] bool take(size_t size, BYTE*& place);
  [[nodiscard]] bool write(std::span<const BYTE> bytes);

 private:
  BYTE* out_ = nullptr;
  size_t count_ = 0;
};

// Identifier and length as given, then room for the content; nothing is written unless all of it fits.
// Under kNoTag there is no header at all.
[[nodiscard]] bool BerBeginElement(BYTE tag, size_t contentSize, BerWriteCursor& out, BYTE*& content);

// The header of a constructed element; leaves inner, which has counted the content, as a cursor over its place.
[[nodiscard]] bool BerWriteHeader(BYTE tag, BerWriteCursor& inner, BerWriteCursor& out);

// A constructed element around what content(cursor) writes.
template <typename Content>
[[nodiscard]] bool BerEncodeConstructed(BYTE tag, BerWriteCursor& out, const Content& content) {
  BerWriteCursor inner;
  if (!content(inner)) return false;
  if (!BerWriteHeader(tag, inner, out)) return false;
  if (out.sizing()) return true;
  // a record that another thread changes between the passes must not leave a hole
  return content(inner) && inner.count() == 0;
}

}  // namespace certkern

#endif
