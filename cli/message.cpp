#include "message.h"

#include "decoded.h"

#include <certkern/oids.h>

namespace certkern::cli {
namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

}  // namespace

MessageHandle OpenMessage(std::span<const BYTE> encoded, ContentPlace place) {
  MessageHandle message(CryptMsgOpenToDecode(
      kEncoding, place == ContentPlace::Elsewhere ? CMSG_DETACHED_FLAG : 0, 0, 0, nullptr, nullptr));
  if (message && CryptMsgUpdate(message.get(), encoded.data(), CheckedSize(encoded.size()), TRUE))
    return message;
  return {};
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

std::optional<Bytes> MessageObject(HCRYPTMSG message, DWORD parameter, DWORD index) {
  Bytes bytes;
  const auto ask = [&](BYTE* out, DWORD* size) {
    return CryptMsgGetParam(message, parameter, index, out, size);
  };
  if (AskBytes(ask, bytes)) return bytes;
  if (GetLastError() == ERROR_NOT_ENOUGH_MEMORY) ThrowLastError("the message");
  return std::nullopt;
}

size_t TakeCertificates(HCRYPTMSG message, HCERTSTORE into) {
  size_t refused = 0;
  const auto countRefused = [&refused] {
    if (GetLastError() == ERROR_NOT_ENOUGH_MEMORY) ThrowLastError("the message");
    ++refused;
  };
  const DWORD certificates = MessageNumber(message, CMSG_CERT_COUNT_PARAM);
  for (DWORD i = 0; i < certificates; ++i) {
    const std::optional<Bytes> bytes = MessageObject(message, CMSG_CERT_PARAM, i);
    if (!bytes
        || !CertAddEncodedCertificateToStore(into, X509_ASN_ENCODING, bytes->data(),
                                             CheckedSize(bytes->size()), CERT_STORE_ADD_ALWAYS, nullptr))
      countRefused();
  }
  const DWORD crls = MessageNumber(message, CMSG_CRL_COUNT_PARAM);
  for (DWORD i = 0; i < crls; ++i) {
    const std::optional<Bytes> bytes = MessageObject(message, CMSG_CRL_PARAM, i);
    if (!bytes
        || !CertAddEncodedCRLToStore(into, X509_ASN_ENCODING, bytes->data(), CheckedSize(bytes->size()),
                                     CERT_STORE_ADD_ALWAYS, nullptr))
      countRefused();
  }
  return refused;
}

}  // namespace certkern::cli
