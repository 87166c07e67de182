// Any text through every form of CryptStringToBinaryA and W, the Base64 core beside a slow decoder of its own, and any
// bytes through every form of CryptBinaryToStringA and back.
#include <certkern/encode.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "text/base64.h"

namespace {

using Bytes = std::vector<BYTE>;

void Require(bool condition) {
  if (!condition) std::abort();
}

// Of exactly this size even when that is 0, so that the sanitizer sees the first byte too many.
template <class T>
struct Exact {
  explicit Exact(size_t count) : data(std::make_unique<T[]>(count)), size(static_cast<DWORD>(count)) {}
  std::unique_ptr<T[]> data;
  DWORD size;
};

constexpr DWORD kReadForms[] = {0, 1, 0x20000001, 2, 3, 4, 6, 0x20000006, 7, 9};
constexpr DWORD kWrittenForms[][2] = {
    {0,          0         },
    {1,          1         },
    {0x40000001, 1         },
    {2,          2         },
    {3,          3         },
    {0x80000003, 3         },
    {4,          4         },
    {0x40000004, 4         },
    {9,          9         },
    {1,          0x20000006}
};

struct Answer {
  bool done = false;
  DWORD form = 77;
  Bytes bytes;
  bool operator==(const Answer&) const = default;
};

template <class Character>
BOOL Call(const Exact<Character>& text, DWORD form, BYTE* out, DWORD* count, DWORD* skip, DWORD* matched) {
  if constexpr (sizeof(Character) == 1) {
    return CryptStringToBinaryA(text.data.get(), text.size, form, out, count, skip, matched);
  } else {
    return CryptStringToBinaryW(text.data.get(), text.size, form, out, count, skip, matched);
  }
}

// The size query, the filling call with exactly that room, and one with a byte less.
template <class Character>
Answer Read(const Exact<Character>& text, DWORD form) {
  Answer answer;
  DWORD count = 77, skip = 77;
  answer.done = Call<Character>(text, form, nullptr, &count, &skip, &answer.form) != FALSE;
  if (!answer.done) {
    Require(count == 77 && skip == 77 && answer.form == 77 && GetLastError() == CRYPT_E_BAD_ENCODE);
    Exact<BYTE> out(1);
    count = 1;
    Require(!Call<Character>(text, form, out.data.get(), &count, &skip, &answer.form));
    Require(count == 1 && out.data[0] == 0);
    return answer;
  }
  const DWORD size = count;
  const Exact<BYTE> out(size);
  DWORD matched = 77, again = 77;
  Require(Call<Character>(text, form, out.data.get(), &count, &again, &matched));
  Require(count == size && again == skip && matched == answer.form);
  answer.bytes.assign(out.data.get(), out.data.get() + size);
  if (size == 0) return answer;
  const Exact<BYTE> less(size - 1);
  count = size - 1;
  Require(!Call<Character>(text, form, less.data.get(), &count, &skip, &matched));
  Require(GetLastError() == ERROR_MORE_DATA && count == size - 1 && skip == 0 && matched == 0);
  Require(std::all_of(less.data.get(), less.data.get() + size - 1, [](BYTE byte) { return byte == 0; }));
  return answer;
}

// Base64 as it is told, a group of 64 after the other and a bit after the other.
bool ReferenceGroup(std::string group, Bytes& bytes) {
  static const std::string kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  if (group.size() % 4 != 0) return false;
  for (int padding = 0; padding < 2 && group.back() == '='; ++padding) group.pop_back();
  std::vector<bool> bits;
  for (const char character : group) {
    const size_t digit = kDigits.find(static_cast<char>(character & 0x7F));
    if (digit == kDigits.npos) return false;
    for (int bit = 5; bit >= 0; --bit) bits.push_back(digit >> bit & 1);
  }
  for (size_t i = 0; i + 8 <= bits.size(); i += 8) {
    unsigned byte = 0;
    for (size_t bit = 0; bit < 8; ++bit) byte = byte << 1 | (bits[i + bit] ? 1 : 0);
    bytes.push_back(static_cast<BYTE>(byte));
  }
  return true;
}

std::optional<Bytes> Reference(const Exact<char>& text) {
  Bytes bytes;
  std::string group;
  for (size_t i = 0; i < text.size; ++i) {
    const char seven = static_cast<char>(text.data[i] & 0x7F);
    if (seven == ' ' || seven == '\t' || seven == '\r' || seven == '\n') continue;
    if (seven == '-') break;
    group += text.data[i];
    if (group.size() < 64) continue;
    if (!ReferenceGroup(group, bytes)) return std::nullopt;
    group.clear();
  }
  if (!group.empty() && !ReferenceGroup(group, bytes)) return std::nullopt;
  return bytes;
}

void CheckDecoder(const Exact<char>& text) {
  const std::optional<Bytes> expected = Reference(text);
  Exact<BYTE> out(expected ? expected->size() : 0);
  DWORD count = out.size;
  Require(certkern::Base64Decode(text.data.get(), text.size, out.data.get(), &count) == expected.has_value());
  Require(count == out.size);
  Require(!expected || std::equal(expected->begin(), expected->end(), out.data.get()));
}

void CheckWriters(const Exact<BYTE>& data) {
  for (const auto& [written, read] : kWrittenForms) {
    DWORD size = 0;
    Require(CryptBinaryToStringA(data.data.get(), data.size, written, nullptr, &size));
    const Exact<char> room(size);
    DWORD count = size;
    Require(CryptBinaryToStringA(data.data.get(), data.size, written, room.data.get(), &count));
    Require(written == CRYPT_STRING_BINARY ? count == size : count == size - 1 && room.data[count] == '\0');
    Exact<char> text(count);
    std::copy_n(room.data.get(), count, text.data.get());
    const Answer answer = Read(text, read);
    Require(answer.done
            && std::equal(answer.bytes.begin(), answer.bytes.end(), data.data.get(),
                          data.data.get() + data.size));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;  // a count of 0 would ask for a NUL
  Exact<BYTE> bytes(size);
  Exact<char> text(size);
  Exact<char> ascii(size);
  Exact<wchar_t> wide(size);
  for (size_t i = 0; i < size; ++i) {
    bytes.data[i] = data[i];
    text.data[i] = static_cast<char>(data[i]);
    ascii.data[i] = static_cast<char>(data[i] & 0x7F);
    wide.data[i] = data[i] & 0x7F;
  }
  for (const DWORD form : kReadForms) {
    Read(text, form);
    if (form != CRYPT_STRING_BINARY) Require(Read(wide, form) == Read(ascii, form));
  }
  CheckDecoder(text);
  CheckWriters(bytes);
  return 0;
}
