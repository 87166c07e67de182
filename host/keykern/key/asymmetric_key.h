// Public and private keys of every family behind one interface, so that the calls above know no family by name.
//
// Keys are immutable once made, and shared: any number of threads may use one. Operations answer a code, 0 for success.
// Signatures are in the order of the key level: what the standard writes, reversed as a string of bytes.
#ifndef CERTKERN_KEYKERN_KEY_ASYMMETRIC_KEY_H
#define CERTKERN_KEYKERN_KEY_ASYMMETRIC_KEY_H

#include "common/secret_bytes.h"
#include "keykern/key/families.h"

#include <certkern/errors.h>

#include <memory>
#include <span>
#include <string>

namespace keykern {

using certkern::SecretBytes;

// What is signed, and how.
struct SignatureInput {
  ALG_ID hash;                  // CALG_MESSAGE_ITSELF where value is the message
  std::span<const BYTE> value;  // of the hash, as the hash function gives it
  bool pss = false;             // RSA: RSASSA-PSS with MGF1 of the same hash. RFC 8017, 8.1
  DWORD saltLength = 0;         // bytes, with pss
};

// RSAES-PKCS1-v1_5, or RSAES-OAEP with MGF1 of the same hash. RFC 8017, 7
struct RsaPadding {
  bool oaep = false;
  ALG_ID oaepHash = CALG_SHA1;
  std::span<const BYTE> label = {};
};

class PublicKey {
 public:
  PublicKey() = default;
  PublicKey(const PublicKey&) = delete;
  PublicKey& operator=(const PublicKey&) = delete;
  virtual ~PublicKey() = default;

  virtual Family family() const = 0;
  virtual DWORD bits() const = 0;
  // SubjectPublicKeyInfo. RFC 5280, 4.1
  virtual SecretBytes publicKeyInfo() const = 0;
  // Dotted; empty where the family has no named parameters.
  virtual std::string parameterSet() const { return {}; }

  // Every mismatch, a wrong length too, is NTE_BAD_SIGNATURE. NTE_BAD_HASH: the hash does not fit the key;
  // NTE_BAD_ALGID, NTE_BAD_FLAGS (pss): the family does not sign that way.
  virtual DWORD verify(const SignatureInput& input, std::span<const BYTE> signature) const = 0;
  // RSA alone; the result in standard (big-endian) order.
  virtual DWORD encrypt(const RsaPadding&, std::span<const BYTE>, SecretBytes&) const { return NTE_BAD_KEY; }
};

class PrivateKey {
 public:
  PrivateKey() = default;
  PrivateKey(const PrivateKey&) = delete;
  PrivateKey& operator=(const PrivateKey&) = delete;
  virtual ~PrivateKey() = default;

  virtual std::shared_ptr<const PublicKey> publicKey() const = 0;
  Family family() const { return publicKey()->family(); }
  // PrivateKeyInfo, unencrypted. RFC 5958; GOST as design and RFC 9548 say: the number little-endian
  virtual SecretBytes privateKeyInfo() const = 0;

  // Bytes that a signature has at most.
  virtual DWORD signatureSize() const = 0;
  // Codes as PublicKey::verify; NTE_FAIL when the library below fails.
  virtual DWORD sign(const SignatureInput& input, SecretBytes& signature) const = 0;
  // RSA alone; in standard order. With PKCS1-v1_5 a wrong padding is NTE_BAD_DATA, in constant time.
  virtual DWORD decrypt(const RsaPadding&, std::span<const BYTE>, SecretBytes&) const { return NTE_BAD_KEY; }

