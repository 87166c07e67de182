#include "extkern/key_exchange_agree.h"

#include <vector>

#include "extkern/key_answer.h"
#include "platform/extkern_msg.h"

namespace extkern {
namespace {

// --- export ---

using Recipients = std::span<const PCMSG_RECIPIENT_ENCRYPTED_KEY_ENCODE_INFO>;

// An entry of the answer for each recipient, all of them there.
bool AreRecipientsUsable(const CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO& recipient,
                         const CMSG_KEY_AGREE_ENCRYPT_INFO& out) {
  const DWORD count = recipient.cRecipientEncryptedKeys;
  if (!count || count != out.cKeyAgreeKeyEncryptInfo) return false;
  if (!recipient.rgpRecipientEncryptedKeys || !out.rgpKeyAgreeKeyEncryptInfo) return false;
  for (DWORD i = 0; i < count; ++i) {
    if (!IsWhole(recipient.rgpRecipientEncryptedKeys[i]) || !IsWhole(out.rgpKeyAgreeKeyEncryptInfo[i]))
      return false;
  }
  return true;
}

// The originator's key of this message, and what it makes of the content key for each recipient.
struct Agreement {
  KeyHandle ephemeral;
  Bytes originator;  // SubjectPublicKeyInfo
  std::vector<Bytes> encryptedKeys;

