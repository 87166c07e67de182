// Extensions from the command line, for requests and certificates.
#ifndef CERTKERN_CLI_EXTENSION_OPTIONS_H
#define CERTKERN_CLI_EXTENSION_OPTIONS_H

#include "field.h"

#include <certkern/encode.h>
#include <CLI/App.hpp>

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace certkern::cli {

struct ExtensionOptions {
  std::vector<std::string> dnsNames;
  std::vector<std::string> addresses;
  std::vector<std::string> emails;
  std::vector<std::string> usages;          // names of RFC 5280, 4.2.1.3
  std::vector<std::string> extendedUsages;  // names or dotted identifiers
};
void AddExtensionOptions(CLI::App& command, ExtensionOptions& options);

// --usage, with names of RFC 5280, 4.2.1.3, and their bits: the first is the highest of the first byte.
void AddUsageOption(CLI::App& command, std::vector<std::string>& usages, const std::string& text);
std::array<BYTE, 2> UsageBits(std::span<const std::string> usages);
// The identifier of a purpose by its name in RFC 5280, 4.2.1.12, or as it is.
std::string PurposeOid(const std::string& purpose, std::string_view option);

// Extensions, encoded one by one, and the records that the library wants.
class ExtensionList {
 public:
  void add(const char* oid, bool critical, Bytes value);
  bool empty() const { return extensions_.empty(); }
  // Good until the next addition.
  std::vector<CERT_EXTENSION> records();

 private:
  struct Extension {
    std::string oid;
    bool critical;
    Bytes value;
  };
  std::vector<Extension> extensions_;
};

// What the options ask for: alternative names, key usage, extended key usage.
void AddAskedExtensions(const ExtensionOptions& options, ExtensionList& list);
void AddKeyUsage(std::span<const std::string> usages, ExtensionList& list);

struct BasicConstraints {
  bool ca = false;
  std::optional<DWORD> pathLength;
};
void AddBasicConstraints(const BasicConstraints& constraints, ExtensionList& list);

// SHA-1 of the key's bits. RFC 5280, 4.2.1.2
Bytes KeyIdentifier(const CERT_PUBLIC_KEY_INFO& key);
void AddSubjectKeyIdentifier(std::span<const BYTE> keyId, ExtensionList& list);
void AddAuthorityKeyIdentifier(std::span<const BYTE> keyId, ExtensionList& list);

}  // namespace certkern::cli

#endif