  // The number, little-endian, 32 or 64 bytes: GOST alone, for the key wraps. Empty for others.
  virtual SecretBytes number() const { return {}; }
  // GOST: VKO (RFC 7836, 4.3), as many bytes as asked: 32 or 64. ukm: octets, little-endian number, not 0.
  virtual DWORD vko(const PublicKey&, std::span<const BYTE> ukm, size_t size, SecretBytes&) const {
    static_cast<void>(ukm), static_cast<void>(size);
    return NTE_BAD_KEY;
  }
  // GOST: KEG (RFC 9189, 8.3.1) of a UKM of 32 octets: 64 bytes, the MAC key and the cipher key.
  virtual DWORD keg(const PublicKey&, std::span<const BYTE> ukm, SecretBytes&) const {
    static_cast<void>(ukm);
    return NTE_BAD_KEY;
  }
  // EC: the x coordinate of the shared point, as long as the field. SEC 1, 3.3.1
  virtual DWORD ecdh(const PublicKey&, SecretBytes&) const { return NTE_BAD_KEY; }
};

using PublicKeyPtr = std::shared_ptr<const PublicKey>;
using PrivateKeyPtr = std::shared_ptr<const PrivateKey>;

// --- the makers, one set a family; key_codec.h chooses among them ---

// From the pieces of a SubjectPublicKeyInfo: algorithm OID, its parameters (one whole element or nothing), the key bits.
// NTE_BAD_PUBLIC_KEY: not a key, not on the curve; NTE_BAD_ALGID: a parameter set that this host or library lacks.
using PublicKeyParser = DWORD (*)(const std::string& oid, std::span<const BYTE> parameters,
                                  std::span<const BYTE> bits, PublicKeyPtr& key);
// From the pieces of a PrivateKeyInfo: the same, and the content of its OCTET STRING. NTE_BAD_KEY: not a key.
using PrivateKeyParser = DWORD (*)(const std::string& oid, std::span<const BYTE> parameters,
                                   std::span<const BYTE> octets, PrivateKeyPtr& key);

DWORD ParseGostPublicKey(const std::string& oid, std::span<const BYTE> parameters, std::span<const BYTE> bits,
                         PublicKeyPtr& key);
DWORD ParseGostPrivateKey(const std::string& oid, std::span<const BYTE> parameters,
                          std::span<const BYTE> octets, PrivateKeyPtr& key);
// parameterSet: dotted; empty: the family's usual (35.1, 7.1.2.1.1.1, 7.1.2.1.2.1). NTE_BAD_ALGID: no such set.
DWORD GenerateGostKey(Family family, const std::string& parameterSet, PrivateKeyPtr& key);

DWORD ParseRsaPublicKey(const std::string& oid, std::span<const BYTE> parameters, std::span<const BYTE> bits,
                        PublicKeyPtr& key);
DWORD ParseRsaPrivateKey(const std::string& oid, std::span<const BYTE> parameters,
                         std::span<const BYTE> octets, PrivateKeyPtr& key);
// bits: 1024 to 8192 in steps of 8, or to the configured bound; 0: 2048. NTE_BAD_LEN
DWORD GenerateRsaKey(DWORD bits, PrivateKeyPtr& key);

DWORD ParseEcPublicKey(const std::string& oid, std::span<const BYTE> parameters, std::span<const BYTE> bits,
                       PublicKeyPtr& key);
DWORD ParseEcPrivateKey(const std::string& oid, std::span<const BYTE> parameters,
                        std::span<const BYTE> octets, PrivateKeyPtr& key);
// parameterSet: dotted OID of a named curve (P-224 to P-521, secp256k1, brainpool); empty: P-256. NTE_BAD_ALGID
DWORD GenerateEcKey(const std::string& parameterSet, PrivateKeyPtr& key);

DWORD ParseEdDsaPublicKey(const std::string& oid, std::span<const BYTE> parameters,
                          std::span<const BYTE> bits, PublicKeyPtr& key);
DWORD ParseEdDsaPrivateKey(const std::string& oid, std::span<const BYTE> parameters,
                           std::span<const BYTE> octets, PrivateKeyPtr& key);
// parameterSet: "1.3.101.112" (the default) or "1.3.101.113". NTE_BAD_ALGID
DWORD GenerateEdDsaKey(const std::string& parameterSet, PrivateKeyPtr& key);

// Verifies only.
DWORD ParseDsaPublicKey(const std::string& oid, std::span<const BYTE> parameters, std::span<const BYTE> bits,
                        PublicKeyPtr& key);

}  // namespace keykern

#endif
