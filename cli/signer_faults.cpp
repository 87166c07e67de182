#include "signer_faults.h"

#include "chain_words.h"
#include "decoded.h"
#include "grammar.h"

#include <certkern/attributes.h>
#include <certkern/cert.h>
#include <certkern/oid.h>
#include <certkern/oids.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace certkern::cli {
namespace {

struct FaultRow {
  SignerFault fault;
  FaultSubject subject;
  std::string_view name;
  std::string_view english;
  std::string_view russian;
};
constexpr FaultRow RowOf(SignerFault fault, FaultSubject subject, std::string_view name,
                         std::string_view english, std::string_view russian) {
  return {fault, subject, name, english, russian};
}
constexpr FaultRow kFaults[] = {
    RowOf(SignerFault::UnknownAlgorithm, FaultSubject::Signature, "unknownAlgorithm",
          "the algorithm that is named is unknown", "указан неизвестный алгоритм"),
    RowOf(SignerFault::AlgorithmOfAnotherKey, FaultSubject::Signature, "algorithmOfAnotherKey",
          "the algorithm that is named is not one of the signer's key",
          "указанный алгоритм не подходит к ключу подписавшего"),
    RowOf(SignerFault::AlgorithmOfAnotherHash, FaultSubject::Signature, "algorithmOfAnotherHash",
          "the algorithm that is named has another hash than the one that is used",
          "указан алгоритм с другой хэш-функцией"),
    RowOf(SignerFault::AttributesAsContent, FaultSubject::Signature, "attributesAsContent",
          "the content is the signed attributes of a message, so another content was signed",
          "содержимое — подписанные атрибуты сообщения, подписано было другое содержимое"),
    RowOf(SignerFault::NoContentType, FaultSubject::ContentType, "noContentType",
          "not signed once, as it has to be", "не подписан, или подписан не один раз"),
    RowOf(SignerFault::OtherContentType, FaultSubject::ContentType, "otherContentType",
          "not the one that was signed", "подписан другой"),
    RowOf(SignerFault::SeveralDigests, FaultSubject::Signature, "severalDigests",
          "several digests of the content are signed, and only one of them was compared",
          "подписано несколько хэш-значений содержимого, сравнить можно лишь одно"),
    RowOf(SignerFault::NotForSignatures, FaultSubject::Certificate, "notForSignatures",
          "not meant for signatures", "не предназначен для подписи"),
};

const FaultRow& FindRow(SignerFault fault) {
  return *std::find_if(std::begin(kFaults), std::end(kFaults),
                       [fault](const FaultRow& row) { return row.fault == fault; });
}

PCCRYPT_OID_INFO FindAlgorithm(LPCSTR oid, DWORD group) {
  // the look-up takes a writable pointer and only reads
  return CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, const_cast<char*>(oid), group);
}

// Of the keys that make a signature.
std::string_view KeyOidOf(const CRYPT_OID_INFO& signature) {
  ALG_ID key = 0;
  if (signature.ExtraInfo.cbData >= sizeof key) std::memcpy(&key, signature.ExtraInfo.pbData, sizeof key);
  const PCCRYPT_OID_INFO row =
      CryptFindOIDInfo(CRYPT_OID_INFO_ALGID_KEY, &key, CRYPT_PUBKEY_ALG_OID_GROUP_ID);
  return row ? row->pszOID : "";
}

bool IsPair(const CRYPT_ATTRIBUTE& attribute, LPCSTR oid) {
  return attribute.pszObjId == std::string_view(oid);
}

bool Names(const SV_CERT_HASH_ID& id, LPCSTR usualHash, PCCERT_CONTEXT certificate) {
  const LPCSTR oid = id.HashAlgorithm.pszObjId ? id.HashAlgorithm.pszObjId : usualHash;
  const std::optional<Bytes> hash = HashOf(oid, {certificate->pbCertEncoded, certificate->cbCertEncoded});
  return hash && std::ranges::equal(*hash, BytesOf(id.CertHash));
}

}  // namespace

FaultSubject SubjectOf(SignerFault fault) { return FindRow(fault).subject; }
std::string_view NameOf(SignerFault fault) { return FindRow(fault).name; }
std::string_view SentenceOf(SignerFault fault) {
  const FaultRow& row = FindRow(fault);
  return Say(row.english, row.russian);
}

std::optional<SignerFault> AlgorithmFault(const CMSG_CMS_SIGNER_INFO& info, const CERT_PUBLIC_KEY_INFO& key) {
  const LPCSTR named = info.HashEncryptionAlgorithm.pszObjId;
  const std::string_view own = key.Algorithm.pszObjId;
  // messages may name the bare key, which leaves the hash to its own field; signatures by EdDSA are called by their keys anyway
  if (own == named) return std::nullopt;
  if (FindAlgorithm(named, CRYPT_PUBKEY_ALG_OID_GROUP_ID) && named != std::string_view(szOID_RSA_SSA_PSS))
    return SignerFault::AlgorithmOfAnotherKey;
  const PCCRYPT_OID_INFO signature = FindAlgorithm(named, CRYPT_SIGN_ALG_OID_GROUP_ID);
  if (!signature) return SignerFault::UnknownAlgorithm;
  if (KeyOidOf(*signature) != own) return SignerFault::AlgorithmOfAnotherKey;
  // the hash of RSASSA-PSS is in its parameters, which the library goes by
  if (named == std::string_view(szOID_RSA_SSA_PSS)) return std::nullopt;
  if (signature->Algid != CertOIDToAlgId(info.HashAlgorithm.pszObjId))
    return SignerFault::AlgorithmOfAnotherHash;
  return std::nullopt;
}