  DWORD addRecipient(const ExportCall& call, const AgreementPlan& plan, std::span<const BYTE> keyInfo);
};

DWORD Agreement::addRecipient(const ExportCall& call, const AgreementPlan& plan,
                              std::span<const BYTE> keyInfo) {
  if (!ephemeral) {
    if (const DWORD code = MakeEphemeral(call.provider, keyInfo, ephemeral)) return code;
    if (const DWORD code = KeyInfoOf(ephemeral.get(), originator)) return code;
  }
  KeyHandle agreed;
  Bytes wrapped;
  if (const DWORD code = Agree(call.provider, ephemeral.get(), keyInfo, plan.settings(), agreed)) return code;
  if (const DWORD code = WrapContentKey(call.key(), agreed.get(), wrapped)) return code;
  encryptedKeys.push_back(plan.encode(wrapped));
  return encryptedKeys.back().empty() ? DWORD{NTE_FAIL} : ERROR_SUCCESS;
}

DWORD Give(const ExportCall& call, const AgreementPlan& plan, const Agreement& agreement,
           CMSG_KEY_AGREE_ENCRYPT_INFO& out) {
  KeyInfoParts originator;
  if (const DWORD code = SplitKeyInfo(agreement.originator, originator)) return code;
  KeyAnswer answer(call.info);
  CMSG_KEY_AGREE_ENCRYPT_INFO result = out;
  result.KeyEncryptionAlgorithm = {const_cast<LPSTR>(plan.scheme), answer.bytes(plan.parameters)};
  result.UserKeyingMaterial = {};
  result.dwFlags |= CMSG_KEY_AGREE_ENCRYPT_FREE_PARA_FLAG;
  if (!plan.ukm.empty()) {
    result.UserKeyingMaterial = answer.bytes(plan.ukm);
    result.dwFlags |= CMSG_KEY_AGREE_ENCRYPT_FREE_MATERIAL_FLAG;
  }
  result.dwOriginatorChoice = CMSG_KEY_AGREE_ORIGINATOR_PUBLIC_KEY;
  const CRYPT_DATA_BLOB bits = answer.bytes(originator.bits);
  result.OriginatorPublicKeyInfo = {
      {answer.text(originator.oid), answer.bytes(originator.parameters)},
      { bits.cbData,                bits.pbData,                                   0}
  };
  result.dwFlags |= CMSG_KEY_AGREE_ENCRYPT_FREE_PUBKEY_ALG_FLAG | CMSG_KEY_AGREE_ENCRYPT_FREE_PUBKEY_PARA_FLAG
      | CMSG_KEY_AGREE_ENCRYPT_FREE_PUBKEY_BITS_FLAG;
  std::vector<CRYPT_DATA_BLOB> keys;
  for (const Bytes& key : agreement.encryptedKeys) keys.push_back(answer.bytes(key));
  for (size_t i = 0; i < keys.size(); ++i) out.rgpKeyAgreeKeyEncryptInfo[i]->EncryptedKey = keys[i];
  out = result;
  answer.keep();
  return ERROR_SUCCESS;
}

// --- import ---

// SubjectPublicKeyInfo of the originator. A key without an algorithm of its own is of the recipient's: so are the keys of
// certificates, which must be, and of those who leave the parameters out (RFC 5753, 3.1.1).
DWORD OriginatorKeyInfo(const ImportCall& call, const CMSG_CTRL_KEY_AGREE_DECRYPT_PARA& para,
                        Bytes& keyInfo) {
  const CMSG_KEY_AGREE_RECIPIENT_INFO& recipient = *para.pKeyAgree;
  const bool carried = recipient.dwOriginatorChoice == CMSG_KEY_AGREE_ORIGINATOR_PUBLIC_KEY;
  CRYPT_BIT_BLOB key = para.OriginatorPublicKey;
  if (carried && !key.cbData) key = recipient.OriginatorPublicKeyInfo.PublicKey;
  if (carried && HasParameters(recipient.OriginatorPublicKeyInfo.Algorithm))
    return WriteKeyInfo(recipient.OriginatorPublicKeyInfo.Algorithm, key, keyInfo);
  Bytes ownInfo;
  KeyInfoParts own;
  if (const DWORD code = KeyInfoOf(call.own.get(), ownInfo)) return code;
  if (const DWORD code = SplitKeyInfo(ownInfo, own)) return code;
  const CRYPT_ALGORITHM_IDENTIFIER algorithm = {
      own.oid.data(), {static_cast<DWORD>(own.parameters.size()), const_cast<BYTE*>(own.parameters.data())}
  };
  return WriteKeyInfo(algorithm, key, keyInfo);
}

DWORD Import(const CRYPT_ALGORITHM_IDENTIFIER* content, const CMSG_CTRL_KEY_AGREE_DECRYPT_PARA& para,
             HCRYPTKEY* key, AgreementReader read) {
  const CMSG_KEY_AGREE_RECIPIENT_INFO& recipient = *para.pKeyAgree;
  const DWORD index = para.dwRecipientEncryptedKeyIndex;
  if (index >= recipient.cRecipientEncryptedKeys) return CRYPT_E_INVALID_INDEX;
  if (!recipient.rgpRecipientEncryptedKeys || !recipient.rgpRecipientEncryptedKeys[index])
    return ERROR_INVALID_PARAMETER;
  const CRYPT_DATA_BLOB& encryptedKey = recipient.rgpRecipientEncryptedKeys[index]->EncryptedKey;
  if (!recipient.KeyEncryptionAlgorithm.pszObjId || !IsReadable(recipient.KeyEncryptionAlgorithm.Parameters)
      || !IsReadable(recipient.UserKeyingMaterial) || !IsReadable(encryptedKey))
    return ERROR_INVALID_PARAMETER;
  AgreementPlan plan;
  Bytes wrapped;
  Bytes originator;
  ImportCall call;
  if (const DWORD code = read({recipient, BytesOf(encryptedKey)}, plan, wrapped)) return code;
  if (const DWORD code = call.begin(content, para.hCryptProv, para.dwKeySpec)) return code;
  if (const DWORD code = OriginatorKeyInfo(call, para, originator)) return code;
  return call.unwrap(originator, plan.settings(), wrapped, key);
}

}  // namespace

BOOL ExportAgreement(CMSG_CONTENT_ENCRYPT_INFO* content, CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO* recipient,
                     CMSG_KEY_AGREE_ENCRYPT_INFO* out, DWORD flags, const void* reserved,
                     AgreementPlanner planner) {
  return ExchangeCall(flags, reserved, [&]() -> DWORD {
    if (!IsWhole(content) || !IsContentInfoUsable(*content) || !IsWhole(recipient) || !IsWhole(out)
        || !AreRecipientsUsable(*recipient, *out))
      return ERROR_INVALID_PARAMETER;
    if (recipient->dwKeyChoice == CMSG_KEY_AGREE_STATIC_KEY_CHOICE) return ERROR_NOT_SUPPORTED;
    ExportCall call{*content};
    AgreementPlan plan;
    Agreement agreement;
    if (const DWORD code = call.begin(recipient->hCryptProv)) return code;
    if (const DWORD code = planner(call, *recipient, plan)) return code;
    for (const auto* one :
         Recipients(recipient->rgpRecipientEncryptedKeys, recipient->cRecipientEncryptedKeys)) {
      Bytes keyInfo;
      const CRYPT_ALGORITHM_IDENTIFIER& algorithm = RecipientAlgorithm(*recipient);
      if (const DWORD code = WriteKeyInfo(algorithm, one->RecipientPublicKey, keyInfo)) return code;
      if (const DWORD code = agreement.addRecipient(call, plan, keyInfo)) return code;
    }
    return Give(call, plan, agreement, *out);
  });
}

BOOL ImportAgreement(const CRYPT_ALGORITHM_IDENTIFIER* content, const CMSG_CTRL_KEY_AGREE_DECRYPT_PARA* para,
                     DWORD flags, const void* reserved, HCRYPTKEY* key, AgreementReader read) {
  return ExchangeCall(flags, reserved, [&]() -> DWORD {
    if (!IsWhole(para) || !para->pKeyAgree || !key) return ERROR_INVALID_PARAMETER;
    return Import(content, *para, key, read);
  });
}

}  // namespace extkern
