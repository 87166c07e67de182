// Key agreement for keys of SEC 1: ephemeral-static ECDH. RFC 5753, 3.1
#include <algorithm>
#include <array>
#include <cstring>

#include "common/der.h"
#include "extkern/key_exchange_agree.h"
#include "platform/extkern_msg.h"

namespace extkern {
namespace {

namespace der = certkern::der;

constexpr char kEcPublicKey[] = "1.2.840.10045.2.1";
constexpr ALG_ID kUnserved = 0;

// dhSinglePass-stdDH-...: the hash of the key derivation. RFC 5753, 7.1.4
struct SchemeRow {
  const char* oid;
  ALG_ID hash;
};
constexpr SchemeRow kSchemes[] =
    {
        {"1.3.133.16.840.63.0.2", CALG_SHA1   },
        {"1.3.132.1.11.0",        kUnserved   }, // SHA-224, which the key level does not have
        {"1.3.132.1.11.1",        CALG_SHA_256},
        {"1.3.132.1.11.2",        CALG_SHA_384},
        {"1.3.132.1.11.3",        CALG_SHA_512},
};

struct WrapRow {
  const char* oid;
  ALG_ID method;
  DWORD bits;
  bool hasNull;  // are its parameters NULL, or absent?
};
constexpr WrapRow kWraps[] = {
    {"2.16.840.1.101.3.4.1.5",    CALG_AES_128, 128, false}, // RFC 3565
    {"2.16.840.1.101.3.4.1.25",   CALG_AES_192, 192, false},
    {"2.16.840.1.101.3.4.1.45",   CALG_AES_256, 256, false},
    {"1.2.840.113549.1.9.16.3.6", CALG_3DES,    192, true }, // RFC 3370, 4.3.1
};

template <class Row, size_t kCount>
const Row* Find(const Row (&rows)[kCount], LPCSTR oid) {
  const auto* row =
      std::find_if(rows, rows + kCount, [&](const Row& one) { return std::strcmp(one.oid, oid) == 0; });
  return row == rows + kCount ? nullptr : row;
}

// ECC-CMS-SharedInfo ::= SEQUENCE { keyInfo AlgorithmIdentifier, entityUInfo [0] EXPLICIT OCTET STRING OPTIONAL,
//   suppPubInfo [2] EXPLICIT OCTET STRING }: the wrap, the user keying material, the bits of the wrapping key on four octets
Bytes SharedInfo(std::span<const BYTE> wrap, std::span<const BYTE> ukm, DWORD bits) {
  const std::array<BYTE, 4> size = {0, 0, static_cast<BYTE>(bits >> 8), static_cast<BYTE>(bits)};
  Bytes entity;
  if (!ukm.empty()) entity = der::Element(der::ContextConstructed(0), {der::OctetString(ukm)});
  const Bytes supplement = der::Element(der::ContextConstructed(2), {der::OctetString(size)});
  return der::Sequence({wrap, entity, supplement});
}

// --- export ---

DWORD ChooseScheme(const ExportCall& call, const CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO& recipient,
                   const SchemeRow*& scheme) {
  const CRYPT_ALGORITHM_IDENTIFIER& named = recipient.KeyEncryptionAlgorithm;
  if (IsNamed(named) && std::strcmp(named.pszObjId, kEcPublicKey) != 0) {
    scheme = Find(kSchemes, named.pszObjId);
    return scheme ? ERROR_SUCCESS : DWORD{NTE_BAD_ALGID};
  }
  // as strong as the curve: RFC 5753, 8
  Bytes keyInfo;
  KeyHandle model;
  DWORD bits = 0;
  const CRYPT_BIT_BLOB& first = recipient.rgpRecipientEncryptedKeys[0]->RecipientPublicKey;
  if (const DWORD code = WriteKeyInfo(RecipientAlgorithm(recipient), first, keyInfo)) return code;
  if (const DWORD code = ImportKeyInfo(call.provider, keyInfo, model)) return code;
  if (const DWORD code = GetNumber(model.get(), KP_KEYLEN, bits)) return code;
  scheme = Find(kSchemes, bits < 384 ? "1.3.132.1.11.1" : bits < 512 ? "1.3.132.1.11.2" : "1.3.132.1.11.3");
  return ERROR_SUCCESS;
}

// The weakest wrap of AES that is as strong as the content key.
DWORD ChooseWrap(const ExportCall& call, const CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO& recipient,
                 const WrapRow*& wrap) {
  if (IsNamed(recipient.KeyWrapAlgorithm)) {
    wrap = Find(kWraps, recipient.KeyWrapAlgorithm.pszObjId);
    return wrap ? ERROR_SUCCESS : DWORD{NTE_BAD_ALGID};
  }
  DWORD bits = 0;
  if (const DWORD code = GetNumber(call.key(), KP_KEYLEN, bits)) return code;
  wrap = bits <= 128 ? &kWraps[0] : bits <= 192 ? &kWraps[1] : &kWraps[2];
  return ERROR_SUCCESS;
}

DWORD Plan(const ExportCall& call, const CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO& recipient,
           AgreementPlan& plan) {
  const CRYPT_ALGORITHM_IDENTIFIER& key = RecipientAlgorithm(recipient);
  if (!IsNamed(key)) return ERROR_INVALID_PARAMETER;
  if (std::strcmp(key.pszObjId, kEcPublicKey) != 0) return NTE_BAD_ALGID;
  const SchemeRow* scheme = nullptr;
  const WrapRow* wrap = nullptr;
  if (const DWORD code = ChooseScheme(call, recipient, scheme)) return code;
  if (const DWORD code = ChooseWrap(call, recipient, wrap)) return code;
  if (scheme->hash == kUnserved) return NTE_BAD_ALGID;
  plan.scheme = scheme->oid;
  plan.parameters = der::AlgorithmIdentifier(wrap->oid, wrap->hasNull ? der::Null() : Bytes{});
  plan.method = wrap->method;
  plan.kdfHash = scheme->hash;
  plan.kdfInfo = SharedInfo(plan.parameters, {}, wrap->bits);
  plan.encode = [](std::span<const BYTE> wrapped) { return certkern::ToSecret(wrapped); };
  return ERROR_SUCCESS;
}

// --- import ---

// The wrap enters the derivation as the sender wrote it, with or without a NULL.
DWORD Read(const AgreementInput& input, AgreementPlan& plan, Bytes& wrapped) {
  const CRYPT_ALGORITHM_IDENTIFIER& identifier = input.recipient.KeyEncryptionAlgorithm;
  const SchemeRow* scheme = Find(kSchemes, identifier.pszObjId);
  if (!scheme || scheme->hash == kUnserved) return NTE_BAD_ALGID;
  der::Reader in(BytesOf(identifier.Parameters));
  der::Algorithm algorithm;
  if (!der::TakeAlgorithm(in, algorithm) || !in.empty()) return NTE_BAD_DATA;
  const WrapRow* wrap = Find(kWraps, algorithm.oid.c_str());
  if (!wrap) return NTE_BAD_ALGID;
  plan.method = wrap->method;
  plan.kdfHash = scheme->hash;
  plan.kdfInfo =
      SharedInfo(BytesOf(identifier.Parameters), BytesOf(input.recipient.UserKeyingMaterial), wrap->bits);
  wrapped = certkern::ToSecret(input.encryptedKey);
  return ERROR_SUCCESS;
}

}  // namespace
}  // namespace extkern

using namespace extkern;  // NOLINT(google-build-using-namespace): only exported C functions follow

extern "C" {

BOOL XnMsgDllExportKeyAgreeECDH(PCMSG_CONTENT_ENCRYPT_INFO pContentEncryptInfo,
                                PCMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO pKeyAgreeEncodeInfo,
                                PCMSG_KEY_AGREE_ENCRYPT_INFO pKeyAgreeEncryptInfo, DWORD dwFlags,
                                void* pvReserved) {
  return ExportAgreement(pContentEncryptInfo, pKeyAgreeEncodeInfo, pKeyAgreeEncryptInfo, dwFlags, pvReserved,
                         Plan);
}

BOOL XnMsgDllImportKeyAgreeECDH(PCRYPT_ALGORITHM_IDENTIFIER pContentEncryptionAlgorithm,
                                PCMSG_CTRL_KEY_AGREE_DECRYPT_PARA pKeyAgreeDecryptPara, DWORD dwFlags,
                                void* pvReserved, HCRYPTKEY* phContentEncryptKey) {
  return ImportAgreement(pContentEncryptionAlgorithm, pKeyAgreeDecryptPara, dwFlags, pvReserved,
                         phContentEncryptKey, Read);
}

}  // extern "C"
