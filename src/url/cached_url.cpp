#include "url/cached_url.h"

#include <algorithm>
#include <cstdint>

#include "platform/limits.h"

namespace certkern {
namespace {

constexpr size_t kTimes = 2 * sizeof(FILETIME);

void AppendWord(std::vector<BYTE>& out, uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<BYTE>(value >> shift));
}

void AppendTime(std::vector<BYTE>& out, const FILETIME& time) {
  AppendWord(out, time.dwLowDateTime);
  AppendWord(out, time.dwHighDateTime);
}

uint32_t WordAt(std::span<const BYTE> bytes, size_t at) {
  return uint32_t{bytes[at]} | uint32_t{bytes[at + 1]} << 8 | uint32_t{bytes[at + 2]} << 16
      | uint32_t{bytes[at + 3]} << 24;
}

FILETIME TimeAt(std::span<const BYTE> bytes, size_t at) { return {WordAt(bytes, at), WordAt(bytes, at + 4)}; }

}  // namespace

std::vector<BYTE> EncodeCachedUrl(const CachedUrl& value) {
  std::vector<BYTE> out;
  out.reserve(kTimes + value.url.size() + 1);
  AppendTime(out, value.lastModified);
  AppendTime(out, value.lastUsed);
  out.insert(out.end(), value.url.begin(), value.url.end());
  out.push_back(0);
  return out;
}

std::optional<CachedUrl> DecodeCachedUrl(std::span<const BYTE> bytes) {
  constexpr size_t kShortest = kTimes + 2;  // a URL of one character and its NUL
  if (bytes.size() < kShortest) return std::nullopt;
  const std::span<const BYTE> text = bytes.subspan(kTimes);
  const auto end = std::ranges::find(text, BYTE{0});
  const auto length = static_cast<size_t>(end - text.begin());
  if (end == text.end() || length == 0 || length > kMaxUrl) return std::nullopt;
  return CachedUrl{TimeAt(bytes, 0), TimeAt(bytes, 8), std::string(text.begin(), end)};
}

}  // namespace certkern
