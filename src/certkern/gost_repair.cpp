#include "certkern/gost_repair.h"

#include <certkern/msg_envelope.h>
#include <certkern/oids.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>
#include <string_view>

#include "oid/algorithm_lookup.h"
#include "platform/owner.h"
#include "platform/supkern.h"
#include "platform/trace.h"

namespace certkern {
namespace {

constexpr std::string_view kGostHashes[] = {szOID_GOST_R3411_2012_256, szOID_GOST_R3411_2012_512,
                                            szOID_GOST_R3411_94};
constexpr std::string_view kGostKeys[] = {szOID_GOST_R3410_2012_256, szOID_GOST_R3410_2012_512,
                                          szOID_GOST_R3410_2001};
constexpr std::string_view kGostCiphers[] = {
    szOID_GOST_28147_89, szOID_GOST_R3412_2015_KUZNYECHIK_CTR_ACPKM, szOID_GOST_R3412_2015_MAGMA_CTR_ACPKM,
    szOID_GOST_R3412_2015_KUZNYECHIK_CTR_ACPKM_OMAC, szOID_GOST_R3412_2015_MAGMA_CTR_ACPKM_OMAC};

// The second three are those of software tokens, whose types have their top bits so.
constexpr DWORD kTokenTypeMask = 0xE000, kTokenType = 0x8000;
constexpr DWORD kGostProviders[] = {PROV_GOST_2001_DH, PROV_GOST_2012_256, PROV_GOST_2012_512};
constexpr DWORD kGostTokenProviders[] = {32798, 32801, 32802};

bool IsIn(std::span<const std::string_view> oids, LPCSTR oid) {
  return oid && std::ranges::find(oids, std::string_view(oid)) != oids.end();
}

bool IsGostProvider(DWORD type) {
  const std::span<const DWORD> types =
      (type & kTokenTypeMask) == kTokenType ? std::span(kGostTokenProviders) : std::span(kGostProviders);
  return std::ranges::find(types, type) != types.end();
}

// False with a trace.
bool ReadProviderType(HCRYPTPROV provider, DWORD& type) {
  const LastErrorKeeper keeper;
  DWORD size = sizeof type;
  if (CryptGetProvParam(provider, PP_PROVTYPE, reinterpret_cast<BYTE*>(&type), &size, 0)) return true;
  Trace(TRACE_CALL, "ProviderType not found");
  return false;
}

void SetOid(CRYPT_ALGORITHM_IDENTIFIER& algorithm, LPCSTR oid) { algorithm = {const_cast<LPSTR>(oid), {}}; }

void ChangeToKeysHash(CRYPT_ALGORITHM_IDENTIFIER& algorithm, LPCSTR keyOid) {
  const PCCRYPT_OID_INFO info = DefaultHashInfo(keyOid);
  SetOid(algorithm, info ? info->pszOID : szOID_GOST_R3411_94);
  Trace(TRACE_CALL, "Change Hash OID: %s", algorithm.pszObjId);
}

// --- enveloped messages ---

// Null for a recipient that tells nothing.
LPCSTR ExtractKeyAlg(const CERT_INFO* recipient) {
  if (!recipient) return nullptr;
  const LPCSTR oid = recipient->SubjectPublicKeyInfo.Algorithm.pszObjId;
  Trace(TRACE_CALL, "CERT_INFO, SubjectPublicKeyInfo.Algorithm: %s", oid);
  return oid;
}

// Both kinds of recipients have the algorithm in the same place.
template <class Recipient>
LPCSTR KeyAlgorithmOf(const Recipient* recipient) {
  constexpr size_t kEnd = offsetof(Recipient, KeyEncryptionAlgorithm) + sizeof(CRYPT_ALGORITHM_IDENTIFIER);
  return recipient && recipient->cbSize >= kEnd ? recipient->KeyEncryptionAlgorithm.pszObjId : nullptr;
}

LPCSTR ExtractKeyAlg(const CMSG_RECIPIENT_ENCODE_INFO& recipient) {
  switch (recipient.dwRecipientChoice) {
    case CMSG_KEY_TRANS_RECIPIENT: {
      const LPCSTR oid = KeyAlgorithmOf(recipient.pKeyTrans);
      Trace(TRACE_CALL, "CMSG_KEY_TRANS_RECIPIENT, KeyEncryptionAlgorithm: %s", oid);
      return oid;
    }
    case CMSG_KEY_AGREE_RECIPIENT: {
      const LPCSTR oid = KeyAlgorithmOf(recipient.pKeyAgree);
      Trace(TRACE_CALL, "CMSG_KEY_AGREE_RECIPIENT, KeyEncryptionAlgorithm: %s", oid);
      return oid;
    }
    case CMSG_MAIL_LIST_RECIPIENT:
      Trace(TRACE_CALL, "CMSG_MAIL_LIST_RECIPIENT");
      return nullptr;
    default:
      return nullptr;
  }
}

bool HasGostRecipient(const CMSG_ENVELOPED_ENCODE_INFO& info) {
  const auto hasGostKey = [](const auto& recipient) { return IsIn(kGostKeys, ExtractKeyAlg(recipient)); };
  if (info.rgpRecipients) {
    Trace(TRACE_CALL, "PKCS7, cRecipients: %d", info.cRecipients);
    return std::ranges::any_of(std::span(info.rgpRecipients, info.cRecipients), hasGostKey);
  }
  Trace(TRACE_CALL, "CMS, cRecipients: %d", info.cRecipients);
  const DWORD recipients = info.rgCmsRecipients ? info.cRecipients : 0;
  return std::ranges::any_of(std::span(info.rgCmsRecipients, recipients), hasGostKey);
}

void AdjustEncryptionAlgorithmToGost(CMSG_ENVELOPED_ENCODE_INFO& info) {
  CRYPT_ALGORITHM_IDENTIFIER& cipher = info.ContentEncryptionAlgorithm;
  Trace(TRACE_CALL, "Encrypt OID: %s", cipher.pszObjId);
  if (cipher.pszObjId && !IsIn(kGostCiphers, cipher.pszObjId)) SetOid(cipher, szOID_GOST_28147_89);
  DWORD type = 0;
  if (!info.hCryptProv || !ReadProviderType(info.hCryptProv, type) || IsGostProvider(type)) return;
  info.hCryptProv = 0;
  Trace(TRACE_CALL, "Change hCryptProv");
}

}  // namespace

bool RepairsAlgorithms() {
  static const bool repairs = [] {
    int64_t value = 0;
    return support_registry_get_long("\\config\\Certkern\\repair_bad_algs", &value) != 0 || value != 0;
  }();
  return repairs;
}

bool IsGostHash(LPCSTR oid) { return IsIn(kGostHashes, oid); }

void PrepareHashCompatibleSigner(CMSG_SIGNER_ENCODE_INFO* signer) {
  constexpr size_t kHashEnd = offsetof(CMSG_SIGNER_ENCODE_INFO, pvHashAuxInfo);
  if (!signer || signer->cbSize < kHashEnd) return;
  if (!signer->hCryptProv) {
    Trace(TRACE_CALL, "NULL provider");
    return;
  }
  DWORD type = 0;
  if (!ReadProviderType(signer->hCryptProv, type)) return;
  Trace(TRACE_CALL, "Provider Type: %d", type);
  CRYPT_ALGORITHM_IDENTIFIER& hash = signer->HashAlgorithm;
  if (!IsGostProvider(type) || !hash.pszObjId || IsGostHash(hash.pszObjId)) return;
  ChangeToKeysHash(hash,
                   signer->pCertInfo ? signer->pCertInfo->SubjectPublicKeyInfo.Algorithm.pszObjId : nullptr);
}

void PrepareHashCompatibleSignMessage(CRYPT_SIGN_MESSAGE_PARA* para) {
  constexpr size_t kHashEnd = offsetof(CRYPT_SIGN_MESSAGE_PARA, pvHashAuxInfo);
  if (!para || para->cbSize < kHashEnd || !para->pSigningCert || !para->HashAlgorithm.pszObjId) return;
  const LPCSTR keyOid = para->pSigningCert->pCertInfo->SubjectPublicKeyInfo.Algorithm.pszObjId;
  Trace(TRACE_CALL, "Hash OID: %s", para->HashAlgorithm.pszObjId);
  Trace(TRACE_CALL, "Public Key Alg: %s", keyOid);
  if (IsIn(kGostKeys, keyOid) && !IsGostHash(para->HashAlgorithm.pszObjId))
    ChangeToKeysHash(para->HashAlgorithm, keyOid);
}

void TryUpdateEncodeInfoToGostCompatible(void* info, DWORD dwMsgType) {
  if (!info) return;
  if (dwMsgType == CMSG_ENVELOPED) {
    auto& enveloped = *static_cast<CMSG_ENVELOPED_ENCODE_INFO*>(info);
    if (HasGostRecipient(enveloped)) AdjustEncryptionAlgorithmToGost(enveloped);
  }
  if (dwMsgType != CMSG_SIGNED) return;
  auto& message = *static_cast<CMSG_SIGNED_ENCODE_INFO*>(info);
  auto* at = reinterpret_cast<BYTE*>(message.rgSigners);
  for (DWORD i = 0; at && i < message.cSigners; ++i) {
    auto* const signer = reinterpret_cast<CMSG_SIGNER_ENCODE_INFO*>(at);
    PrepareHashCompatibleSigner(signer);
    at += signer->cbSize;
  }
}

}  // namespace certkern
