// The encrypted keys of GOST key exchange, read and written. What is read is borrowed.
#ifndef CERTKERN_EXTKERN_KEY_GOST_FORMS_H
#define CERTKERN_EXTKERN_KEY_GOST_FORMS_H

#include <certkern/keykern.h>

#include <span>
#include <string>

#include "common/secret_bytes.h"

namespace extkern {

using Bytes = certkern::SecretBytes;

inline constexpr size_t kGostUkm = 8;  // RFC 4357, 5
inline constexpr size_t kKegUkm = 32;  // RFC 9189, 8.3.1

// The ways in which an agreed key of GOST R 34.10 carries another.
struct GostWrapRow {
  const char* oid;
  ALG_ID method;  // KP_ALGID of the agreed key
  size_t ukmSize;
};
// Null when there is no such wrap.
const GostWrapRow* FindGostWrap(const char* oid);
const GostWrapRow* FindGostWrap(ALG_ID method);
inline bool IsKexp(ALG_ID method) { return method == CALG_EXPORT_KEXP15_M || method == CALG_EXPORT_KEXP15_K; }

// A key as the key level wraps it under GOST 28147-89: the UKM, the encrypted key, the MAC.
struct Wrapped28147 {
  std::span<const BYTE> ukm;
  std::span<const BYTE> key;
  std::span<const BYTE> mac;

  [[nodiscard]] bool split(std::span<const BYTE> wrapped);
  Bytes join() const;
};

// GostR3410-KeyTransport ::= SEQUENCE {
//   sessionEncryptedKey Gost28147-89-EncryptedKey, transportParameters [0] IMPLICIT GostR3410-TransportParameters }
// GostR3410-TransportParameters ::= SEQUENCE {
//   encryptionParamSet OBJECT IDENTIFIER, ephemeralPublicKey [0] IMPLICIT SubjectPublicKeyInfo, ukm OCTET STRING }
struct Transport28147 {
  Wrapped28147 wrapped;
  std::string box;
  Bytes ephemeral;  // SubjectPublicKeyInfo

  [[nodiscard]] bool read(std::span<const BYTE> encoded);
  Bytes write() const;
};

// Gost28147-89-EncryptedKey ::= SEQUENCE { encryptedKey OCTET STRING, maskKey [0] OPTIONAL, macKey OCTET STRING (4) }
// A mask is refused: in messages there is none.
[[nodiscard]] bool ReadEncrypted28147(std::span<const BYTE> encoded, Wrapped28147& wrapped);
Bytes WriteEncrypted28147(const Wrapped28147& wrapped);

// SEQUENCE { OCTET STRING encryptedKey, SubjectPublicKeyInfo ephemeralPublicKey, OCTET STRING ukm }. R 1323565.1.025
struct TransportKexp {
  std::span<const BYTE> key;
  std::span<const BYTE> ephemeral;
  std::span<const BYTE> ukm;

  [[nodiscard]] bool read(std::span<const BYTE> encoded);
  Bytes write() const;
};

// Parameters of key agreement under GOST 28147-89: SEQUENCE { wrap OBJECT IDENTIFIER, SEQUENCE { box OBJECT IDENTIFIER } }.
struct Agreement28147 {
  std::string wrap;
  std::string box;

  [[nodiscard]] bool read(std::span<const BYTE> parameters);
  Bytes write() const;
};

}  // namespace extkern

#endif
