// Text on its way into a caller's buffer. A buffer without room is none: the size is asked for. All sizes count the
// NUL.
#ifndef CERTKERN_NAMES_TEXT_OUTPUT_H
#define CERTKERN_NAMES_TEXT_OUTPUT_H

#include <certkern/types.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "platform/limits.h"

namespace certkern {

// What the interface cannot count is an exception: names are nowhere near it.
DWORD CountWithNul(size_t characters);

// Copies as much as there is room for. Answers the characters written, or needed without a buffer.
template <class Char>
DWORD CopyText(std::basic_string_view<Char> text, Char* out, DWORD room) {
  if (!out || !room) return CountWithNul(text.size());
  const size_t count = std::min<size_t>(text.size(), room - 1);
  std::copy_n(text.data(), count, out);
  out[count] = Char{};
  return CountWithNul(count);
}

// The same through a code page, cut between characters. 0 with a code when the text has no form there.
DWORD CopyNarrowed(std::wstring_view text, UINT codePage, LPSTR out, DWORD room);

// As CopyText, but a buffer that is too long is filled up with zeros, and one that is too short is answered as its room.
DWORD CopyFilled(const std::wstring& text, LPWSTR out, DWORD room);

// In UTF-8, when it fits; to begin with the text is cut to as many characters as there are bytes. 0 with a code when it
// does not fit or has no form there. The buffer has room.
DWORD CopyUtf8(std::wstring_view text, LPSTR out, DWORD room);
// What is told to who asks for that size: what it is at the most.
DWORD Utf8Bound(size_t characters);

// What a failure leaves in the buffer.
template <class Char>
void ClearText(Char* out, DWORD room) {
  if (out && room) *out = Char{};
}

}  // namespace certkern

#endif
