// Content encryption keys, made.
#include <algorithm>
#include <cstring>

#include "extkern/content_algorithm.h"
#include "extkern/key_answer.h"
#include "extkern/key_exchange.h"
#include "platform/extkern_msg.h"

namespace extkern {
namespace {

constexpr DWORD kUsualRc2Bits = 128;
constexpr int kLengthShift = 16;  // where the flags of CryptGenKey have the length of the key

bool IsOf2001(const CMSG_RECIPIENT_ENCODE_INFO& recipient) {
  const CRYPT_ALGORITHM_IDENTIFIER* algorithm = nullptr;
  if (recipient.dwRecipientChoice == CMSG_KEY_TRANS_RECIPIENT && recipient.pKeyTrans)
    algorithm = &recipient.pKeyTrans->KeyEncryptionAlgorithm;
  if (recipient.dwRecipientChoice == CMSG_KEY_AGREE_RECIPIENT && recipient.pKeyAgree)
    algorithm = &RecipientAlgorithm(*recipient.pKeyAgree);
  return algorithm && algorithm->pszObjId && !std::strcmp(algorithm->pszObjId, kOidGost2001);
}

// Readers of 2001 may know no younger box, and readers of 2012 know this one as well.
const char* BoxForRecipients(const CMSG_CONTENT_ENCRYPT_INFO& info) {
  const auto* first = info.rgCmsRecipients;
  const bool old = first && std::any_of(first, first + info.cRecipients, IsOf2001);
  return old ? kBoxOf2001 : kBoxOf2012;
}

// 0: the cipher's usual length.
DWORD KeyBits(const CMSG_CONTENT_ENCRYPT_INFO& info, const ContentAlgorithm& content) {
  const bool sized = content.algorithm == CALG_RC2 || content.algorithm == CALG_RC4;
  if (sized && info.pvEncryptionAuxInfo) {
    const auto& aux = *static_cast<const CMSG_RC2_AUX_INFO*>(info.pvEncryptionAuxInfo);
    if (aux.cbSize >= sizeof(aux)) return aux.dwBitLen;
  }
  return content.rc2Bits;
}

DWORD MakeParameters(const CMSG_CONTENT_ENCRYPT_INFO& info, HCRYPTPROV provider, DWORD bits,
                     ContentAlgorithm& content) {
  content.iv.resize(content.row->ivSize);
  if (content.row->form == ContentForm::Gost28147) content.box = BoxForRecipients(info);
  if (content.row->form == ContentForm::Rc2) content.rc2Bits = bits ? bits : kUsualRc2Bits;
  return content.iv.empty() ? DWORD{ERROR_SUCCESS} : FillRandom(provider, content.iv);
}

DWORD Generate(CMSG_CONTENT_ENCRYPT_INFO& info) {
  CRYPT_ALGORITHM_IDENTIFIER& identifier = info.ContentEncryptionAlgorithm;
  const bool given = HasParameters(identifier);
  ContentAlgorithm content;
  DWORD code =
      given ? ReadContentAlgorithm(identifier, content) : FindContentAlgorithm(identifier.pszObjId, content);
  if (code) return code;
  ProviderHandle counted;
  HCRYPTPROV provider = info.hCryptProv;
  if (!provider) {
    if ((code = TakeDefaultProvider(content.algorithm, counted))) return code;
    provider = counted.get();
  }
  const DWORD bits = KeyBits(info, content);
  if (bits > 0xFFFF) return NTE_BAD_LEN;
  KeyHandle key;
  if ((code = GenerateKey(provider, content.algorithm, CRYPT_EXPORTABLE | bits << kLengthShift, key)))
    return code;
  Bytes parameters;
  if (!given) {
    if ((code = MakeParameters(info, provider, bits, content))) return code;
    if ((code = WriteContentParameters(content, parameters))) return code;
  }
  if ((code = PrepareContentKey(key.get(), content))) return code;
  KeyAnswer answer(info);
  if (!parameters.empty()) {
    identifier.Parameters = answer.bytes(parameters);
    info.dwFlags |= CMSG_CONTENT_ENCRYPT_FREE_PARA_FLAG;
    answer.keep();
  }
  if (counted) {
    info.hCryptProv = counted.release();
    info.dwFlags |= CMSG_CONTENT_ENCRYPT_RELEASE_CONTEXT_FLAG;
  }
  info.hContentEncryptKey = key.release();
  return ERROR_SUCCESS;
}

}  // namespace
}  // namespace extkern

using namespace extkern;  // NOLINT(google-build-using-namespace): only exported C functions follow

extern "C" BOOL XnMsgDllGenContentEncryptKey(PCMSG_CONTENT_ENCRYPT_INFO pContentEncryptInfo, DWORD dwFlags,
                                             void* pvReserved) {
  return ExchangeCall(dwFlags, pvReserved, [&]() -> DWORD {
    if (!IsWhole(pContentEncryptInfo) || !IsContentInfoUsable(*pContentEncryptInfo))
      return ERROR_INVALID_PARAMETER;
    return Generate(*pContentEncryptInfo);
  });
}
