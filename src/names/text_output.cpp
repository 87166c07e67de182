#include "names/text_output.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <cwchar>
#include <limits>
#include <stdexcept>

namespace certkern {
namespace {

// Bytes of a text; 0 with a code when it cannot be converted.
size_t NarrowSize(std::wstring_view text, UINT codePage) {
  const int size = WideCharToMultiByte(codePage, 0, text.data(), static_cast<int>(text.size()), nullptr, 0,
                                       nullptr, nullptr);
  return size > 0 ? static_cast<size_t>(size) : 0;
}

// The longest beginning of a text that takes no more than room bytes. By halves, because an encoding may have states,
// so that nothing but the conversion itself knows how long a beginning is.
std::wstring_view FittingBeginning(std::wstring_view text, UINT codePage, size_t room) {
  size_t fits = 0;
  size_t tooLong = text.size();
  while (tooLong - fits > 1) {
    const size_t middle = fits + (tooLong - fits) / 2;
    const size_t size = NarrowSize(text.substr(0, middle), codePage);
    (size && size <= room ? fits : tooLong) = middle;
  }
  return text.substr(0, fits);
}

}  // namespace

DWORD CountWithNul(size_t characters) {
  if (characters >= kMaxInterfaceSize) throw std::length_error("text longer than the interface can count");
  return static_cast<DWORD>(characters + 1);
}

DWORD CopyNarrowed(std::wstring_view text, UINT codePage, LPSTR out, DWORD room) {
  if (text.size() > kMaxConvertedText) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  const size_t whole = text.empty() ? 0 : NarrowSize(text, codePage);
  if (!whole && !text.empty()) return 0;
  if (!out || !room) return CountWithNul(whole);
  if (whole >= room) text = FittingBeginning(text, codePage, room - 1);
  size_t size = 0;
  if (!text.empty()) {
    const int written =
        WideCharToMultiByte(codePage, 0, text.data(), static_cast<int>(text.size()), out,
                            static_cast<int>(std::min<size_t>(whole, room)), nullptr, nullptr);
    if (written <= 0) return 0;
    size = static_cast<size_t>(written);
  }
  out[size] = '\0';
  return CountWithNul(size);
}

DWORD CopyFilled(const std::wstring& text, LPWSTR out, DWORD room) {
  const DWORD count = CountWithNul(text.size());
  if (!out || !room) return count;
  std::wcsncpy(out, text.c_str(), room);
  if (count <= room) return count;
  out[room - 1] = L'\0';
  return room;
}

DWORD CopyUtf8(std::wstring_view text, LPSTR out, DWORD room) {
  text = text.substr(0, room - 1);
  if (text.size() > kMaxConvertedText) throw std::length_error("text longer than a conversion can count");
  int size = 0;
  if (!text.empty()) {
    const int most = static_cast<int>(std::min<DWORD>(room - 1, std::numeric_limits<int>::max()));
    size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out, most, nullptr,
                               nullptr);
    if (size <= 0) {
      if (GetLastError() == ERROR_INSUFFICIENT_BUFFER) SetLastError(ERROR_MORE_DATA);
      return 0;
    }
  }
  out[size] = '\0';
  return static_cast<DWORD>(size) + 1;
}

DWORD Utf8Bound(size_t characters) {
  const uint64_t bound = uint64_t{4} * characters;
  return CountWithNul(bound);
}

}  // namespace certkern
