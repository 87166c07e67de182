#include "keykern/container/paths.h"

#include "platform/limits.h"
#include "platform/supkern.h"

#include <strings.h>

#include <algorithm>

namespace keykern {
namespace {

constexpr std::string_view kDevice = "\\\\.\\";
constexpr char kHexDigits[] = "0123456789ABCDEF";

// Letters of any script stay as they are: encoded, a name of 34 Cyrillic letters would already be too long.
bool IsPlain(char c) {
  if (static_cast<BYTE>(c) >= 0x80) return true;
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

bool IsControl(char c) { return (c >= 0 && c < 0x20) || c == 0x7F; }

// Octets that follow the first one of a character; -1 for what begins none.
int FollowersOf(BYTE first) {
  if (first < 0x80) return 0;
  if (first >= 0xC2 && first <= 0xDF) return 1;
  if (first >= 0xE0 && first <= 0xEF) return 2;
  return first >= 0xF0 && first <= 0xF4 ? 3 : -1;
}

// RFC 3629, 4: the second octet says whether a form is overlong, a surrogate or beyond the last character.
bool IsSecond(BYTE first, BYTE second) {
  const BYTE low = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
  const BYTE high = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
  return second >= low && second <= high;
}

bool IsUtf8(std::string_view text) {
  for (size_t i = 0; i < text.size();) {
    const BYTE first = static_cast<BYTE>(text[i++]);
    const int followers = FollowersOf(first);
    if (followers < 0 || text.size() - i < static_cast<size_t>(followers)) return false;
    for (int n = 0; n < followers; ++n, ++i) {
      const BYTE next = static_cast<BYTE>(text[i]);
      if (n == 0 ? !IsSecond(first, next) : (next & 0xC0) != 0x80) return false;
    }
  }
  return true;
}

DWORD CodeOfSupport(int code) {
  switch (code) {
    case ERROR_ACCESS_DENIED:
      return NTE_PERM;
    case ERROR_NOT_ENOUGH_MEMORY:
      return NTE_NO_MEMORY;
    default:
      return NTE_KEYSET_NOT_DEF;
  }
}

}  // namespace

DWORD OpenKeysDirectory(Scope scope, Directory& directory) {
  const char* place = scope == Scope::User ? "\\local\\keys\\" : "\\global\\keys\\";
  size_t size = 0;
  if (const int code = support_path2dir(place, &size, nullptr)) return CodeOfSupport(code);
  std::string path(size, '\0');
  if (const int code = support_path2dir(place, &size, path.data())) return CodeOfSupport(code);
  path.resize(path.find('\0'));
  const DWORD code = directory.open(path);
  return code == NTE_NOT_FOUND ? NTE_KEYSET_NOT_DEF : code;
}

DWORD StripReader(std::string_view given, std::string& name) {
  constexpr std::string_view kOwn = kReaderPrefix;
  if (given.starts_with(kDevice)) {
    const bool isOwn =
        given.size() >= kOwn.size() && strncasecmp(given.data(), kOwn.data(), kOwn.size()) == 0;
    if (!isOwn) return NTE_KEYSET_NOT_DEF;
    given.remove_prefix(kOwn.size());
    // given back alone, as a name is told, it would be taken for a reader and lead to another container
    if (given.starts_with(kDevice)) return NTE_BAD_KEYSET_PARAM;
  }
  if (given.empty() || std::ranges::any_of(given, IsControl) || !IsUtf8(given)
      || ToFileName(given).size() > certkern::kMaxContainerName) {
    return NTE_BAD_KEYSET_PARAM;
  }
  name = given;
  return ERROR_SUCCESS;
}

std::string ToFileName(std::string_view name) {
  std::string fileName;
  for (const char c : name) {
    if (IsPlain(c)) {
      fileName += c;
    } else {
      const BYTE octet = static_cast<BYTE>(c);
      fileName.append({'%', kHexDigits[octet >> 4], kHexDigits[octet & 15]});
    }
  }
  return fileName;
}

bool FromFileName(std::string_view fileName, std::string& name) {
  constexpr std::string_view kDigits = kHexDigits;
  std::string decoded;
  for (size_t i = 0; i < fileName.size(); ++i) {
    if (fileName[i] != '%') {
      decoded += fileName[i];
      continue;
    }
    if (fileName.size() - i < 3) return false;
    const size_t high = kDigits.find(fileName[i + 1]), low = kDigits.find(fileName[i + 2]);
    if (high == kDigits.npos || low == kDigits.npos) return false;
    decoded += static_cast<char>(high << 4 | low);
    i += 2;
  }
  std::string whole;
  if (StripReader(decoded, whole) != ERROR_SUCCESS || whole != decoded || ToFileName(decoded) != fileName)
    return false;
  name = std::move(decoded);
  return true;
}

}  // namespace keykern
