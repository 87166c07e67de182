#include "policy/server_name.h"

#include <certkern/encode.h>
#include <certkern/errors.h>
#include <certkern/name.h>
#include <certkern/oids.h>

#include <algorithm>
#include <span>
#include <vector>

#include "ber/object_codec.h"
#include "ber/read_cursor.h"
#include "names/decoded_name.h"
#include "names/name_text.h"
#include "names/value_text.h"
#include "platform/exceptions.h"
#include "platform/owner.h"
#include "platform/text_conversion.h"
#include "store/certificate_primitives.h"

namespace certkern {
namespace {

// An address of another size than four bytes goes as text of so many units at most.
constexpr size_t kMaxAddressText = 79;

std::vector<std::wstring_view> Labels(std::wstring_view name) {
  std::vector<std::wstring_view> labels;
  for (;;) {
    const size_t dot = name.find(L'.');
    labels.push_back(name.substr(0, dot));
    if (dot == name.npos) return labels;
    name.remove_prefix(dot + 1);
  }
}

using AltNames = Owner<CERT_ALT_NAME_INFO*, LocalFree>;

AltNames DecodeAltNames(std::span<const BYTE> encoded) {
  SetLastError(ERROR_SUCCESS);
  void* record = nullptr;
  if (!DecodeObjectEx(X509_ASN_ENCODING, X509_ALTERNATE_NAME, encoded.data(),
                      static_cast<DWORD>(encoded.size()), CRYPT_DECODE_ALLOC_FLAG, nullptr, &record,
                      nullptr)) {
    ThrowLastError();
  }
  return AltNames(static_cast<CERT_ALT_NAME_INFO*>(record));
}

bool HasNul(std::span<const BYTE> bytes) { return std::ranges::find(bytes, BYTE{0}) != bytes.end(); }

// A dNSName with a NUL inside, which its text would hide, is no name of a server; the decoder takes no list that has one.
// True: some were dropped, and `kept` is a list of the others. A list that can't be walked is left to the decoder.
bool DropNamesWithNul(std::span<const BYTE> encoded, std::vector<BYTE>& kept) {
  constexpr BYTE kSequence = 0x30, kDnsName = 0x82;
  const LastErrorKeeper keeper;
  BYTE tag = 0;
  BerReadCursor list(encoded), names;
  if (!list.readElement(tag, names) || tag != kSequence) return false;
  kept = {kSequence, 0x84, 0, 0, 0, 0};
  const size_t header = kept.size();
  bool dropped = false;
  while (!names.empty()) {
    const BYTE* const begin = names.data();
    BerReadCursor name;
    if (!names.readElement(tag, name)) return false;
    if (tag == kDnsName && HasNul(name.rest())) {
      dropped = true;
    } else {
      kept.insert(kept.end(), begin, names.data());
    }
  }
  const size_t length = kept.size() - header;
  for (size_t i = 0; i < 4; ++i) kept[header - 1 - i] = static_cast<BYTE>(length >> 8 * i);
  return dropped;
}

// Empty: it has no text that a name could be compared with.
std::wstring AddressText(const CRYPT_DATA_BLOB& address) {
  if (address.cbData == 4) {
    const BYTE* part = address.pbData;
    return std::to_wstring(part[0]) + L'.' + std::to_wstring(part[1]) + L'.' + std::to_wstring(part[2]) + L'.'
        + std::to_wstring(part[3]);
  }
  if (!address.cbData || address.cbData > kMaxAddressText) return {};
  std::wstring text(kMaxAddressText, L'\0');
  const int units = MultiByteToWideChar(CP_ACP, 0, reinterpret_cast<LPCSTR>(address.pbData),
                                        static_cast<int>(address.cbData), text.data(), kMaxAddressText);
  text.resize(units > 0 ? static_cast<size_t>(units) : 0);
  return text;
}

bool EntryMatches(const CERT_ALT_NAME_ENTRY& entry, std::wstring_view server) {
  const std::wstring pattern = entry.dwAltNameChoice == CERT_ALT_NAME_IP_ADDRESS
      ? AddressText(entry.IPAddress)
      : std::wstring(entry.pwszDNSName ? entry.pwszDNSName : L"");
  return MatchesServerName(server, LowerCase(pattern));
}

AltNameVerdict CompareEntries(const CERT_ALT_NAME_INFO& names, std::wstring_view server) {
  AltNameVerdict verdict = AltNameVerdict::NoneSeen;
  for (const CERT_ALT_NAME_ENTRY& entry : AsSpan(names.rgAltEntry, names.cAltEntry)) {
    if (entry.dwAltNameChoice != CERT_ALT_NAME_DNS_NAME && entry.dwAltNameChoice != CERT_ALT_NAME_IP_ADDRESS)
      continue;
    if (EntryMatches(entry, server)) return AltNameVerdict::Matches;
    verdict = AltNameVerdict::Seen;
  }
  return verdict;
}

// A NUL at the very end hides nothing.
bool HidesBehindNul(const CERT_RDN_ATTR& commonName) {
  std::wstring text;
  if (!PlainDecodedValue(commonName, text)) return false;
  const size_t nul = text.find(L'\0');
  return nul != text.npos && nul + 1 < text.size();
}

bool HasCommonNameWithNul(const CERT_NAME_BLOB& subject) {
  DecodedName name;
  if (!name.decode(subject)) return false;
  return std::ranges::any_of(name.relativeNames(), [](const CERT_RDN& relative) {
    return std::ranges::any_of(AttributesOf(relative), [](const CERT_RDN_ATTR& attribute) {
      return attribute.pszObjId && std::string_view(attribute.pszObjId) == szOID_COMMON_NAME
          && HidesBehindNul(attribute);
    });
  });
}

// Where the value of the first common name begins: an attribute starts the text, or follows a separator outside quotes.
std::optional<size_t> FindCommonName(std::wstring_view text) {
  constexpr std::wstring_view kKey = L"cn=";
  bool quoted = false;
  bool atStart = true;
  for (size_t at = 0; at < text.size(); ++at) {
    if (atStart && LowerCase(text.substr(at, kKey.size())) == kKey) return at + kKey.size();
    if (text[at] == L'"') quoted = !quoted;
    const std::wstring_view behind = text.substr(0, at + 1);
    atStart = !quoted && (behind.ends_with(L", ") || behind.ends_with(L" + "));
  }
  return std::nullopt;
}

}  // namespace

std::wstring LowerCase(std::wstring_view text) {
  std::wstring lower(text);
  if (std::ranges::any_of(text, [](wchar_t unit) { return unit < 0 || unit > 0x7F; })) return lower;
  for (wchar_t& unit : lower) {
    if (unit >= L'A' && unit <= L'Z') unit += L'a' - L'A';
  }
  return lower;
}

bool MatchesServerName(std::wstring_view server, std::wstring_view pattern) {
  if (server.empty() || pattern.empty()) return false;
  const std::vector<std::wstring_view> names = Labels(server);
  const std::vector<std::wstring_view> patterns = Labels(pattern);
  if (names.size() != patterns.size()) return false;
  for (size_t i = 0; i < names.size(); ++i) {
    const bool isWildcard = i == 0 && patterns[i] == L"*";
    if (isWildcard && !names[i].empty()) continue;
    // a star anywhere else stands for nothing, not even for itself
    if (patterns[i].find(L'*') != std::wstring_view::npos || names[i] != patterns[i]) return false;
  }
  return true;
}

AltNameVerdict CompareAltNames(const CERT_INFO& certificate, std::wstring_view server) {
  AltNameVerdict verdict = AltNameVerdict::NoneSeen;
  for (const CERT_EXTENSION& extension :
       AsSpan<const CERT_EXTENSION>(certificate.rgExtension, certificate.cExtension)) {
    const std::string_view id(extension.pszObjId ? extension.pszObjId : "");
    if (id != szOID_SUBJECT_ALT_NAME && id != szOID_SUBJECT_ALT_NAME2) continue;
    const std::span<const BYTE> encoded(extension.Value.pbData, extension.Value.cbData);
    std::vector<BYTE> kept;
    const bool dropped = DropNamesWithNul(encoded, kept);
    const AltNameVerdict found =
        CompareEntries(*DecodeAltNames(dropped ? std::span<const BYTE>(kept) : encoded).get(), server);
    if (found == AltNameVerdict::Matches) return found;
    if (found == AltNameVerdict::Seen || dropped) verdict = AltNameVerdict::Seen;
  }
  return verdict;
}

std::optional<std::wstring> CommonNameOf(const CERT_NAME_BLOB& subject) {
  if (HasCommonNameWithNul(subject)) return std::nullopt;
  const std::wstring text = NameText(&subject, CERT_X500_NAME_STR);
  const std::optional<size_t> start = FindCommonName(text);
  if (!start) return std::nullopt;
  const size_t comma = text.find(L',', *start);
  return LowerCase(std::wstring_view(text).substr(*start, comma == text.npos ? comma : comma - *start));
}

}  // namespace certkern
