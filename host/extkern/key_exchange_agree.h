// Key agreement, as GOST and ECDH share it: how a message is put together and taken apart; what differs is a plan.
#ifndef CERTKERN_EXTKERN_KEY_EXCHANGE_AGREE_H
#define CERTKERN_EXTKERN_KEY_EXCHANGE_AGREE_H

#include "extkern/key_exchange.h"

namespace extkern {

inline bool IsNamed(const CRYPT_ALGORITHM_IDENTIFIER& algorithm) {
  return algorithm.pszObjId && *algorithm.pszObjId;
}

// What is decided before any key is agreed.
struct AgreementPlan {
  LPCSTR scheme = nullptr;  // keyEncryptionAlgorithm: a constant, or borrowed from the caller
  Bytes parameters = {};
  Bytes ukm = {};  // empty: none
  ALG_ID method = 0;
  std::string box = {};
  ALG_ID kdfHash = 0;
  Bytes kdfInfo = {};
  // From the wrapped key to encryptedKey; empty when that fails.
  Bytes (*encode)(std::span<const BYTE> wrapped) = nullptr;

  WrapSettings settings() const { return {method, ukm, box, kdfHash, kdfInfo}; }
};
using AgreementPlanner = DWORD (*)(const ExportCall& call,
                                   const CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO& recipient,
                                   AgreementPlan& plan);
BOOL ExportAgreement(CMSG_CONTENT_ENCRYPT_INFO* content, CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO* recipient,
                     CMSG_KEY_AGREE_ENCRYPT_INFO* out, DWORD flags, const void* reserved,
                     AgreementPlanner plan);

// What a recipient was sent.
struct AgreementInput {
  const CMSG_KEY_AGREE_RECIPIENT_INFO& recipient;
  std::span<const BYTE> encryptedKey;
};
// Reads a plan off it, and the wrapped key as the key level wants it. plan.encode is not set.
using AgreementReader = DWORD (*)(const AgreementInput& input, AgreementPlan& plan, Bytes& wrapped);
BOOL ImportAgreement(const CRYPT_ALGORITHM_IDENTIFIER* content, const CMSG_CTRL_KEY_AGREE_DECRYPT_PARA* para,
                     DWORD flags, const void* reserved, HCRYPTKEY* key, AgreementReader read);

}  // namespace extkern

#endif
