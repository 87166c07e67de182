// What the ways of key exchange share: public keys on their way between records and the key level, agreed keys, and content
// keys under them.
#ifndef CERTKERN_EXTKERN_KEY_EXCHANGE_H
#define CERTKERN_EXTKERN_KEY_EXCHANGE_H

#include <certkern/msg_envelope.h>

#include <span>
#include <string>

#include "extkern/content_algorithm.h"
#include "extkern/key_calls.h"
#include "keykern/call.h"

namespace extkern {

inline constexpr char kOidGost2001[] = "1.2.643.2.2.19";
inline constexpr char kOidGost2012Short[] = "1.2.643.7.1.1.1.1";  // 256 bits
inline constexpr char kOidGost2012Long[] = "1.2.643.7.1.1.1.2";   // 512 bits

// --- the border ---

// As keykern::Call, with the arguments that every function has.
template <class Body>
BOOL ExchangeCall(DWORD flags, const void* reserved, Body&& body) {
  return keykern::Call([&]() -> DWORD {
    if (reserved) return ERROR_INVALID_PARAMETER;
    if (flags) return NTE_BAD_FLAGS;
    return body();
  });
}

// Is the record there, and does its cbSize cover it?
template <class Record>
bool IsWhole(const Record* record) {
  return record && record->cbSize >= sizeof(Record);
}
template <class Blob>
bool IsReadable(const Blob& blob) {
  return blob.pbData || !blob.cbData;
}
template <class Blob>
std::span<const BYTE> BytesOf(const Blob& blob) {
  return {blob.pbData, blob.cbData};
}
// Is the recipient's part of a transport there?
bool IsTransportUsable(const CMSG_CTRL_KEY_TRANS_DECRYPT_PARA* para);
// An algorithm and both functions for memory.
bool IsContentInfoUsable(const CMSG_CONTENT_ENCRYPT_INFO& info);

// --- public keys ---

// The public key algorithm of the recipients by key agreement.
const CRYPT_ALGORITHM_IDENTIFIER& RecipientAlgorithm(const CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO& info);
// SubjectPublicKeyInfo. ERROR_INVALID_PARAMETER; NTE_BAD_DATA: no key, or parts of it malformed.
DWORD WriteKeyInfo(const CRYPT_ALGORITHM_IDENTIFIER& algorithm, const CRYPT_BIT_BLOB& key, Bytes& keyInfo);
// The pieces of a SubjectPublicKeyInfo; borrowed.
struct KeyInfoParts {
  std::string oid;
  std::span<const BYTE> parameters;  // one whole element, or nothing
  std::span<const BYTE> bits;
};
DWORD SplitKeyInfo(std::span<const BYTE> keyInfo, KeyInfoParts& parts);
DWORD KeyInfoOf(HCRYPTKEY key, Bytes& keyInfo);
DWORD ImportKeyInfo(HCRYPTPROV provider, std::span<const BYTE> keyInfo, KeyHandle& key);
// A key of the same family and parameter set as a recipient's. NTE_BAD_ALGID: not a family that agrees.
DWORD MakeEphemeral(HCRYPTPROV provider, std::span<const BYTE> recipient, KeyHandle& ephemeral);

// --- agreed keys, and content keys under them ---

// How an agreed key wraps.
struct WrapSettings {
  ALG_ID method = 0;               // KP_ALGID
  std::span<const BYTE> ukm = {};  // as long as the method takes; empty: it stands with the wrapped key
  std::string box = {};            // GOST 28147-89
  ALG_ID kdfHash = 0;              // ECDH, with the next
  Bytes kdfInfo = {};
};
DWORD Agree(HCRYPTPROV provider, HCRYPTKEY own, std::span<const BYTE> peer, const WrapSettings& settings,
            KeyHandle& agreed);
DWORD WrapContentKey(HCRYPTKEY content, HCRYPTKEY agreed, Bytes& wrapped);
// method: as WRAPPED_KEY_INFO has it. The key comes out prepared.
DWORD UnwrapContentKey(HCRYPTPROV provider, HCRYPTKEY agreed, ALG_ID method, std::span<const BYTE> wrapped,
                       const ContentAlgorithm& content, KeyHandle& key);

// --- one call ---

// An export: the key that goes, and the provider that works.
struct ExportCall {
  const CMSG_CONTENT_ENCRYPT_INFO& info;
  HCRYPTPROV provider = 0;
  ALG_ID algorithm = 0;  // of the content key
  ProviderHandle counted = {};

  HCRYPTKEY key() const { return info.hContentEncryptKey; }
  // recipientProvider: the recipient's wish, which goes before the message's.
  DWORD begin(HCRYPTPROV recipientProvider);
};

// An import by agreement, or by a transport that has one inside.
struct ImportCall {
  HCRYPTPROV provider = 0;
  ContentAlgorithm content = {};
  KeyHandle own = {};

  DWORD begin(const CRYPT_ALGORITHM_IDENTIFIER* contentAlgorithm, HCRYPTPROV keyProvider, DWORD keySpec);
  // The whole way from the originator's key to the content key.
  DWORD unwrap(std::span<const BYTE> originator, const WrapSettings& settings, std::span<const BYTE> wrapped,
               HCRYPTKEY* key) const;
};

}  // namespace extkern

#endif
