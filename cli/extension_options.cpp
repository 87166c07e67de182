#include "extension_options.h"

#include "decoded.h"
#include "encoded.h"
#include "failure.h"
#include "fingerprint.h"
#include "oid_names.h"
#include "subject.h"
#include "text.h"

#include <arpa/inet.h>
#include <certkern/oids.h>
#include <fmt/format.h>
#include <CLI/Option.hpp>

#include <algorithm>
#include <array>
#include <iterator>

namespace certkern::cli {
namespace {

// The first bit is the highest of the first byte. RFC 5280, 4.2.1.3
constexpr std::string_view kUsages[] = {"digitalSignature", "nonRepudiation", "keyEncipherment",
                                        "dataEncipherment", "keyAgreement",   "keyCertSign",
                                        "cRLSign",          "encipherOnly",   "decipherOnly"};

struct PurposeRow {
  std::string_view name;
  const char* oid;
};
constexpr PurposeRow kPurposes[] = {
    {"serverAuth",      szOID_PKIX_KP_SERVER_AUTH      },
    {"clientAuth",      szOID_PKIX_KP_CLIENT_AUTH      },
    {"codeSigning",     szOID_PKIX_KP_CODE_SIGNING     },
    {"emailProtection", szOID_PKIX_KP_EMAIL_PROTECTION },
    {"timeStamping",    szOID_PKIX_KP_TIMESTAMP_SIGNING},
    {"OCSPSigning",     szOID_PKIX_KP_OCSP_SIGNING     },
};

Bytes AddressBytes(const std::string& address) {
  std::array<BYTE, 16> octets{};
  if (inet_pton(AF_INET, address.c_str(), octets.data()) == 1) return {octets.begin(), octets.begin() + 4};
  if (inet_pton(AF_INET6, address.c_str(), octets.data()) == 1) return {octets.begin(), octets.end()};
  throw WrongUsage(fmt::format("--ip {}: no address", Escaped(Utf8Of(std::string_view(address)))));
}

// One kind of text: the records point into the texts, which must not move.
void AddTexts(const std::vector<std::string>& given, const std::string& option, DWORD choice,
              std::vector<std::wstring>& texts, std::vector<CERT_ALT_NAME_ENTRY>& entries) {
  for (const std::string& text : given) {
    const std::string what = fmt::format("{} {}", option, Escaped(Utf8Of(std::string_view(text))));
    texts.push_back(Wide(text, what));
    const bool ascii =
        std::all_of(text.begin(), text.end(), [](unsigned char c) { return c > 0x20 && c < 0x7F; });
    if (text.empty() || !ascii)
      throw WrongUsage(what + ": only ASCII without blanks; an international name goes in as xn--...");
    CERT_ALT_NAME_ENTRY entry{};
    entry.dwAltNameChoice = choice;
    (choice == CERT_ALT_NAME_DNS_NAME ? entry.pwszDNSName : entry.pwszRfc822Name) = texts.back().data();
    entries.push_back(entry);
  }
}

void AddAlternativeNames(const ExtensionOptions& options, ExtensionList& list) {
  std::vector<std::wstring> texts;
  texts.reserve(options.dnsNames.size() + options.emails.size());
  std::vector<Bytes> addresses;
  for (const std::string& address : options.addresses) addresses.push_back(AddressBytes(address));
  std::vector<CERT_ALT_NAME_ENTRY> entries;
  AddTexts(options.dnsNames, "--dns", CERT_ALT_NAME_DNS_NAME, texts, entries);
  for (const Bytes& address : addresses) {
    CERT_ALT_NAME_ENTRY entry{};
    entry.dwAltNameChoice = CERT_ALT_NAME_IP_ADDRESS;
    entry.IPAddress = BlobOf(address);
    entries.push_back(entry);
  }
  AddTexts(options.emails, "--email", CERT_ALT_NAME_RFC822_NAME, texts, entries);
  if (entries.empty()) return;
  const CERT_ALT_NAME_INFO names{CheckedSize(entries.size()), entries.data()};
  list.add(szOID_SUBJECT_ALT_NAME2, false, Encode(X509_ALTERNATE_NAME, &names, "the alternative names"));
}

void AddExtendedUsage(const std::vector<std::string>& purposes, ExtensionList& list) {
  if (purposes.empty()) return;
  std::vector<std::string> oids(purposes.size());
  std::vector<LPSTR> pointers(purposes.size());
  for (size_t i = 0; i < purposes.size(); ++i) {
    oids[i] = PurposeOid(purposes[i], "--extended-usage");
    pointers[i] = oids[i].data();
  }
  const CERT_ENHKEY_USAGE usage{CheckedSize(pointers.size()), pointers.data()};
  list.add(szOID_ENHANCED_KEY_USAGE, false, Encode(X509_ENHANCED_KEY_USAGE, &usage, "--extended-usage"));
}

}  // namespace

std::string PurposeOid(const std::string& purpose, std::string_view option) {
  const auto* row = std::find_if(std::begin(kPurposes), std::end(kPurposes),
                                 [&](const PurposeRow& candidate) { return candidate.name == purpose; });
  if (row != std::end(kPurposes)) return row->oid;
  if (IsDottedOid(purpose)) return purpose;
  throw WrongUsage(
      fmt::format("{} {}: serverAuth, clientAuth, codeSigning, emailProtection, "
                  "timeStamping, OCSPSigning or a dotted identifier",
                  option, Escaped(Utf8Of(std::string_view(purpose)))));
}

std::array<BYTE, 2> UsageBits(std::span<const std::string> usages) {
  std::array<BYTE, 2> bits{};
  for (const std::string& usage : usages) {
    const auto bit = std::find(std::begin(kUsages), std::end(kUsages), usage) - std::begin(kUsages);
    const auto place = static_cast<size_t>(bit);
    bits[place / 8] = static_cast<BYTE>(bits[place / 8] | 0x80 >> place % 8);
  }
  return bits;
}

void AddUsageOption(CLI::App& command, std::vector<std::string>& usages, const std::string& text) {
  command.add_option("--usage", usages, text)
      ->allow_extra_args(false)
      ->type_name("NAMES")
      ->delimiter(',')
      ->check(
          CLI::IsMember(std::vector<std::string>(std::begin(kUsages), std::end(kUsages))).description(""));
}

void AddExtensionOptions(CLI::App& command, ExtensionOptions& options) {
  const auto add = [&](const char* name, std::vector<std::string>& values, const std::string& text,
                       const char* type) {
    return command.add_option(name, values, text)->allow_extra_args(false)->type_name(type);
  };
  add("--dns", options.dnsNames, "A host name, for the subject alternative name; may be repeated", "NAME");
  add("--ip", options.addresses, "An IPv4 or IPv6 address; may be repeated", "ADDRESS");
  add("--email", options.emails, "An e-mail address; may be repeated", "ADDRESS");
  AddUsageOption(command, options.usages, "Key usage, as digitalSignature,keyEncipherment");
  add("--extended-usage", options.extendedUsages,
      "Extended key usage, as serverAuth,clientAuth or dotted identifiers", "NAMES")
      ->delimiter(',');
}

void ExtensionList::add(const char* oid, bool critical, Bytes value) {
  extensions_.push_back({oid, critical, std::move(value)});
}

std::vector<CERT_EXTENSION> ExtensionList::records() {
  std::vector<CERT_EXTENSION> records;
  for (Extension& extension : extensions_)
    records.push_back({extension.oid.data(), extension.critical, BlobOf(extension.value)});
  return records;
}

void AddAskedExtensions(const ExtensionOptions& options, ExtensionList& list) {
  AddAlternativeNames(options, list);
  AddKeyUsage(options.usages, list);
  AddExtendedUsage(options.extendedUsages, list);
}

// DER ends a list of named bits with the last one that is set (X.690, 11.2.2): which that is in its byte, the library sees
// to.
void AddKeyUsage(std::span<const std::string> usages, ExtensionList& list) {
  if (usages.empty()) return;
  std::array<BYTE, 2> bits = UsageBits(usages);
  const CRYPT_BIT_BLOB blob{bits[1] ? DWORD{2} : DWORD{1}, bits.data(), 0};
  list.add(szOID_KEY_USAGE, true, Encode(X509_KEY_USAGE, &blob, "--usage"));
}

void AddBasicConstraints(const BasicConstraints& constraints, ExtensionList& list) {
  const CERT_BASIC_CONSTRAINTS2_INFO info{constraints.ca, constraints.pathLength.has_value(),
                                          constraints.pathLength.value_or(0)};
  list.add(szOID_BASIC_CONSTRAINTS2, true, Encode(X509_BASIC_CONSTRAINTS2, &info, "the basic constraints"));
}

Bytes KeyIdentifier(const CERT_PUBLIC_KEY_INFO& key) {
  const std::optional<Bytes> digest = Fingerprint(Digest::Sha1, BytesOf(key.PublicKey));
  if (!digest) ThrowLastError("the key identifier");
  return *digest;
}

void AddSubjectKeyIdentifier(std::span<const BYTE> keyId, ExtensionList& list) {
  const CRYPT_DATA_BLOB blob = BlobOf(keyId);
  list.add(szOID_SUBJECT_KEY_IDENTIFIER, false, Encode(X509_OCTET_STRING, &blob, "the key identifier"));
}

void AddAuthorityKeyIdentifier(std::span<const BYTE> keyId, ExtensionList& list) {
  CERT_AUTHORITY_KEY_ID2_INFO authority{};
  authority.KeyId = BlobOf(keyId);
  list.add(szOID_AUTHORITY_KEY_IDENTIFIER2, false,
           Encode(X509_AUTHORITY_KEY_ID2, &authority, "the key identifier"));
}

}  // namespace certkern::cli
