#include "message.h"

#include "decoded.h"
#include "grammar.h"
#include "input.h"

#include <certkern/oids.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

namespace certkern::cli {
namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

// How far a header goes, be its length definite or not; 0 for none.
size_t HeaderSize(std::span<const BYTE> bytes) {
  if (bytes.size() < 2) return 0;
  return bytes[1] > 0x80 ? 2 + size_t{bytes[1] & 0x7Fu} : 2;
}

}  // namespace

bool LooksLikeMessage(std::span<const BYTE> bytes) {
  static constexpr BYTE kPkcs7[] = {kOidTag, 9, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07};
  if (bytes.empty() || bytes[0] != kSequenceTag) return false;
  const std::span<const BYTE> content = bytes.subspan(std::min(HeaderSize(bytes), bytes.size()));
  return content.size() > sizeof kPkcs7 && std::ranges::equal(content.first(sizeof kPkcs7), kPkcs7);
}

MessageHandle OpenMessage(std::span<const BYTE> encoded, ContentPlace place) {
  MessageHandle message(CryptMsgOpenToDecode(
      kEncoding, place == ContentPlace::Elsewhere ? CMSG_DETACHED_FLAG : 0, 0, 0, nullptr, nullptr));
  if (message && CryptMsgUpdate(message.get(), encoded.data(), CheckedSize(encoded.size()), TRUE))
    return message;
  return {};
}

Bytes ReadMessageFile(const std::string& path, const std::string& shown) {
  const auto fail = [&](const std::string& text) { throw Failure(fmt::format("{}: {}", shown, text)); };
  const FileContent content = ReadInput(path);
  if (!content.error.empty()) fail(content.error);
  Bytes message;
  BlockReader reader{.onBlock =
                         [&](const Block& block) {
                           if (!LooksLikeMessage(block.bytes)) fail("not a message, at " + block.place(0));
                           if (!message.empty()) fail("another message, at " + block.place(0));
                           message.assign(block.bytes.begin(), block.bytes.end());
                         },
                     .onFault = fail,
                     .onNote = [](const std::string&) {},
                     .wanted = Wanted::ObjectsAndMessages};
  ReadBlocks(content.bytes, reader);
  if (message.empty()) fail("expected a message, found none");
  return message;
}

Bytes MessageBytes(HCRYPTMSG message, DWORD parameter, DWORD index) {
  Bytes bytes;
  const auto ask = [&](BYTE* out, DWORD* size) {
    return CryptMsgGetParam(message, parameter, index, out, size);
  };
  if (!AskBytes(ask, bytes)) ThrowLastError("the message");
  return bytes;
}

DWORD MessageNumber(HCRYPTMSG message, DWORD parameter) {
  DWORD number = 0;
  DWORD size = sizeof number;
  if (!CryptMsgGetParam(message, parameter, 0, &number, &size)) ThrowLastError("the message");
  return number;
}

std::optional<std::span<const BYTE>> AttributeValue(const CRYPT_ATTRIBUTES& attributes,
                                                    std::string_view oid) {
  for (const CRYPT_ATTRIBUTE& each : std::span(attributes.rgAttr, attributes.cAttr)) {
    if (oid == each.pszObjId && each.cValue) return BytesOf(each.rgValue[0]);
  }
  return std::nullopt;
}

std::optional<FILETIME> SigningTime(const CRYPT_ATTRIBUTES& attributes) {
  const auto value = AttributeValue(attributes, szOID_RSA_signingTime);
  if (!value) return std::nullopt;
  const auto time = Decode<FILETIME>(X509_CHOICE_OF_TIME, *value);
  return time ? std::optional(*time) : std::nullopt;
}

size_t TakeCertificates(HCRYPTMSG message, HCERTSTORE into) {
  size_t refused = 0;
  const DWORD certificates = MessageNumber(message, CMSG_CERT_COUNT_PARAM);
  for (DWORD i = 0; i < certificates; ++i) {
    const Bytes bytes = MessageBytes(message, CMSG_CERT_PARAM, i);
    if (!CertAddEncodedCertificateToStore(into, X509_ASN_ENCODING, bytes.data(), CheckedSize(bytes.size()),
                                          CERT_STORE_ADD_ALWAYS, nullptr))
      ++refused;
  }
  const DWORD crls = MessageNumber(message, CMSG_CRL_COUNT_PARAM);
  for (DWORD i = 0; i < crls; ++i) {
    const Bytes bytes = MessageBytes(message, CMSG_CRL_PARAM, i);
    if (!CertAddEncodedCRLToStore(into, X509_ASN_ENCODING, bytes.data(), CheckedSize(bytes.size()),
                                  CERT_STORE_ADD_ALWAYS, nullptr))
      ++refused;
  }
  return refused;
}

}  // namespace certkern::cli
