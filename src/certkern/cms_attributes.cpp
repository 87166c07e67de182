#include "certkern/cms_attributes.h"

#include <certkern/attributes.h>
#include <certkern/cert.h>
#include <certkern/oid.h>
#include <certkern/oids.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <span>
#include <string_view>

#include "certkern/gost_repair.h"
#include "certkern/signer_certificate.h"
#include "platform/supkern.h"
#include "platform/trace.h"

namespace certkern {
namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

// False: it can't be told; the value is left alone.
bool SvCmsAttrGetCspParameterDword(const char* name, int64_t& value) {
  constexpr std::string_view kFolder = "\\config\\Parameters\\";
  const size_t nameSize = std::strlen(name) + 1;
  const MallocOwner<char> path(static_cast<char*>(std::malloc(kFolder.size() + nameSize)));
  if (!path) {
    TraceLazy("SvCmsAttrGetCspParameterDword: malloc failed");
    return false;
  }
  std::memcpy(path.get(), kFolder.data(), kFolder.size());
  std::memcpy(path.get() + kFolder.size(), name, nameSize);
  return support_registry_get_long(path.get(), &value) == 0;
}

enum class Switch : int { NotRead, Off, On };
std::atomic<Switch> attributesSwitch{Switch::NotRead};  // threads that race here all read the same

bool AddsAttributes() {
  Switch state = attributesSwitch.load(std::memory_order_relaxed);
  if (state == Switch::NotRead) {
    const LastErrorKeeper keeper;
    int64_t value = 1;
    state = SvCmsAttrGetCspParameterDword("AddEsAttribute", value) && value == 0 ? Switch::Off : Switch::On;
    attributesSwitch.store(state, std::memory_order_relaxed);
  }
  return state == Switch::On;
}

// The attributes of one signer while they grow. What they grew to shows in the caller's record when all is done, so that a
// failure half way leaves them as they were.
class GrowingAttributes {
 public:
  GrowingAttributes(CRYPT_ATTRIBUTE** list, DWORD* count, MemoryChain* chain)
      : chain_(chain), givenList_(list), givenCount_(count), list_(*list), count_(*count) {}

  bool isWhole() const { return count_ == 0 || list_; }
  bool has(const char* oid) const { return CertFindAttribute(oid, count_, list_) != nullptr; }
  // In the chain; null with a code.
  BYTE* allocate(size_t size) const { return static_cast<BYTE*>(SvCmsAttrAlloc(chain_, size)); }
  MemoryChain* chain() const { return chain_; }
  [[nodiscard]] bool append(const char* oid, CRYPT_ATTR_BLOB value);
  void commit() const {
    *givenList_ = list_;
    *givenCount_ = count_;
  }

