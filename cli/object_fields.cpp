#include "object_fields.h"

#include "decoded.h"
#include "extension_fields.h"
#include "fingerprint.h"
#include "grammar.h"
#include "key_fields.h"
#include "name_fields.h"
#include "oid_names.h"
#include "text.h"

#include <certkern/oids.h>

#include <algorithm>
#include <string_view>

namespace certkern::cli {
namespace {

Bytes Copy(std::span<const BYTE> bytes) { return {bytes.begin(), bytes.end()}; }

// Serial numbers are kept little-endian and read big-endian, every octet of the encoding.
Bytes SerialOf(const CRYPT_INTEGER_BLOB& serial) {
  const std::span<const BYTE> little = BytesOf(serial);
  return {little.rbegin(), little.rend()};
}

Words Moment(const FILETIME& time) { return {TimeText(time)}; }
int64_t Version(DWORD number) { return int64_t{static_cast<int32_t>(number)} + 1; }

void AddBits(Field& parent, std::string_view label, const CRYPT_BIT_BLOB& bits) {
  if (bits.cbData) parent.add(label, Copy(BytesOf(bits)));
}

bool IsSame(const CRYPT_ALGORITHM_IDENTIFIER& one, const CRYPT_ALGORITHM_IDENTIFIER& other) {
  return std::string_view(one.pszObjId) == other.pszObjId
      && std::ranges::equal(BytesOf(one.Parameters), BytesOf(other.Parameters));
}

// signedAlgorithm: what the signed part names; null where it names none.
void AddSignature(Field& object, const CERT_SIGNED_CONTENT_INFO& content,
                  const CRYPT_ALGORITHM_IDENTIFIER* signedAlgorithm) {
  Field& signature = object.add("Signature");
  AddAlgorithm(signature, "Algorithm", content.SignatureAlgorithm, CRYPT_SIGN_ALG_OID_GROUP_ID);
  if (signedAlgorithm && !IsSame(*signedAlgorithm, content.SignatureAlgorithm)) {
    signature.add("Remark", Words{"not the algorithm that the signed part names"});
  }
  signature.add("Value", Copy(BytesOf(content.Signature)));
}

void AddFingerprints(Field& object, std::span<const BYTE> encoded) {
  Field& prints = object.add("Fingerprints");
  for (const Digest digest : {Digest::Sha1, Digest::Sha256}) {
    std::optional<Bytes> value = Fingerprint(digest, encoded);
    if (value) {
      prints.add(DigestName(digest), std::move(*value));
    } else {
      prints.add(DigestName(digest), Words{"not computed: the key library has no such hash"});
    }
  }
}

// --- certificates ---

Field CertificateField(const CERT_INFO& info, const CERT_SIGNED_CONTENT_INFO& content) {
  Field object("Certificate");
  object.add("Version", Version(info.dwVersion));
  object.add("Serial number", SerialOf(info.SerialNumber));
  AddAlgorithm(object, "Signature algorithm", info.SignatureAlgorithm, CRYPT_SIGN_ALG_OID_GROUP_ID);
  object.add(NameField("Issuer", BytesOf(info.Issuer)));
  Field& validity = object.add("Validity");
  validity.add("Not before", Moment(info.NotBefore));
  validity.add("Not after", Moment(info.NotAfter));
  object.add(NameField("Subject", BytesOf(info.Subject)));
  object.add(PublicKeyField(info.SubjectPublicKeyInfo));
  AddBits(object, "Issuer unique ID", info.IssuerUniqueId);
  AddBits(object, "Subject unique ID", info.SubjectUniqueId);
  AddExtensions(object, {info.rgExtension, info.cExtension});
  AddSignature(object, content, &info.SignatureAlgorithm);
  return object;
}

// --- lists ---

Field EntryField(const CRL_ENTRY& entry) {
  Field field;
  field.add("Serial number", SerialOf(entry.SerialNumber));
  field.add("Revocation date", Moment(entry.RevocationDate));
  std::vector<Field> others;
  bool hasReason = false;
  for (const CERT_EXTENSION& extension : std::span(entry.rgExtension, entry.cExtension)) {
    const std::optional<Words> reason = hasReason ? std::nullopt : ReasonOf(extension);
    if (reason) {
      field.add("Reason", *reason);
      hasReason = true;
    } else {
      others.push_back(ExtensionField(extension));
    }
  }
  if (!others.empty()) field.addList("Extensions").children = std::move(others);
  return field;
}

void AddEntries(Field& object, const std::shared_ptr<const CRL_INFO>& info, const ShowOptions& options) {
  Field& revoked = object.add("Revoked certificates");
  revoked.add("Count", int64_t{info->cCRLEntry});
  const size_t shown = std::min<size_t>(info->cCRLEntry, options.maxEntries);
  if (shown) {
    ElementSource source{shown, [info](size_t i) { return EntryField(info->rgCRLEntry[i]); }};
    revoked.addList("Entries").source = std::make_shared<const ElementSource>(std::move(source));
  }
  if (shown < info->cCRLEntry) revoked.add("Not shown", static_cast<int64_t>(info->cCRLEntry - shown));
}

Field CrlField(const std::shared_ptr<const CRL_INFO>& info, const CERT_SIGNED_CONTENT_INFO& content,
               const ShowOptions& options) {
  Field object("CRL");
  object.add("Version", Version(info->dwVersion));
  AddAlgorithm(object, "Signature algorithm", info->SignatureAlgorithm, CRYPT_SIGN_ALG_OID_GROUP_ID);
  object.add(NameField("Issuer", BytesOf(info->Issuer)));
  object.add("This update", Moment(info->ThisUpdate));
  object.add("Next update", Moment(info->NextUpdate));
  AddEntries(object, info, options);
  AddExtensions(object, {info->rgExtension, info->cExtension});
  AddSignature(object, content, &info->SignatureAlgorithm);
  return object;
}

void AppendLength(Bytes& out, size_t length) {
  if (length < 0x80) {
    out.push_back(static_cast<BYTE>(length));
    return;
  }
  out.push_back(0x84);
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<BYTE>(length >> shift));
}

// The library's record is that of a version 2 list with something in it. RFC 5280, 5.1, also has lists
// without a version and lists that end with their times. Such a list gets what it leaves out, version 1 and
// an empty list of entries, so that a reader sees the rest of it.
Bytes CompletedList(std::span<const BYTE> list) {
  static constexpr BYTE kVersion1[] = {kIntegerTag, 1, 0};
  static constexpr BYTE kNoEntries[] = {kSequenceTag, 0};
  const auto elements = Decode<CRYPT_SEQUENCE_OF_ANY>(X509_SEQUENCE_OF_ANY, list);
  if (!elements || !elements->cValue) return Copy(list);
  const std::span fields(elements->rgValue, elements->cValue);
  const auto tagOf = [](const CRYPT_DER_BLOB& field) { return field.cbData ? field.pbData[0] : BYTE{0}; };
  const auto isTime = [&](const CRYPT_DER_BLOB& field) {
    return tagOf(field) == kUtcTimeTag || tagOf(field) == kGeneralizedTimeTag;
  };
  Bytes content;
  if (tagOf(fields[0]) != kIntegerTag) content.assign(std::begin(kVersion1), std::end(kVersion1));
  for (const CRYPT_DER_BLOB& field : fields)
    content.insert(content.end(), field.pbData, field.pbData + field.cbData);
  if (isTime(fields.back())) content.insert(content.end(), std::begin(kNoEntries), std::end(kNoEntries));
  Bytes completed{kSequenceTag};
  AppendLength(completed, content.size());
  completed.insert(completed.end(), content.begin(), content.end());
  return completed;
}

Decoded<CRL_INFO> DecodeList(std::span<const BYTE> list) {
  if (auto info = Decode<CRL_INFO>(X509_CERT_CRL_TO_BE_SIGNED, list, CRYPT_DECODE_TO_BE_SIGNED_FLAG))
    return info;
  return Decode<CRL_INFO>(X509_CERT_CRL_TO_BE_SIGNED, CompletedList(list), CRYPT_DECODE_TO_BE_SIGNED_FLAG);
}

// --- requests ---

// False when the value is not what the attribute should hold.
bool AddKnownValue(std::string_view oid, std::span<const BYTE> value, Field& field) {
  if (oid == szOID_RSA_certExtensions || oid == szOID_CERT_EXTENSIONS) {
    const auto extensions = Decode<CERT_EXTENSIONS>(X509_EXTENSIONS, value);
    if (extensions) AddExtensions(field, {extensions->rgExtension, extensions->cExtension});
    return extensions != nullptr;
  }
  if (oid == szOID_ENROLLMENT_NAME_VALUE_PAIR) {
    const auto pair = Decode<CRYPT_ENROLLMENT_NAME_VALUE_PAIR>(szOID_ENROLLMENT_NAME_VALUE_PAIR, value);
    if (!pair) return false;
    field.add("Pair name", WideText(pair->pwszName));
    field.add("Value", WideText(pair->pwszValue));
    return true;
  }
  if (oid == szOID_ENROLLMENT_CSP_PROVIDER) {
    const auto provider = Decode<CRYPT_CSP_PROVIDER>(szOID_ENROLLMENT_CSP_PROVIDER, value);
    if (!provider) return false;
    field.add("Key kind", int64_t{provider->dwKeySpec});
    field.add("Provider", WideText(provider->pwszProviderName));
    AddBits(field, "Signature", provider->Signature);
    return true;
  }
  // everything else that is one string, a challenge password among them, is shown as text
  field.add("Value", StringOrBytes(value));
  return true;
}

void AddAttributeValue(const CRYPT_ATTRIBUTE& attribute, const CRYPT_ATTR_BLOB& value, Field& field) {
  if (attribute.pszObjId && AddKnownValue(attribute.pszObjId, BytesOf(value), field)) return;
  field.add("Remark", Words{"the value is not what this attribute should hold"});
  field.add("Value", Copy(BytesOf(value)));
}

Field AttributeField(const CRYPT_ATTRIBUTE& attribute) {
  Field field("", NamedOid(attribute.pszObjId, CRYPT_EXT_OR_ATTR_OID_GROUP_ID));
  if (attribute.cValue == 1) {
    AddAttributeValue(attribute, attribute.rgValue[0], field);
    return field;
  }
  Field& values = field.addList("Values");
  for (DWORD i = 0; i < attribute.cValue; ++i)
    AddAttributeValue(attribute, attribute.rgValue[i], values.add(""));
  return field;
}

Field RequestField(const CERT_REQUEST_INFO& info, const CERT_SIGNED_CONTENT_INFO& content) {
  Field object("Certificate request");
  object.add("Version", Version(info.dwVersion));
  object.add(NameField("Subject", BytesOf(info.Subject)));
  object.add(PublicKeyField(info.SubjectPublicKeyInfo));
  if (info.cAttribute) {
    Field& attributes = object.addList("Attributes");
    for (DWORD i = 0; i < info.cAttribute; ++i) attributes.add(AttributeField(info.rgAttribute[i]));
  }
  AddSignature(object, content, nullptr);
  return object;
}

std::optional<Field> FieldOf(ObjectKind kind, const CERT_SIGNED_CONTENT_INFO& content,
                             const ShowOptions& options) {
  const std::span<const BYTE> part = BytesOf(content.ToBeSigned);
  constexpr DWORD kBare = CRYPT_DECODE_TO_BE_SIGNED_FLAG;
  switch (kind) {
    case ObjectKind::Certificate: {
      const auto info = Decode<CERT_INFO>(X509_CERT_TO_BE_SIGNED, part, kBare);
      return info ? std::optional(CertificateField(*info, content)) : std::nullopt;
    }
    case ObjectKind::Crl: {
      // shared with what makes the fields of the entries, one by one
      const std::shared_ptr<const CRL_INFO> info = DecodeList(part);
      return info ? std::optional(CrlField(info, content, options)) : std::nullopt;
    }
    case ObjectKind::Request: {
      const auto info = Decode<CERT_REQUEST_INFO>(X509_CERT_REQUEST_TO_BE_SIGNED, part, kBare);
      return info ? std::optional(RequestField(*info, content)) : std::nullopt;
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<Field> ObjectField(ObjectKind kind, std::span<const BYTE> encoded, const ShowOptions& options) {
  const auto content = Decode<CERT_SIGNED_CONTENT_INFO>(X509_CERT, encoded);
  if (!content) return std::nullopt;
  std::optional<Field> object = FieldOf(kind, *content, options);
  if (object) AddFingerprints(*object, encoded);
  return object;
}

}  // namespace certkern::cli
