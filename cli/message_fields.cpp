#include "message_fields.h"

#include "decoded.h"
#include "key_fields.h"
#include "message.h"
#include "name_fields.h"
#include "oid_names.h"
#include "text.h"

#include <certkern/attributes.h>
#include <certkern/oids.h>

#include <algorithm>
#include <string_view>

namespace certkern::cli {
namespace {

Bytes Copy(std::span<const BYTE> bytes) { return {bytes.begin(), bytes.end()}; }

Bytes Reversed(const CRYPT_DATA_BLOB& little) {
  const std::span<const BYTE> bytes = BytesOf(little);
  return {bytes.rbegin(), bytes.rend()};
}

// --- attributes ---

bool AddSigningCertificate(LPCSTR type, std::span<const BYTE> value, Field& field) {
  const auto record = Decode<SV_SIGNING_CERTIFICATE>(type, value);
  if (!record) return false;
  Field& list = field.addList("Certificates");
  for (const SV_CERT_HASH_ID& each : std::span(record->rgCert, record->cCert)) {
    Field id;
    if (each.HashAlgorithm.pszObjId)
      AddAlgorithm(id, "Hash algorithm", each.HashAlgorithm, CRYPT_HASH_ALG_OID_GROUP_ID);
    id.add("Hash", Copy(BytesOf(each.CertHash)));
    if (each.pIssuerSerial) {
      id.add(NameField("Issuer", BytesOf(each.pIssuerSerial->Issuer)));
      id.add("Serial number", Reversed(each.pIssuerSerial->SerialNumber));
    }
    list.add(std::move(id));
  }
  return true;
}

// False when the value is not what the attribute should hold.
bool AddKnownValue(std::string_view oid, std::span<const BYTE> value, Field& field) {
  if (oid == szOID_RSA_signingTime) {
    const auto time = Decode<FILETIME>(X509_CHOICE_OF_TIME, value);
    if (time) field.add("Time", Words{TimeText(*time)});
    return time != nullptr;
  }
  if (oid == szOID_RSA_contentType) {
    const auto type = Decode<LPSTR>(X509_OBJECT_IDENTIFIER, value);
    if (type) field.add("Type", NamedOid(*type));
    return type != nullptr;
  }
  if (oid == szOID_RSA_messageDigest) {
    const auto digest = Decode<CRYPT_DATA_BLOB>(X509_OCTET_STRING, value);
    if (digest) field.add("Digest", Copy(BytesOf(*digest)));
    return digest != nullptr;
  }
  if (oid == szOID_SIGNING_CERTIFICATE_V2)
    return AddSigningCertificate(SV_SIGNING_CERTIFICATE_V2_STRUCT, value, field);
  if (oid == szOID_SIGNING_CERTIFICATE)
    return AddSigningCertificate(SV_SIGNING_CERTIFICATE_STRUCT, value, field);
  field.add("Value", StringOrBytes(value));
  return true;
}

void AddValue(LPCSTR oid, const CRYPT_ATTR_BLOB& value, Field& field) {
  if (AddKnownValue(oid, BytesOf(value), field)) return;
  field.add("Remark", Words{"the value is not what this attribute should hold"});
  field.add("Value", Copy(BytesOf(value)));
}

void AddAttributes(Field& signer, std::string_view label, const CRYPT_ATTRIBUTES& attributes) {
  if (!attributes.cAttr) return;
  Field& list = signer.addList(label);
  for (const CRYPT_ATTRIBUTE& each : std::span(attributes.rgAttr, attributes.cAttr)) {
    Field field("", NamedOid(each.pszObjId, CRYPT_EXT_OR_ATTR_OID_GROUP_ID));
    if (each.cValue == 1) {
      AddValue(each.pszObjId, each.rgValue[0], field);
    } else {
      Field& values = field.addList("Values");
      for (const CRYPT_ATTR_BLOB& value : std::span(each.rgValue, each.cValue))
        AddValue(each.pszObjId, value, values.add(""));
    }
    list.add(std::move(field));
  }
}

// --- what a signed message consists of ---

Field SignerField(const CMSG_CMS_SIGNER_INFO& info) {
  Field signer;
  signer.add("Version", int64_t{info.dwVersion});
  AddSignerId(signer, info.SignerId);
  AddAlgorithm(signer, "Hash algorithm", info.HashAlgorithm, CRYPT_HASH_ALG_OID_GROUP_ID);
  AddAlgorithm(signer, "Signature algorithm", info.HashEncryptionAlgorithm, CRYPT_SIGN_ALG_OID_GROUP_ID);
  AddAttributes(signer, "Signed attributes", info.AuthAttrs);
  AddAttributes(signer, "Unsigned attributes", info.UnauthAttrs);
  signer.add("Signature", Copy(BytesOf(info.EncryptedHash)));
  return signer;
}

void AddObjects(Field& object, HCRYPTMSG message, ObjectKind kind, const ShowOptions& options) {
  const bool isCrl = kind == ObjectKind::Crl;
  const DWORD count = MessageNumber(message, isCrl ? CMSG_CRL_COUNT_PARAM : CMSG_CERT_COUNT_PARAM);
  if (!count) return;
  Field& list = object.addList(isCrl ? "CRLs" : "Certificates");
  for (DWORD i = 0; i < count; ++i) {
    const std::optional<Bytes> bytes = MessageObject(message, isCrl ? CMSG_CRL_PARAM : CMSG_CERT_PARAM, i);
    std::optional<Field> field = bytes ? ObjectField(kind, *bytes, options) : std::nullopt;
    if (!field) {
      field.emplace("");
      field->add("Remark", Words{"not one that the library reads"});
      if (bytes) field->add("Value", *bytes);
    }
    list.add(std::move(*field));
  }
}

void AddInnerContent(Field& object, HCRYPTMSG message) {
  object.add("Version", int64_t{MessageNumber(message, CMSG_VERSION_PARAM)});
  const Bytes type = MessageBytes(message, CMSG_INNER_CONTENT_TYPE_PARAM);
  object.add("Content type", NamedOid(reinterpret_cast<const char*>(type.data())));
  object.add("Content size", static_cast<int64_t>(MessageBytes(message, CMSG_CONTENT_PARAM).size()));
}

Field SignedField(HCRYPTMSG message, const ShowOptions& options) {
  Field object("Signed message");
  AddInnerContent(object, message);
  Field& signers = object.addList("Signers");
  const DWORD count = MessageNumber(message, CMSG_SIGNER_COUNT_PARAM);
  for (DWORD i = 0; i < count; ++i) {
    const Bytes record = MessageBytes(message, CMSG_CMS_SIGNER_INFO_PARAM, i);
    signers.add(SignerField(RecordIn<CMSG_CMS_SIGNER_INFO>(record)));
  }
  AddObjects(object, message, ObjectKind::Certificate, options);
  AddObjects(object, message, ObjectKind::Crl, options);
  return object;
}

Field HashedField(HCRYPTMSG message) {
  Field object("Hashed message");
  AddInnerContent(object, message);
  const Bytes record = MessageBytes(message, CMSG_HASH_ALGORITHM_PARAM);
  AddAlgorithm(object, "Hash algorithm", RecordIn<CRYPT_ALGORITHM_IDENTIFIER>(record),
               CRYPT_HASH_ALG_OID_GROUP_ID);
  return object;
}

}  // namespace

void AddSignerId(Field& parent, const CERT_ID& id) {
  if (id.dwIdChoice == CERT_ID_KEY_IDENTIFIER) {
    parent.add("Key ID", Copy(BytesOf(id.KeyId)));
    return;
  }
  parent.add(NameField("Issuer", BytesOf(id.IssuerSerialNumber.Issuer)));
  parent.add("Serial number", Reversed(id.IssuerSerialNumber.SerialNumber));
}

std::optional<Field> MessageField(std::span<const BYTE> encoded, const ShowOptions& options) {
  const MessageHandle message = OpenMessage(encoded, ContentPlace::Inside);
  if (!message) return std::nullopt;
  switch (MessageNumber(message.get(), CMSG_TYPE_PARAM)) {
    case CMSG_SIGNED:
      return SignedField(message.get(), options);
    case CMSG_HASHED:
      return HashedField(message.get());
    default:
      break;
  }
  Field object("Data message");
  object.add("Content size", static_cast<int64_t>(MessageBytes(message.get(), CMSG_CONTENT_PARAM).size()));
  return object;
}

}  // namespace certkern::cli
