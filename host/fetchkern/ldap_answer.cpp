#include "fetchkern/ldap_answer.h"

#include <algorithm>

#include "text/base64.h"

namespace certkern::fetch {
namespace {

std::vector<BYTE> Copied(std::string_view text) { return {text.begin(), text.end()}; }

std::optional<std::vector<BYTE>> Decoded(std::string_view text) {
  const std::optional<uint64_t> size = Base64DecodedSize(text);
  if (!size) return std::nullopt;
  std::vector<BYTE> bytes(static_cast<size_t>(*size));
  Base64Read(text, bytes.data());
  return bytes;
}

// "name: value", or "name:: Base64" for a value that is no plain text
std::optional<std::vector<BYTE>> ValueOf(std::string_view line) {
  const size_t colon = line.find(':');
  if (colon == line.npos) return std::nullopt;
  std::string_view value = line.substr(colon + 1);
  const bool encoded = value.starts_with(':');
  if (encoded) value.remove_prefix(1);
  if (value.starts_with(' ')) value.remove_prefix(1);
  return encoded ? Decoded(value) : Copied(value);
}

}  // namespace

std::optional<std::vector<BYTE>> FirstLdapValue(std::string_view answer) {
  for (size_t at = 0; at < answer.size();) {
    const size_t end = std::min(answer.find('\n', at), answer.size());
    const std::string_view line = answer.substr(at, end - at);
    if (line.starts_with('\t')) return ValueOf(line);
    at = end + 1;
  }
  return std::nullopt;
}

}  // namespace certkern::fetch
