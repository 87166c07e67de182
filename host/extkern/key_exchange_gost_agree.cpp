// Key agreement for keys of GOST R 34.10.
#include <algorithm>
#include <cstring>

#include "extkern/key_exchange_agree.h"
#include "extkern/key_exchange_gost.h"
#include "platform/extkern_msg.h"

namespace extkern {
namespace {

// What agreement under GOST 28147-89 goes by: the key's own identifier, as most write it, or the agreement's.
bool IsAgreement(LPCSTR oid) {
  constexpr const char* kAgreements[] = {kAgreementShort, kAgreementLong, "1.2.643.2.2.96"};  // RFC 4490
  return IsGostPublicKey(oid)
      || std::any_of(std::begin(kAgreements), std::end(kAgreements),
                     [&](const char* one) { return std::strcmp(one, oid) == 0; });
}

// --- export ---

// What the caller asked for, or else what fits the content.
DWORD ChooseWrap(const ExportCall& call, const CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO& recipient,
                 const GostWrapRow*& wrap) {
  const CRYPT_ALGORITHM_IDENTIFIER& scheme = recipient.KeyEncryptionAlgorithm;
  wrap = IsNamed(scheme) ? FindGostWrap(scheme.pszObjId) : nullptr;
  const bool isScheme = wrap ? IsKexp(wrap->method) : !IsNamed(scheme) || IsAgreement(scheme.pszObjId);
  if (!isScheme) return NTE_BAD_ALGID;
  if (IsNamed(recipient.KeyWrapAlgorithm)) {
    const GostWrapRow* named = FindGostWrap(recipient.KeyWrapAlgorithm.pszObjId);
    if (!named || (wrap && wrap != named)) return NTE_BAD_ALGID;
    wrap = named;
  }
  if (!wrap) wrap = &WrapForContent(call.algorithm, CALG_EXPORT_SIMPLE);
  return ERROR_SUCCESS;
}

DWORD ChooseUkm(const ExportCall& call, const CRYPT_DATA_BLOB& given, size_t size, Bytes& ukm) {
  if (!IsReadable(given)) return ERROR_INVALID_PARAMETER;
  ukm = certkern::ToSecret(BytesOf(given));
  if (!ukm.empty()) return ukm.size() == size ? ERROR_SUCCESS : DWORD{NTE_BAD_DATA};
  ukm.resize(size);
  return FillRandom(call.provider, ukm);
}

Bytes EncodeKexp(std::span<const BYTE> wrapped) { return certkern::ToSecret(wrapped); }

Bytes Encode28147(std::span<const BYTE> wrapped) {
  Wrapped28147 parts;
  return parts.split(wrapped) ? WriteEncrypted28147(parts) : Bytes{};
}

DWORD Plan(const ExportCall& call, const CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO& recipient,
           AgreementPlan& plan) {
  const CRYPT_ALGORITHM_IDENTIFIER& key = RecipientAlgorithm(recipient);
  if (!IsNamed(key)) return ERROR_INVALID_PARAMETER;
  if (!IsGostPublicKey(key.pszObjId)) return NTE_BAD_ALGID;
  const GostWrapRow* wrap = nullptr;
  if (const DWORD code = ChooseWrap(call, recipient, wrap)) return code;
  if (const DWORD code = ChooseUkm(call, recipient.UserKeyingMaterial, wrap->ukmSize, plan.ukm)) return code;
  plan.method = wrap->method;
  if (IsKexp(wrap->method)) {
    plan.scheme = wrap->oid;
    plan.parameters = KexpParameters(key.pszObjId);
    plan.encode = EncodeKexp;
    return ERROR_SUCCESS;
  }
  if (const DWORD code = BoxFor(call, key.pszObjId, plan.box)) return code;
  const CRYPT_ALGORITHM_IDENTIFIER& scheme = recipient.KeyEncryptionAlgorithm;
  plan.scheme = IsNamed(scheme) ? scheme.pszObjId : key.pszObjId;
  plan.parameters = Agreement28147{wrap->oid, plan.box}.write();
  plan.encode = Encode28147;
  return ERROR_SUCCESS;
}

// --- import ---

DWORD Read28147(const AgreementInput& input, AgreementPlan& plan, Bytes& wrapped) {
  const CRYPT_ALGORITHM_IDENTIFIER& scheme = input.recipient.KeyEncryptionAlgorithm;
  if (!IsAgreement(scheme.pszObjId)) return NTE_BAD_ALGID;
  Agreement28147 parameters;
  Wrapped28147 parts;
  if (!parameters.read(BytesOf(scheme.Parameters))) return NTE_BAD_DATA;
  const GostWrapRow* wrap = FindGostWrap(parameters.wrap.c_str());
  if (!wrap || IsKexp(wrap->method)) return NTE_BAD_ALGID;
  if (!ReadEncrypted28147(input.encryptedKey, parts)) return NTE_BAD_DATA;
  parts.ukm = BytesOf(input.recipient.UserKeyingMaterial);
  if (parts.ukm.size() != kGostUkm) return NTE_BAD_DATA;
  plan.method = wrap->method;
  plan.box = parameters.box;
  wrapped = parts.join();
  return ERROR_SUCCESS;
}

DWORD ReadKexp(const AgreementInput& input, AgreementPlan& plan, Bytes& wrapped) {
  const CRYPT_ALGORITHM_IDENTIFIER& scheme = input.recipient.KeyEncryptionAlgorithm;
  const GostWrapRow* wrap = FindGostWrap(scheme.pszObjId);
  if (!wrap || !IsKexp(wrap->method)) return NTE_BAD_ALGID;
  if (const DWORD code = CheckKexpParameters(scheme.Parameters)) return code;
  plan.ukm = certkern::ToSecret(BytesOf(input.recipient.UserKeyingMaterial));
  if (plan.ukm.size() != kKegUkm) return NTE_BAD_DATA;
  plan.method = wrap->method;
  wrapped = certkern::ToSecret(input.encryptedKey);
  return ERROR_SUCCESS;
}

}  // namespace
}  // namespace extkern

