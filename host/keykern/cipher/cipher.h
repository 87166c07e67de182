// Symmetric ciphers with their modes, as streams of bytes.
//
// A stream works in place, in one direction, on one message, and belongs to one thread at a time. Padding is the
// business of the caller: block modes take whole blocks, the others any number of bytes.
#ifndef CERTKERN_KEYKERN_CIPHER_CIPHER_H
#define CERTKERN_KEYKERN_CIPHER_CIPHER_H

#include "common/secret_bytes.h"

#include <certkern/keykern.h>

#include <memory>
#include <span>
#include <string>

namespace keykern {

using certkern::SecretBytes;

enum class Direction : BYTE { Encrypt, Decrypt };

struct CipherSettings {
  ALG_ID algorithm = 0;
  DWORD mode = 0;  // CRYPT_MODE_...
  SecretBytes key;
  SecretBytes iv;          // ivSize() bytes; empty stands for zeros
  std::string parameters;  // GOST 28147-89: the substitution box, dotted
};

class CipherStream {
 public:
  CipherStream() = default;
  CipherStream(const CipherStream&) = delete;
  CipherStream& operator=(const CipherStream&) = delete;
  virtual ~CipherStream() = default;

  // In place. False when a block mode gets a part of a block, or the library below fails.
  [[nodiscard]] virtual bool process(std::span<BYTE> data) = 0;
  // The tag over all that was processed, for modes that have one; nothing may be processed after it. Decrypting, it is
  // what the sender's tag must be equal to: compare in constant time.
  virtual SecretBytes tag() { return {}; }
};

struct CipherRow {
  ALG_ID algorithm;
  DWORD blockSize;  // bytes; 1 for a stream cipher
  DWORD keyBits;    // the usual; RC2 and RC4 take others, from minimumBits to maximumBits in steps of 8
  DWORD minimumBits;
  DWORD maximumBits;
  DWORD defaultMode;  // 0 for a stream cipher
};
// Null for what is no cipher.
const CipherRow* FindCipher(ALG_ID algorithm);
// False for a mode that the cipher does not have. CBC, ECB, CFB; GOST 28147-89 also CNT (RFC 5830, 6; CRYPT_MODE_CNT);
// Magma and Kuznyechik also CTR (CRYPT_MODE_CTR), CTR-ACPKM and CTR-ACPKM-OMAC. CFB feeds back whole blocks. The key of
// GOST 28147-89 changes each 1024 bytes in CFB and CNT, but under the test box; never in CBC and ECB.
bool HasMode(const CipherRow& cipher, DWORD mode);
// Block modes need whole blocks, and so padding.
bool IsBlockMode(const CipherRow& cipher, DWORD mode);
// Bytes of the initial value: a block as a rule, half of one for CTR; 12 or 16 (the UKM) for the two ACPKM modes; 0 for
// ECB and RC4.
DWORD IvSize(const CipherRow& cipher, DWORD mode);
// Bytes of the tag; 0 for most.
DWORD TagSize(const CipherRow& cipher, DWORD mode);
// "1.2.643.2.2.31.0" to ".4" and "1.2.643.7.1.2.5.1.1".
bool IsSubstitutionBox(const std::string& oid);

// Null when a setting does not fit, the host refuses the algorithm, or the library below fails.
std::unique_ptr<CipherStream> NewCipherStream(const CipherSettings& settings, Direction direction);
// False where the library below refuses it on this host.
bool IsCipherAvailable(ALG_ID algorithm);

}  // namespace keykern

#endif
