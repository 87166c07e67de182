// Key transport for keys of GOST R 34.10: an ephemeral key travels with the encrypted one.
#include "extkern/key_exchange_gost.h"

#include <algorithm>
#include <cstring>

#include "common/der.h"
#include "extkern/key_answer.h"
#include "platform/extkern_msg.h"

namespace extkern {

namespace der = certkern::der;

// --- choices ---

bool IsGostPublicKey(LPCSTR oid) {
  constexpr const char* kPublicKeys[] = {kOidGost2001, kOidGost2012Short, kOidGost2012Long};
  return std::any_of(std::begin(kPublicKeys), std::end(kPublicKeys),
                     [&](const char* one) { return std::strcmp(one, oid) == 0; });
}

const GostWrapRow& WrapForContent(ALG_ID content, ALG_ID for28147) {
  if (content == CALG_GR3412_2015_M) return *FindGostWrap(ALG_ID{CALG_EXPORT_KEXP15_M});
  if (content == CALG_GR3412_2015_K) return *FindGostWrap(ALG_ID{CALG_EXPORT_KEXP15_K});
  return *FindGostWrap(for28147);
}

DWORD BoxFor(const ExportCall& call, LPCSTR recipientOid, std::string& box) {
  if (call.algorithm == CALG_G28147) return GetText(call.key(), KP_CIPHEROID, box);
  box = std::strcmp(recipientOid, kOidGost2001) ? kBoxOf2012 : kBoxOf2001;
  return ERROR_SUCCESS;
}

Bytes KexpParameters(LPCSTR recipientOid) {
  const bool isLong = std::strcmp(recipientOid, kOidGost2012Long) == 0;
  return der::Sequence({der::Oid(isLong ? kAgreementLong : kAgreementShort)});
}

DWORD CheckKexpParameters(const CRYPT_OBJID_BLOB& parameters) {
  der::Reader in(BytesOf(parameters));
  der::Reader body;
  std::string oid;
  if (!in.take(der::kSequence, body) || !in.empty() || !body.takeOid(oid) || !body.empty())
    return NTE_BAD_DATA;
  return oid == kAgreementShort || oid == kAgreementLong ? ERROR_SUCCESS : DWORD{NTE_BAD_ALGID};
}

namespace {

// --- export ---

struct TransportedKey {
  const GostWrapRow* wrap = nullptr;
  Bytes encryptedKey;
};

// The content key under what a fresh key and the recipient's come to.
DWORD Transport(const ExportCall& call, LPCSTR recipientOid, std::span<const BYTE> recipient,
                TransportedKey& out) {
  KeyHandle ephemeral;
  Bytes ephemeralInfo;
  if (const DWORD code = MakeEphemeral(call.provider, recipient, ephemeral)) return code;
  if (const DWORD code = KeyInfoOf(ephemeral.get(), ephemeralInfo)) return code;
  out.wrap = &WrapForContent(call.algorithm, CALG_EXPORT_DIVERSIFIED);
  Bytes ukm(out.wrap->ukmSize);
  if (const DWORD code = FillRandom(call.provider, ukm)) return code;
  const bool kexp = IsKexp(out.wrap->method);
  WrapSettings settings{.method = out.wrap->method, .ukm = ukm};
  if (!kexp) {
    if (const DWORD code = BoxFor(call, recipientOid, settings.box)) return code;
  }
  KeyHandle agreed;
  Bytes wrapped;
  if (const DWORD code = Agree(call.provider, ephemeral.get(), recipient, settings, agreed)) return code;
  if (const DWORD code = WrapContentKey(call.key(), agreed.get(), wrapped)) return code;
  if (kexp) {
    out.encryptedKey = TransportKexp{wrapped, ephemeralInfo, ukm}.write();
    return ERROR_SUCCESS;
  }
  Transport28147 transport{{}, settings.box, ephemeralInfo};
  if (!transport.wrapped.split(wrapped)) return NTE_FAIL;
  out.encryptedKey = transport.write();
  return out.encryptedKey.empty() ? DWORD{NTE_FAIL} : ERROR_SUCCESS;
}

DWORD Export(const CMSG_CONTENT_ENCRYPT_INFO& content, const CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO& recipient,
             CMSG_KEY_TRANS_ENCRYPT_INFO& out) {
  const CRYPT_ALGORITHM_IDENTIFIER& algorithm = recipient.KeyEncryptionAlgorithm;
  Bytes keyInfo;
  if (const DWORD code = WriteKeyInfo(algorithm, recipient.RecipientPublicKey, keyInfo)) return code;
  if (!IsGostPublicKey(algorithm.pszObjId)) return NTE_BAD_ALGID;
  ExportCall call{content};
  TransportedKey key;
  if (const DWORD code = call.begin(recipient.hCryptProv)) return code;
  if (const DWORD code = Transport(call, algorithm.pszObjId, keyInfo, key)) return code;
  KeyAnswer answer(content);
  CMSG_KEY_TRANS_ENCRYPT_INFO result = out;
  result.EncryptedKey = answer.bytes(key.encryptedKey);
  result.KeyEncryptionAlgorithm = algorithm;
  if (IsKexp(key.wrap->method)) {
    result.KeyEncryptionAlgorithm = {const_cast<LPSTR>(key.wrap->oid),
                                     answer.bytes(KexpParameters(algorithm.pszObjId))};
    result.dwFlags |= CMSG_KEY_TRANS_ENCRYPT_FREE_PARA_FLAG;
  }
  out = result;
  answer.keep();
  return ERROR_SUCCESS;
}

// --- import ---

DWORD Import28147(const ImportCall& call, const CMSG_KEY_TRANS_RECIPIENT_INFO& recipient, HCRYPTKEY* key) {
  if (!IsGostPublicKey(recipient.KeyEncryptionAlgorithm.pszObjId)) return NTE_BAD_ALGID;
  Transport28147 transport;
  if (!transport.read(BytesOf(recipient.EncryptedKey))) return NTE_BAD_DATA;
  const WrapSettings settings{.method = CALG_EXPORT_DIVERSIFIED, .box = transport.box};
  return call.unwrap(transport.ephemeral, settings, transport.wrapped.join(), key);
}

DWORD ImportKexp(const ImportCall& call, const CMSG_KEY_TRANS_RECIPIENT_INFO& recipient, HCRYPTKEY* key) {
  const GostWrapRow* wrap = FindGostWrap(recipient.KeyEncryptionAlgorithm.pszObjId);
  if (!wrap || !IsKexp(wrap->method)) return NTE_BAD_ALGID;
  if (const DWORD code = CheckKexpParameters(recipient.KeyEncryptionAlgorithm.Parameters)) return code;
  TransportKexp transport;
  if (!transport.read(BytesOf(recipient.EncryptedKey))) return NTE_BAD_DATA;
  const WrapSettings settings{.method = wrap->method, .ukm = transport.ukm};
  return call.unwrap(transport.ephemeral, settings, transport.key, key);
}

using Importer = DWORD (*)(const ImportCall& call, const CMSG_KEY_TRANS_RECIPIENT_INFO& recipient,
                           HCRYPTKEY* key);

BOOL Import(const CRYPT_ALGORITHM_IDENTIFIER* content, const CMSG_CTRL_KEY_TRANS_DECRYPT_PARA* para,
            DWORD flags, const void* reserved, HCRYPTKEY* key, Importer import) {
  return ExchangeCall(flags, reserved, [&]() -> DWORD {
    if (!key || !IsTransportUsable(para)) return ERROR_INVALID_PARAMETER;
    ImportCall call;
    if (const DWORD code = call.begin(content, para->hCryptProv, para->dwKeySpec)) return code;
    return import(call, *para->pKeyTrans, key);
  });
}

}  // namespace
}  // namespace extkern

