// certkern certificate: X.509 certificates that sign themselves.
#include "command.h"
#include "encoded.h"
#include "extension_options.h"
#include "output.h"
#include "signing.h"
#include "subject.h"

#include <certkern/oids.h>

#include <array>
#include <memory>

namespace certkern::cli {
namespace {

constexpr size_t kSerialSize = 16;  // bytes. RFC 5280, 4.1.2.2 allows 20
constexpr DWORD kUsualDays = 365;
constexpr DWORD kMostDays = 36500;
constexpr uint64_t kTicksInSecond = 10'000'000;
constexpr uint64_t kSecondsInDay = 86400;

struct CertificateArguments {
  SigningOptions signing;
  std::vector<std::string> subject;
  ExtensionOptions extensions;
  DWORD days = kUsualDays;
  bool ca = false;
  std::optional<DWORD> pathLength;
  bool install = false;
  OutputOptions output;
};

// Little-endian, positive, and with a first octet that is not 0, so that it is always as long.
std::array<BYTE, kSerialSize> RandomSerial(HCRYPTPROV provider) {
  std::array<BYTE, kSerialSize> serial{};
  if (!CryptGenRandom(provider, kSerialSize, serial.data())) ThrowLastError("random numbers");
  serial.back() = static_cast<BYTE>((serial.back() & 0x7F) | 0x40);
  return serial;
}

// Certificates count in seconds.
FILETIME DaysFromNow(DWORD days) {
  FILETIME now{};
  GetSystemTimeAsFileTime(&now);
  uint64_t ticks = uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime;
  ticks -= ticks % kTicksInSecond;
  ticks += uint64_t{days} * kSecondsInDay * kTicksInSecond;
  return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

// What a key of its kind and purpose can do.
std::vector<std::string> UsualUsages(const ContainerKey& key, bool ca) {
  if (ca) return {"keyCertSign", "cRLSign"};
  if (key.spec == AT_SIGNATURE) return {"digitalSignature"};
  if (key.family->oid == std::string_view(szOID_RSA_RSA)) return {"digitalSignature", "keyEncipherment"};
  if (IsGost(*key.family)) return {"digitalSignature", "keyEncipherment", "keyAgreement"};
  return {"digitalSignature", "keyAgreement"};
}

ExtensionList Extensions(const CertificateArguments& arguments, const ContainerKey& key,
                         const CERT_PUBLIC_KEY_INFO& publicKey) {
  const Bytes keyId = KeyIdentifier(publicKey);
  ExtensionOptions asked = arguments.extensions;
  if (asked.usages.empty()) asked.usages = UsualUsages(key, arguments.ca);
  ExtensionList list;
  AddSubjectKeyIdentifier(keyId, list);
  AddAuthorityKeyIdentifier(keyId, list);
  AddBasicConstraints({arguments.ca, arguments.pathLength}, list);
  AddAskedExtensions(asked, list);
  return list;
}

Bytes MakeCertificate(const CertificateArguments& arguments, const ContainerKey& key,
                      SignatureAlgorithm& algorithm) {
  const Bytes name = EncodeSubject(arguments.subject);
  PublicKeyRecord publicKey = PublicKeyOf(key);
  ExtensionList extensions = Extensions(arguments, key, publicKey.info());
  std::vector<CERT_EXTENSION> records = extensions.records();
  const std::array<BYTE, kSerialSize> serial = RandomSerial(key.provider.get());

  CERT_INFO info{};
  info.dwVersion = CERT_V3;
  info.SerialNumber = BlobOf(serial);
  info.SignatureAlgorithm = algorithm.identifier();
  info.Issuer = BlobOf(name);
  info.NotBefore = DaysFromNow(0);
  info.NotAfter = DaysFromNow(arguments.days);
  info.Subject = BlobOf(name);
  info.SubjectPublicKeyInfo = publicKey.info();
  info.cExtension = CheckedSize(records.size());
  info.rgExtension = records.data();
  return SignRecord(key, X509_CERT_TO_BE_SIGNED, &info, algorithm);
}

int RunSelfSign(const CertificateArguments& arguments) {
  if (arguments.pathLength && !arguments.ca)
    throw WrongUsage("--path-length: for authorities, which --ca makes");
  CheckDestination(arguments.output, Secrecy::Public);
  EncodeSubject(arguments.subject);  // before a PIN is typed for nothing
  const ContainerKey key = OpenKey(arguments.signing.choice);
  SignatureAlgorithm algorithm = ChooseSignature(arguments.signing, key);
  Unlock(key, arguments.signing.choice.pin, arguments.signing.choice.place);
  const Bytes certificate = MakeCertificate(arguments, key, algorithm);
  if (arguments.install && !CryptSetKeyParam(key.key.get(), KP_CERTIFICATE, certificate.data(), 0))
    ThrowLastError("--install");
  if (!arguments.install || !arguments.output.file.empty() || arguments.output.der)
    WriteObject(arguments.output, "CERTIFICATE", certificate);
  return 0;
}

Runner PrepareSelfSign(CLI::App& command) {
  const auto arguments = std::make_shared<CertificateArguments>();
  AddSigningOptions(command, arguments->signing);
  AddSubjectOption(command, arguments->subject);
  command.add_option("--days", arguments->days, "How long it is valid from now; 365 unless given")
      ->check(CLI::Range(DWORD{1}, kMostDays))
      ->type_name("N");
  command.add_flag("--ca", arguments->ca, "A certification authority");
  command.add_option("--path-length", arguments->pathLength, "The most authorities below this one")
      ->check(CLI::Range(0, 100))
      ->type_name("N");
  AddExtensionOptions(command, arguments->extensions);
  command.add_flag("--install", arguments->install,
                   "Keep it with the key; it is then written only where --out or --der say so");
  AddOutputOptions(command, arguments->output);
  command.footer(
      "Examples:\n"
      "  certkern certificate selfsign --key root --subject \"CN=Example Root\" --ca --days 3650 --out "
      "root.crt\n"
      "  certkern certificate selfsign --key server --subject CN=localhost --dns localhost --ip 127.0.0.1");
  return [arguments] { return RunSelfSign(*arguments); };
}

constexpr Command kCommands[] = {
    {"selfsign", "Make a certificate that its own key signs", PrepareSelfSign}
};

}  // namespace

Runner PrepareCertificate(CLI::App& group) { return PrepareGroup(group, kCommands); }

}  // namespace certkern::cli
