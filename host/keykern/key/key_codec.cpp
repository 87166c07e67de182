#include "keykern/key/key_codec.h"

#include "common/der.h"
#include "keykern/key/libcrypto_key.h"

#include <new>
#include <string_view>

namespace keykern {
namespace {

namespace der = certkern::der;

struct AlgorithmRow {
  std::string_view oid;
  PublicKeyParser publicKey;
  PrivateKeyParser privateKey;  // null: verifies only
};
constexpr AlgorithmRow kAlgorithms[] = {
    {"1.2.643.7.1.1.1.1",     &ParseGostPublicKey,  &ParseGostPrivateKey },
    {"1.2.643.7.1.1.1.2",     &ParseGostPublicKey,  &ParseGostPrivateKey },
    {"1.2.643.2.2.19",        &ParseGostPublicKey,  &ParseGostPrivateKey },
    {"1.2.840.113549.1.1.1",  &ParseRsaPublicKey,   &ParseRsaPrivateKey  },
    {"1.2.840.113549.1.1.10", &ParseRsaPublicKey,   &ParseRsaPrivateKey  },
    {"1.2.840.10045.2.1",     &ParseEcPublicKey,    &ParseEcPrivateKey   },
    {"1.3.101.112",           &ParseEdDsaPublicKey, &ParseEdDsaPrivateKey},
    {"1.3.101.113",           &ParseEdDsaPublicKey, &ParseEdDsaPrivateKey},
    {"1.2.840.10040.4.1",     &ParseDsaPublicKey,   nullptr              },
};

const AlgorithmRow* FindAlgorithm(const std::string& oid) {
  for (const AlgorithmRow& row : kAlgorithms) {
    if (row.oid == oid) return &row;
  }
  return nullptr;
}

// SubjectPublicKeyInfo ::= SEQUENCE { algorithm AlgorithmIdentifier, subjectPublicKey BIT STRING }
bool TakePublicKeyInfo(std::span<const BYTE> encoded, der::Algorithm& algorithm,
                       std::span<const BYTE>& bits) {
  der::Reader in(encoded), body;
  return in.take(der::kSequence, body) && in.empty() && der::TakeAlgorithm(body, algorithm)
      && body.takeBits(bits) && body.empty();
}

// OneAsymmetricKey ::= SEQUENCE { version, privateKeyAlgorithm, privateKey OCTET STRING,
//   attributes [0] OPTIONAL, publicKey [1] OPTIONAL }
// What follows the key is skipped: the public key is computed, and nothing asks for attributes.
bool TakePrivateKeyInfo(std::span<const BYTE> encoded, der::Algorithm& algorithm,
                        std::span<const BYTE>& octets) {
  der::Reader in(encoded), body, skipped;
  std::span<const BYTE> bits;
  uint32_t version;
  if (!in.take(der::kSequence, body) || !in.empty() || !body.takeSmall(version) || version > 1
      || !der::TakeAlgorithm(body, algorithm) || !body.take(der::kOctetString, octets)) {
    return false;
  }
  const bool hasAttributes = body.take(der::ContextConstructed(0), skipped);
  const bool hasPublicKey = version == 1 && body.take(der::Context(1), bits);
  static_cast<void>(hasAttributes), static_cast<void>(hasPublicKey);
  return body.empty();
}

}  // namespace

DWORD ParsePublicKeyInfo(std::span<const BYTE> encoded, PublicKeyPtr& key) {
  der::Algorithm algorithm;
  std::span<const BYTE> bits;
  if (!TakePublicKeyInfo(encoded, algorithm, bits)) return NTE_BAD_DATA;
  const AlgorithmRow* row = FindAlgorithm(algorithm.oid);
  return row ? row->publicKey(algorithm.oid, algorithm.parameters, bits, key) : NTE_BAD_ALGID;
}

DWORD ParsePrivateKeyInfo(std::span<const BYTE> encoded, PrivateKeyPtr& key) {
  der::Algorithm algorithm;
  std::span<const BYTE> octets;
  if (!TakePrivateKeyInfo(encoded, algorithm, octets)) return NTE_BAD_DATA;
  const AlgorithmRow* row = FindAlgorithm(algorithm.oid);
  if (!row || !row->privateKey) return NTE_BAD_ALGID;
  return row->privateKey(algorithm.oid, algorithm.parameters, octets, key);
}

DWORD GenerateKey(Family family, DWORD bits, const std::string& parameterSet, PrivateKeyPtr& key) {
  switch (family) {
    case Family::Gost2012_256:
    case Family::Gost2012_512:
    case Family::Gost2001:
      return GenerateGostKey(family, parameterSet, key);
    case Family::Rsa:
      return GenerateRsaKey(bits, key);
    case Family::Ec:
      return GenerateEcKey(parameterSet, key);
    case Family::EdDsa:
      return GenerateEdDsaKey(parameterSet, key);
    case Family::Dsa:
      break;
  }
  return NTE_BAD_ALGID;
}

SecretBytes Fingerprint(const PublicKey& key) {
  const SecretBytes info = key.publicKeyInfo();
  der::Algorithm algorithm;
  std::span<const BYTE> bits;
  if (!TakePublicKeyInfo(info, algorithm, bits)) return {};
  const std::string set = key.parameterSet();
  const std::span<const BYTE> setBytes(reinterpret_cast<const BYTE*>(set.data()), set.size());
  const SecretBytes hashed = der::Sequence(
      {der::Small(RowOf(key.family()).signature), der::OctetString(setBytes), der::OctetString(bits)});
  const ErrorMark mark;
  SecretBytes fingerprint(32);
  const EVP_MD* sha256 = FindDigest(CALG_SHA_256);
  if (!sha256) return {};
  if (EVP_Digest(hashed.data(), hashed.size(), fingerprint.data(), nullptr, sha256, nullptr) != 1)
    throw std::bad_alloc();
  return fingerprint;
}

}  // namespace keykern
