// Any bytes as text of every code page, and any words as wide characters: what is asked for is what is written, strict
// and lenient readings agree on well-formed text, and such text comes back as it was.
#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <span>

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

// Of exactly this size, so that the sanitizer sees the first unit too many.
template <class T>
struct Exact {
  explicit Exact(size_t count) : data(std::make_unique<T[]>(count)), size(static_cast<int>(count)) {}
  bool operator==(const Exact& other) const {
    return size == other.size && std::equal(data.get(), data.get() + size, other.data.get());
  }
  std::unique_ptr<T[]> data;
  int size;
};
using Narrow = Exact<char>;
using Wide = Exact<wchar_t>;

int Convert(UINT page, bool strict, const Narrow& text, wchar_t* out, int room) {
  return MultiByteToWideChar(page, strict ? MB_ERR_INVALID_CHARS : 0, text.data.get(), text.size, out, room);
}
int Convert(UINT page, bool strict, const Wide& text, char* out, int room) {
  return WideCharToMultiByte(page, strict ? WC_ERR_INVALID_CHARS : 0, text.data.get(), text.size, out, room,
                             nullptr, nullptr);
}

// The size query, the call with exactly that room, and one with a unit less.
template <class To, class From>
std::optional<Exact<To>> Converted(UINT page, bool strict, const Exact<From>& text) {
  const int size = Convert(page, strict, text, static_cast<To*>(nullptr), 0);
  if (!size) {
    Require(strict && GetLastError() == ERROR_NO_UNICODE_TRANSLATION);
    return std::nullopt;
  }
  Exact<To> out(static_cast<size_t>(size));
  Require(Convert(page, strict, text, out.data.get(), size) == size);
  if (size > 1) {
    const Exact<To> less(static_cast<size_t>(size) - 1);
    Require(Convert(page, strict, text, less.data.get(), less.size) == 0);
    Require(GetLastError() == ERROR_INSUFFICIENT_BUFFER);
  }
  return out;
}

template <class To, class From>
void CheckText(UINT page, const Exact<From>& text) {
  const auto lenient = Converted<To>(page, false, text);
  Require(lenient.has_value());
  const auto strict = Converted<To>(page, true, text);
  // what a replacement wrote is well-formed, whatever came in
  const auto back = Converted<From>(page, true, *lenient);
  Require(back.has_value());
  if (strict) Require(*strict == *lenient && *back == text);
}

template <class T>
Exact<T> Copied(std::span<const uint8_t> input) {
  Exact<T> text(input.size() / sizeof(T));
  std::memcpy(text.data.get(), input.data(), static_cast<size_t>(text.size) * sizeof(T));
  return text;
}

// The terminated form of a text that has no NUL before its end.
void CheckTerminated(UINT page, const Narrow& text) {
  const int unit = page == CP_UTF16LE ? 2 : 1;
  Narrow terminated(static_cast<size_t>(text.size / unit * unit + unit));
  std::copy_n(text.data.get(), terminated.size - unit, terminated.data.get());
  int end = 0;
  while (std::any_of(&terminated.data[end], &terminated.data[end] + unit, [](char c) { return c != 0; }))
    end += unit;
  Require(MultiByteToWideChar(page, 0, terminated.data.get(), -1, nullptr, 0)
          == MultiByteToWideChar(page, 0, terminated.data.get(), end + unit, nullptr, 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const uint8_t> input(data, size);
  const Narrow bytes = Copied<char>(input);
  const Wide wide = Copied<wchar_t>(input);
  for (const UINT page : {UINT{CP_ACP}, UINT{CP_UTF16LE}, UINT{CP_UTF8}}) {
    CheckTerminated(page, bytes);
    if (bytes.size) CheckText<wchar_t>(page, bytes);
    if (wide.size) CheckText<char>(page, wide);
  }
  return 0;
}
