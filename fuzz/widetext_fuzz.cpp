// Text between code pages and wide characters. The first octet chooses page, direction and strictness; the rest is the
// text, as octets or as 32-bit characters.
#include <certkern/keykern.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

// Exactly as many characters as were asked for, so that the sanitizer sees the first one too many.
template <class Character>
struct Text {
  explicit Text(size_t length) : characters(new Character[length]), size(static_cast<int>(length)) {}
  std::unique_ptr<Character[]> characters;
  int size;
};

int Convert(UINT page, DWORD flags, const Text<char>& from, wchar_t* to, int room) {
  return MultiByteToWideChar(page, flags, from.characters.get(), from.size, to, room);
}
int Convert(UINT page, DWORD flags, const Text<wchar_t>& from, char* to, int room) {
  return WideCharToMultiByte(page, flags, from.characters.get(), from.size, to, room, nullptr, nullptr);
}

template <class To, class From>
Text<To> ConvertAll(UINT page, DWORD flags, const Text<From>& from) {
  const int needed = Convert(page, flags, from, static_cast<To*>(nullptr), 0);
  Text<To> to(static_cast<size_t>(needed));
  if (!needed) return to;
  Require(Convert(page, flags, from, to.characters.get(), needed) == needed);
  if (needed > 1) {
    Text<To> small(static_cast<size_t>(needed) - 1);
    Require(Convert(page, flags, from, small.characters.get(), small.size) == 0);
  }
  return to;
}

template <class Character>
bool Same(const Text<Character>& a, const Text<Character>& b) {
  return a.size == b.size
      && !std::memcmp(a.characters.get(), b.characters.get(),
                      static_cast<size_t>(a.size) * sizeof(Character));
}

// What is well-formed comes back as it was; what is not becomes text that is.
template <class To, class From>
void Check(UINT page, bool strict, DWORD strictThere, DWORD strictBack, std::span<const uint8_t> bytes) {
  const size_t length = bytes.size() / sizeof(From);
  if (!length) return;
  Text<From> text(length);
  std::memcpy(text.characters.get(), bytes.data(), length * sizeof(From));
  const Text<To> there = ConvertAll<To>(page, strict ? strictThere : 0, text);
  Require(there.size > 0 || strict);
  if (!there.size) return;
  const Text<From> back = ConvertAll<From>(page, strictBack, there);
  Require(back.size > 0);
  if (strict) Require(Same(back, text));
  Require(Same(ConvertAll<To>(page, strictThere, back), there));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  constexpr UINT kPages[] = {CP_UTF8, CP_UTF16LE, CP_ACP};
  const UINT page = kPages[data[0] % 3];
  const bool strict = (data[0] & 0x40) != 0;
  const std::span<const uint8_t> bytes(data + 1, size - 1);
  if (data[0] & 0x80) {
    Check<char, wchar_t>(page, strict, WC_ERR_INVALID_CHARS, MB_ERR_INVALID_CHARS, bytes);
  } else {
    Check<wchar_t, char>(page, strict, MB_ERR_INVALID_CHARS, WC_ERR_INVALID_CHARS, bytes);
  }
  return 0;
}
