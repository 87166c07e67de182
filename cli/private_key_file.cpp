#include "private_key_file.h"

#include "algorithm_identifier.h"
#include "decoded.h"
#include "failure.h"
#include "grammar.h"
#include "handles.h"
#include "input.h"
#include "text.h"

#include <certkern/text.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace certkern::cli {
namespace {

constexpr std::string_view kBegin = "-----BEGIN ";
constexpr std::string_view kDashes = "-----";
constexpr std::string_view kPlain = "PRIVATE KEY";
constexpr std::string_view kEncrypted = "ENCRYPTED PRIVATE KEY";

SecretBytes ReadAll(int file, const std::string& name) {
  constexpr size_t kChunk = 16384;
  SecretBytes bytes;
  while (true) {
    const size_t used = bytes.size();
    bytes.resize(used + kChunk);
    const ssize_t count = read(file, bytes.data() + used, kChunk);
    const int code = errno;
    bytes.resize(used + static_cast<size_t>(count < 0 ? 0 : count));
    if (count < 0 && code == EINTR) continue;
    if (count < 0) ThrowErrno(name);
    if (count == 0) return bytes;
    if (bytes.size() > kLargestKeyFile) throw Failure(name + ": too large for a private key");
  }
}

SecretBytes ReadFile(const std::string& path, const std::string& name) {
  if (path == "-") return ReadAll(STDIN_FILENO, name);
  const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
  if (!file) ThrowErrno(name);
  NoteRead(file.get());
  return ReadAll(file.get(), name);
}

SecretBytes DecodeBase64(std::string_view text, const std::string& name) {
  SecretBytes bytes;
  const auto ask = [&](BYTE* out, DWORD* size) {
    return CryptStringToBinaryA(text.data(), CheckedSize(text.size()), CRYPT_STRING_BASE64, out, size,
                                nullptr, nullptr);
  };
  if (!AskBytes(ask, bytes)) throw Failure(name + ": the PEM text is no Base64");
  return bytes;
}

[[noreturn]] void RefuseForm(const std::string& name, std::string_view found) {
  throw Failure(fmt::format(
      "{}: {}; a private key must be PKCS #8, which \"openssl pkcs8 -topk8\" makes of it", name, found));
}

// The first block with a key that can be read. What else a file has, such as certificates, is passed over.
SecretBytes ReadPem(std::string_view text, const std::string& name) {
  std::string_view other;
  for (size_t begin = text.find(kBegin); begin != text.npos; begin = text.find(kBegin, begin)) {
    begin += kBegin.size();
    const size_t labelEnd = text.find(kDashes, begin);
    if (labelEnd == text.npos) break;
    const std::string_view label = text.substr(begin, labelEnd - begin);
    const size_t body = labelEnd + kDashes.size();
    if (label == kPlain || label == kEncrypted) {
      const size_t end = text.find("-----END ", body);
      if (end == text.npos) throw Failure(name + ": the PEM text has no end");
      return DecodeBase64(text.substr(body, end - body), name);
    }
    if (label.ends_with(kPlain)) other = label;
    begin = body;
  }
  if (!other.empty()) RefuseForm(name, "found an " + Escaped(Utf8Of(other)));
  throw Failure(name + ": there is no private key in this file");
}

// A record that may tell of secrets, in memory that is wiped. Empty when the bytes are no such record.
SecretBytes DecodeSecret(LPCSTR type, std::span<const BYTE> bytes) {
  SecretBytes record;
  const auto ask = [&](BYTE* out, DWORD* size) {
    return CryptDecodeObject(X509_ASN_ENCODING, type, bytes.data(), CheckedSize(bytes.size()), 0, out, size);
  };
  if (bytes.empty() || !AskBytes(ask, record)) return {};
  return record;
}

BYTE TagOf(const CRYPT_DER_BLOB& element) { return element.cbData ? element.pbData[0] : BYTE{0}; }

}  // namespace

std::string AlgorithmOfPrivateKey(std::span<const BYTE> privateKeyInfo) {
  const SecretBytes sequence = DecodeSecret(X509_SEQUENCE_OF_ANY, privateKeyInfo);
  if (sequence.empty()) return {};
  const auto& elements = *reinterpret_cast<const CRYPT_SEQUENCE_OF_ANY*>(sequence.data());
  if (elements.cValue < 3 || TagOf(elements.rgValue[0]) != kIntegerTag
      || TagOf(elements.rgValue[2]) != kOctetStringTag)
    return {};
  const auto algorithm = DecodeAlgorithm(BytesOf(elements.rgValue[1]));
  return algorithm ? algorithm->oid : "";
}

SecretBytes ReadPrivateKey(const std::string& path, const PinOptions& password) {
  const std::string name = path == "-" ? "standard input" : Escaped(Utf8Of(std::string_view(path)));
  SecretBytes file = ReadFile(path, name);
  if (file.empty()) throw Failure(name + ": empty");
  if (file[0] != kSequenceTag)
    file = ReadPem({reinterpret_cast<const char*>(file.data()), file.size()}, name);
  if (!AlgorithmOfPrivateKey(file).empty()) return file;
  const SecretBytes sequence = DecodeSecret(X509_SEQUENCE_OF_ANY, file);
  if (sequence.empty()) throw Failure(name + ": neither PEM nor the DER of a private key");
  const auto& elements = *reinterpret_cast<const CRYPT_SEQUENCE_OF_ANY*>(sequence.data());
  if (elements.cValue == 2 && TagOf(elements.rgValue[0]) == kSequenceTag)
    return DecryptPrivateKey(file, password, name);
  RefuseForm(name, "found another form of key, or no key");
}

}  // namespace certkern::cli