using namespace extkern;  // NOLINT(google-build-using-namespace): only exported C functions follow

extern "C" {

BOOL XnMsgDllExportKeyTrans(PCMSG_CONTENT_ENCRYPT_INFO pContentEncryptInfo,
                            PCMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO pKeyTransEncodeInfo,
                            PCMSG_KEY_TRANS_ENCRYPT_INFO pKeyTransEncryptInfo, DWORD dwFlags,
                            void* pvReserved) {
  return ExchangeCall(dwFlags, pvReserved, [&]() -> DWORD {
    if (!IsWhole(pContentEncryptInfo) || !IsContentInfoUsable(*pContentEncryptInfo)
        || !IsWhole(pKeyTransEncodeInfo) || !IsWhole(pKeyTransEncryptInfo))
      return ERROR_INVALID_PARAMETER;
    return Export(*pContentEncryptInfo, *pKeyTransEncodeInfo, *pKeyTransEncryptInfo);
  });
}

BOOL XnMsgDllImportKeyTrans(PCRYPT_ALGORITHM_IDENTIFIER pContentEncryptionAlgorithm,
                            PCMSG_CTRL_KEY_TRANS_DECRYPT_PARA pKeyTransDecryptPara, DWORD dwFlags,
                            void* pvReserved, HCRYPTKEY* phContentEncryptKey) {
  return Import(pContentEncryptionAlgorithm, pKeyTransDecryptPara, dwFlags, pvReserved, phContentEncryptKey,
                Import28147);
}

BOOL XnMsgDllImportKeyTrans_GR3412(PCRYPT_ALGORITHM_IDENTIFIER pContentEncryptionAlgorithm,
                                   PCMSG_CTRL_KEY_TRANS_DECRYPT_PARA pKeyTransDecryptPara, DWORD dwFlags,
                                   void* pvReserved, HCRYPTKEY* phContentEncryptKey) {
  return Import(pContentEncryptionAlgorithm, pKeyTransDecryptPara, dwFlags, pvReserved, phContentEncryptKey,
                ImportKexp);
}

}  // extern "C"