 private:
  MemoryChain* const chain_;
  CRYPT_ATTRIBUTE** const givenList_;
  DWORD* const givenCount_;
  CRYPT_ATTRIBUTE* list_;
  DWORD count_;
};

bool GrowingAttributes::append(const char* oid, CRYPT_ATTR_BLOB value) {
  const size_t cbAttrPack = (size_t{count_} + 1) * sizeof(CRYPT_ATTRIBUTE) + sizeof(CRYPT_ATTR_BLOB);
  auto* const grown =
      count_ < UINT32_MAX ? reinterpret_cast<CRYPT_ATTRIBUTE*>(allocate(cbAttrPack)) : nullptr;
  if (!grown) {
    TraceLazy("SvCmsAttrAlloc failed: pMemChain=0x%p, cbAttrPack=%lu", chain_, cbAttrPack);
    return false;
  }
  std::copy_n(list_, count_, grown);
  auto* const kept = reinterpret_cast<CRYPT_ATTR_BLOB*>(grown + count_ + 1);
  *kept = value;
  grown[count_] = {const_cast<LPSTR>(oid), 1, kept};
  list_ = grown;
  ++count_;
  return true;
}

// Encodes a value into the chain. False with a code.
bool EncodeValue(LPCSTR type, const void* record, const GrowingAttributes& attributes,
                 CRYPT_ATTR_BLOB& value) {
  DWORD cbEncoded = 0;
  if (!CryptEncodeObject(kEncoding, type, record, nullptr, &cbEncoded)) {
    TraceLazy("CryptEncodeObject failed: err=0x%x", GetLastError());
    return false;
  }
  BYTE* const encoded = attributes.allocate(cbEncoded);
  if (!encoded) {
    TraceLazy("SvCmsAttrAlloc failed: pMemChain=0x%p, cbEncoded=%d", attributes.chain(), cbEncoded);
    return false;
  }
  if (!CryptEncodeObject(kEncoding, type, record, encoded, &cbEncoded)) {
    TraceLazy("CryptEncodeObject failed: err=0x%x", GetLastError());
    return false;
  }
  value = {cbEncoded, encoded};
  return true;
}

// The hash lives in the chain. False with a code.
bool HashCertificate(PCCERT_CONTEXT certificate, ALG_ID algorithm, const GrowingAttributes& attributes,
                     CRYPT_HASH_BLOB& value) {
  DWORD cbHash = 0;
  if (!CryptHashCertificate(0, algorithm, 0, certificate->pbCertEncoded, certificate->cbCertEncoded, nullptr,
                            &cbHash)) {
    TraceLazy("CryptHashCertificate failed: err=0x%x", GetLastError());
    return false;
  }
  BYTE* const hash = attributes.allocate(cbHash);
  if (!hash) {
    TraceLazy("SvCmsAttrAlloc failed: pMemChain=0x%p, cbHash=%d", attributes.chain(), cbHash);
    return false;
  }
  if (!CryptHashCertificate(0, algorithm, 0, certificate->pbCertEncoded, certificate->cbCertEncoded, hash,
                            &cbHash)) {
    TraceLazy("CryptHashCertificate failed: err=0x%x", GetLastError());
    return false;
  }
  value = {cbHash, hash};
  return true;
}

bool AddSigningCertV2(GrowingAttributes& attributes, const CRYPT_ALGORITHM_IDENTIFIER& hashAlgorithm,
                      PCCERT_CONTEXT certificate) {
  const ALG_ID algorithm = CertOIDToAlgId(hashAlgorithm.pszObjId);
  if (algorithm == 0) {
    TraceLazy("CertOIDToAlgId failed for OID: %s", hashAlgorithm.pszObjId);
    return false;
  }
  SV_ISSUER_SERIAL issuerSerial{certificate->pCertInfo->Issuer, certificate->pCertInfo->SerialNumber};
  SV_CERT_HASH_ID id{hashAlgorithm, {}, &issuerSerial};
  if (!HashCertificate(certificate, algorithm, attributes, id.CertHash)) return false;
  const SV_SIGNING_CERTIFICATE record{1, &id};
  CRYPT_ATTR_BLOB value{};
  return EncodeValue(SV_SIGNING_CERTIFICATE_V2_STRUCT, &record, attributes, value)
      && attributes.append(szOID_SIGNING_CERTIFICATE_V2, value);
}

bool AddSigningTime(GrowingAttributes& attributes) {
  if (attributes.has(szOID_RSA_signingTime)) return true;
  FILETIME now{};
  GetSystemTimeAsFileTime(&now);
  CRYPT_ATTR_BLOB value{};
  return EncodeValue(PKCS_UTC_TIME, &now, attributes, value)
      && attributes.append(szOID_RSA_signingTime, value);
}

// A signer who says already which certificate is his, in either form, gets neither the attribute nor a time.
bool NamesCertificate(const GrowingAttributes& attributes) {
  constexpr const char* kOids[] = {szOID_SIGNING_CERTIFICATE, szOID_SIGNING_CERTIFICATE_V2,
                                   szOID_OTHER_SIGNING_CERTIFICATE};
  return std::ranges::any_of(kOids, [&](const char* oid) { return attributes.has(oid); });
}

// False with a code.
bool AddBoth(GrowingAttributes& attributes, const CRYPT_ALGORITHM_IDENTIFIER& hashAlgorithm,
             const SignerPlaces& places) {
  const CertificateOwner certificate = FindSignerCertificate(places);
  if (!certificate) {
    SetLastError(CRYPT_E_SIGNER_NOT_FOUND);
    return false;
  }
  if (!attributes.isWhole()) {
    TraceLazy("bad *prgAuthAttr");
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  if (!AddSigningCertV2(attributes, hashAlgorithm, certificate.get()) || !AddSigningTime(attributes))
    return false;
  attributes.commit();
  return true;
}

}  // namespace

bool AddESAttributes(CRYPT_ATTRIBUTE** prgAuthAttr, DWORD* pcAuthAttr,
                     const CRYPT_ALGORITHM_IDENTIFIER* pHashAlgorithm,
                     const CMSG_SIGNED_ENCODE_INFO* pSignedInfo, HCRYPTMSG hMsg, DWORD flags,
                     const CMSG_SIGNER_ENCODE_INFO* pSignerInfo, PCCERT_CONTEXT pSigningCert,
                     void* /*reserved*/, MemoryChain* pMemChain) {
  if (!AddsAttributes()) return true;
  if (!IsGostHash(pHashAlgorithm->pszObjId)) return true;
  if ((flags & SVCMSG_CADES_STRICT) && (flags & SVCMSG_CADES_DISABLE)) {
    TraceLazy("strict and disable flags conflict");
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  if (flags & SVCMSG_CADES_DISABLE) return true;
  GrowingAttributes attributes(prgAuthAttr, pcAuthAttr, pMemChain);
  if (NamesCertificate(attributes)) return true;
  const SignerPlaces places{.given = pSigningCert,
                            .signer = pSignerInfo,
                            .signedInfo = pSignedInfo,
                            .message = hMsg,
                            .searchKeyPlaces = !(flags & SVCMSG_CADES_NO_KEY_SEARCH),
                            .chain = pMemChain};
  if (AddBoth(attributes, *pHashAlgorithm, places)) return true;
  if (flags & SVCMSG_CADES_STRICT) {
    TraceLazy("failure due to enabled SVCMSG_CADES_STRICT flag");
    return false;
  }
  SetLastError(ERROR_SUCCESS);
  return true;
}

bool AddESAttributesToEncodeInfo(CMSG_SIGNED_ENCODE_INFO* pSignedInfo, DWORD flags, MemoryChain* pMemChain) {
  if (!AddsAttributes()) return true;
  constexpr size_t kSignersEnd = offsetof(CMSG_SIGNED_ENCODE_INFO, cCertEncoded);
  if (!pSignedInfo || !Reaches(*pSignedInfo, kSignersEnd) || !pSignedInfo->rgSigners) return true;
  constexpr size_t kAttributesEnd = offsetof(CMSG_SIGNER_ENCODE_INFO, cUnauthAttr);
  auto* at = reinterpret_cast<BYTE*>(pSignedInfo->rgSigners);
  for (DWORD i = 0; i < pSignedInfo->cSigners; ++i) {
    auto& signer = *reinterpret_cast<CMSG_SIGNER_ENCODE_INFO*>(at);
    at += signer.cbSize;
    if (!Reaches(signer, kAttributesEnd) || !signer.HashAlgorithm.pszObjId) continue;
    if (!AddESAttributes(&signer.rgAuthAttr, &signer.cAuthAttr, &signer.HashAlgorithm, pSignedInfo, nullptr,
                         flags, &signer, nullptr, nullptr, pMemChain))
      return false;
  }
  return true;
}

}  // namespace certkern
