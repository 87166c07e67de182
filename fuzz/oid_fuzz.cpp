// Object identifiers from text to content octets and back, beside a slow reference that shares no code with them.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ber/oid_text.h"

namespace {

using Octets = std::vector<uint8_t>;

void Require(bool condition) {
  if (!condition) std::abort();
}

// X.690, 8.19: the arcs of content octets, as text. Up to eight octets an arc; the first two arcs share one value, of
// which 120 and above is refused.
std::optional<std::string> ReferenceText(std::span<const uint8_t> content) {
  std::vector<uint64_t> values;
  for (size_t i = 0; i < content.size();) {
    size_t end = i;
    while (end < content.size() && (content[end] & 0x80)) ++end;
    if (end == content.size() || end - i >= 8) return std::nullopt;
    uint64_t value = 0;
    for (; i <= end; ++i) value = value * 128 + content[i] % 128;
    values.push_back(value);
  }
  if (values.empty() || values[0] >= 120) return std::nullopt;
  std::string text = std::to_string(values[0] / 40);
  text.append(".").append(std::to_string(values[0] % 40));
  for (size_t i = 1; i < values.size(); ++i) text.append(".").append(std::to_string(values[i]));
  return text;
}

// The arcs between separators, full stops or blanks; an empty one is 0, but a separator that ends the text opens none
// beyond the second. Arithmetic is modulo 2^64.
std::optional<Octets> ReferenceContent(std::string text) {
  std::replace(text.begin(), text.end(), ' ', '.');
  if (text.find_first_not_of("0123456789.") != text.npos) return std::nullopt;
  if (text.size() < 2 || text[0] > '2' || text[0] == '.' || text[1] != '.') return std::nullopt;
  std::vector<std::string> arcs = {""};
  for (const char c : text) {
    if (c == '.') {
      arcs.emplace_back();
    } else {
      arcs.back() += c;
    }
  }
  if (arcs.size() > 2 && arcs.back().empty()) arcs.pop_back();
  std::vector<uint64_t> values;
  for (const std::string& arc : arcs) {
    uint64_t value = 0;
    for (const char digit : arc) value = value * 10 + static_cast<uint64_t>(digit - '0');
    values.push_back(value);
  }
  if (values[0] < 2 && values[1] > 39) return std::nullopt;
  values[1] += values[0] * 40;
  Octets content;
  for (size_t i = 1; i < values.size(); ++i) {
    Octets reversed = {static_cast<uint8_t>(values[i] % 128)};
    for (uint64_t rest = values[i] / 128; rest; rest /= 128)
      reversed.push_back(static_cast<uint8_t>(rest % 128 + 128));
    content.insert(content.end(), reversed.rbegin(), reversed.rend());
  }
  return content;
}

// Buffers of exactly the size asked for, so that the sanitizer sees the first byte too many.
std::optional<std::string> TextOf(std::span<const uint8_t> content) {
  size_t size = 0;
  if (!certkern::BerDecodeOid(content, nullptr, size)) return std::nullopt;
  const auto exact = std::make_unique<char[]>(size);
  size_t written = 0;
  Require(certkern::BerDecodeOid(content, exact.get(), written) && written == size && !exact[size - 1]);
  const size_t bound = certkern::OidTextBound(content.size());
  const auto roomy = std::make_unique<char[]>(bound);
  Require(size <= bound && certkern::BerDecodeOidRoomy(content, roomy.get(), written));
  Require(written == size && std::equal(exact.get(), exact.get() + size, roomy.get()));
  return std::string(exact.get());
}

std::optional<Octets> ContentOf(const std::string& text) {
  size_t size = 0;
  if (!certkern::BerEncodeOid(text.c_str(), nullptr, size)) return std::nullopt;
  const auto exact = std::make_unique<uint8_t[]>(size);
  size_t written = size;
  Require(certkern::BerEncodeOid(text.c_str(), exact.get(), written) && written == size);
  return Octets(exact.get(), exact.get() + size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const uint8_t> content(data, size);
  Require(TextOf(content) == ReferenceText(content));
  const std::string bytes(content.begin(), content.end());
  const std::string text = bytes.c_str();  // up to the first NUL
  Require(ContentOf(text) == ReferenceContent(text));
  return 0;
}