std::optional<SignerFault> SignedAttributesFault(const CMSG_CMS_SIGNER_INFO& info,
                                                 std::string_view contentType) {
  const std::span attributes(info.AuthAttrs.rgAttr, info.AuthAttrs.cAttr);
  if (attributes.empty()) {
    if (contentType == szOID_RSA_data) return std::nullopt;
    return SignerFault::NoContentType;
  }
  const auto count = [&](LPCSTR oid) {
    return std::ranges::count_if(attributes, [oid](const auto& each) { return IsPair(each, oid); });
  };
  if (count(szOID_RSA_messageDigest) > 1) return SignerFault::SeveralDigests;
  if (count(szOID_RSA_contentType) != 1) return SignerFault::NoContentType;
  const CRYPT_ATTRIBUTE& found =
      *std::ranges::find_if(attributes, [](const auto& each) { return IsPair(each, szOID_RSA_contentType); });
  if (found.cValue != 1) return SignerFault::NoContentType;
  const auto type = Decode<LPSTR>(X509_OBJECT_IDENTIFIER, BytesOf(found.rgValue[0]));
  if (!type || *type != contentType) return SignerFault::OtherContentType;
  return std::nullopt;
}

bool AreSignedAttributes(std::span<const BYTE> content) {
  if (content.empty() || content[0] != kSetTag) return false;
  Bytes list(content.begin(), content.end());
  list[0] = kSequenceTag;  // the list that the library decodes
  const auto elements = Decode<CRYPT_SEQUENCE_OF_ANY>(X509_SEQUENCE_OF_ANY, list);
  if (!elements) return false;
  bool hasType = false;
  bool hasDigest = false;
  for (const CRYPT_DER_BLOB& each : std::span(elements->rgValue, elements->cValue)) {
    const auto attribute = Decode<CRYPT_ATTRIBUTE>(PKCS_ATTRIBUTE, BytesOf(each));
    if (!attribute) return false;
    hasType = hasType || IsPair(*attribute, szOID_RSA_contentType);
    hasDigest = hasDigest || IsPair(*attribute, szOID_RSA_messageDigest);
  }
  return hasType && hasDigest;
}

std::optional<SignerFault> UsageFault(PCCERT_CONTEXT certificate) {
  BYTE usage = 0;
  SetLastError(0);
  // without the extension a key is for anything
  if (!CertGetIntendedKeyUsage(X509_ASN_ENCODING, certificate->pCertInfo, &usage, sizeof usage)
      && !GetLastError())
    return std::nullopt;
  if (usage & (CERT_DIGITAL_SIGNATURE_KEY_USAGE | CERT_NON_REPUDIATION_KEY_USAGE)) return std::nullopt;
  return SignerFault::NotForSignatures;
}

bool IsWeakHash(LPCSTR oid) {
  static constexpr ALG_ID kWeak[] = {CALG_MD4, CALG_MD5, CALG_SHA1};
  return std::ranges::find(kWeak, CertOIDToAlgId(oid)) != std::end(kWeak);
}

std::optional<Bytes> HashOf(LPCSTR oid, std::span<const BYTE> bytes) {
  const ALG_ID algorithm = CertOIDToAlgId(oid);
  if (!algorithm) return std::nullopt;
  Bytes hash;
  const auto ask = [&](BYTE* out, DWORD* size) {
    return CryptHashCertificate(0, algorithm, 0, bytes.data(), CheckedSize(bytes.size()), out, size);
  };
  return AskBytes(ask, hash) ? std::optional(std::move(hash)) : std::nullopt;
}

BindingFinding JudgeBinding(const CMSG_CMS_SIGNER_INFO& info, PCCERT_CONTEXT certificate) {
  struct Form {
    const char* oid;
    LPCSTR type;
    const char* usualHash;
  };
  static constexpr Form kForms[] = {
      {szOID_SIGNING_CERTIFICATE_V2, SV_SIGNING_CERTIFICATE_V2_STRUCT, szOID_NIST_sha256},
      {szOID_SIGNING_CERTIFICATE,    SV_SIGNING_CERTIFICATE_STRUCT,    szOID_OIWSEC_sha1},
  };
  BindingFinding finding = BindingFinding::None;
  for (const Form& form : kForms) {
    const auto value = AttributeValue(info.AuthAttrs, form.oid);
    if (!value) continue;
    const auto record = Decode<SV_SIGNING_CERTIFICATE>(form.type, *value);
    // the first one is the signer's
    if (!record || !record->cCert || !Names(record->rgCert[0], form.usualHash, certificate))
      return BindingFinding::Other;
    finding = BindingFinding::Same;
  }
  return finding;
}

}  // namespace certkern::cli