using namespace extkern;  // NOLINT(google-build-using-namespace): only exported C functions follow

extern "C" {

BOOL XnMsgDllExportKeyAgree(PCMSG_CONTENT_ENCRYPT_INFO pContentEncryptInfo,
                            PCMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO pKeyAgreeEncodeInfo,
                            PCMSG_KEY_AGREE_ENCRYPT_INFO pKeyAgreeEncryptInfo, DWORD dwFlags,
                            void* pvReserved) {
  return ExportAgreement(pContentEncryptInfo, pKeyAgreeEncodeInfo, pKeyAgreeEncryptInfo, dwFlags, pvReserved,
                         Plan);
}

BOOL XnMsgDllImportKeyAgree(PCRYPT_ALGORITHM_IDENTIFIER pContentEncryptionAlgorithm,
                            PCMSG_CTRL_KEY_AGREE_DECRYPT_PARA pKeyAgreeDecryptPara, DWORD dwFlags,
                            void* pvReserved, HCRYPTKEY* phContentEncryptKey) {
  return ImportAgreement(pContentEncryptionAlgorithm, pKeyAgreeDecryptPara, dwFlags, pvReserved,
                         phContentEncryptKey, Read28147);
}

BOOL XnMsgDllImportKeyAgree_GR3412(PCRYPT_ALGORITHM_IDENTIFIER pContentEncryptionAlgorithm,
                                   PCMSG_CTRL_KEY_AGREE_DECRYPT_PARA pKeyAgreeDecryptPara, DWORD dwFlags,
                                   void* pvReserved, HCRYPTKEY* phContentEncryptKey) {
  return ImportAgreement(pContentEncryptionAlgorithm, pKeyAgreeDecryptPara, dwFlags, pvReserved,
                         phContentEncryptKey, ReadKexp);
}

}  // extern "C"
