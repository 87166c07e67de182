// Private keys under a password.
#include "algorithm_identifier.h"
#include "decoded.h"
#include "failure.h"
#include "grammar.h"
#include "handles.h"
#include "key_blob.h"
#include "private_key_file.h"

#include <certkern/errors.h>
#include <certkern/oids.h>

#include <algorithm>
#include <iterator>
#include <string_view>

namespace certkern::cli {
namespace {

// The library has the same bound.
constexpr int kMostIterations = 5'000'000;

struct PrfRow {
  std::string_view oid;
  ALG_ID derivation;
  ALG_ID base;  // of CALG_PBKDF2; 0 where the derivation says it
};
constexpr PrfRow kPrfs[] = {
    {szOID_HMAC_SHA1,                CALG_PBKDF2,                 CALG_SHA1   },
    {szOID_HMAC_SHA256,              CALG_PBKDF2,                 CALG_SHA_256},
    {"1.2.840.113549.2.10",          CALG_PBKDF2,                 CALG_SHA_384},
    {"1.2.840.113549.2.11",          CALG_PBKDF2,                 CALG_SHA_512},
    {szOID_HMAC_GOST_R3411_2012_256, CALG_GR3411_2012_256_PBKDF2, 0           },
    {szOID_HMAC_GOST_R3411_2012_512, CALG_GR3411_2012_512_PBKDF2, 0           },
};

struct CipherRow {
  std::string_view oid;
  ALG_ID algorithm;
  size_t keySize;  // bytes
};
constexpr CipherRow kCiphers[] = {
    {szOID_NIST_AES128_CBC, CALG_AES_128, 16},
    {szOID_NIST_AES192_CBC, CALG_AES_192, 24},
    {szOID_NIST_AES256_CBC, CALG_AES_256, 32},
};
constexpr size_t kBlockSize = 16;

template <typename Row, size_t kRows>
const Row* Find(const Row (&rows)[kRows], std::string_view oid) {
  const auto* row = std::find_if(std::begin(rows), std::end(rows),
                                 [oid](const Row& candidate) { return candidate.oid == oid; });
  return row == std::end(rows) ? nullptr : row;
}

struct Pbes2 {
  const PrfRow* prf = nullptr;
  const CipherRow* cipher = nullptr;
  Bytes salt;
  DWORD iterations = 0;
  Bytes iv;
};

using Sequence = Decoded<CRYPT_SEQUENCE_OF_ANY>;

Sequence Elements(std::span<const BYTE> encoded, DWORD atLeast) {
  Sequence sequence;
  if (!encoded.empty()) sequence = Decode<CRYPT_SEQUENCE_OF_ANY>(X509_SEQUENCE_OF_ANY, encoded);
  return sequence && sequence->cValue >= atLeast ? std::move(sequence) : nullptr;
}

bool TakeOctets(std::span<const BYTE> encoded, Bytes& octets) {
  if (encoded.empty()) return false;
  const auto blob = Decode<CRYPT_DATA_BLOB>(X509_OCTET_STRING, encoded);
  if (blob) octets.assign(blob->pbData, blob->pbData + blob->cbData);
  return blob != nullptr;
}

// PBKDF2-params ::= SEQUENCE { salt OCTET STRING, iterationCount INTEGER, keyLength INTEGER OPTIONAL,
//                              prf AlgorithmIdentifier DEFAULT hmacWithSHA1 }
bool ReadDerivation(const AlgorithmIdentifier& algorithm, Pbes2& scheme) {
  if (algorithm.oid != szOID_PKCS_5_PBKDF2) return false;
  const Sequence fields = Elements(algorithm.parameters, 2);
  if (!fields || !TakeOctets(BytesOf(fields->rgValue[0]), scheme.salt)) return false;
  const auto iterations = Decode<int>(X509_INTEGER, BytesOf(fields->rgValue[1]));
  if (!iterations || *iterations < 1 || *iterations > kMostIterations) return false;
  scheme.iterations = static_cast<DWORD>(*iterations);
  scheme.prf = &kPrfs[0];
  const CRYPT_DER_BLOB& last = fields->rgValue[fields->cValue - 1];
  if (last.cbData && last.pbData[0] == kSequenceTag) {
    const auto prf = DecodeAlgorithm(BytesOf(last));
    scheme.prf = prf ? Find(kPrfs, prf->oid) : nullptr;
  }
  return scheme.prf != nullptr;
}

// PBES2-params ::= SEQUENCE { keyDerivationFunc AlgorithmIdentifier, encryptionScheme AlgorithmIdentifier }
bool ReadScheme(const AlgorithmIdentifier& algorithm, Pbes2& scheme) {
  if (algorithm.oid != szOID_PKCS_5_PBES2) return false;
  const Sequence parts = Elements(algorithm.parameters, 2);
  if (!parts) return false;
  const auto derivation = DecodeAlgorithm(BytesOf(parts->rgValue[0]));
  const auto cipher = DecodeAlgorithm(BytesOf(parts->rgValue[1]));
  if (!derivation || !cipher || !ReadDerivation(*derivation, scheme)) return false;
  scheme.cipher = Find(kCiphers, cipher->oid);
  return scheme.cipher && TakeOctets(cipher->parameters, scheme.iv) && scheme.iv.size() == kBlockSize;
}

template <typename Record>
void SetHash(HCRYPTHASH hash, DWORD param, const Record& record) {
  if (!CryptSetHashParam(hash, param, reinterpret_cast<const BYTE*>(&record), 0)) ThrowLastError("PBKDF2");
}

SecretBytes DeriveKey(HCRYPTPROV provider, const Pbes2& scheme, std::span<const BYTE> password) {
  HashHandle hash;
  if (!CryptCreateHash(provider, scheme.prf->derivation, 0, 0, hash.out())) ThrowLastError("PBKDF2");
  if (scheme.prf->base) SetHash(hash.get(), HP_BASE_HASH, scheme.prf->base);
  SetHash(hash.get(), HP_PBKDF2_SALT, BlobOf(scheme.salt));
  SetHash(hash.get(), HP_PBKDF2_PASSWORD, BlobOf(password));
  SetHash(hash.get(), HP_PBKDF2_COUNT, scheme.iterations);
  SecretBytes key(scheme.cipher->keySize);
  DWORD size = CheckedSize(key.size());
  if (!CryptGetHashParam(hash.get(), HP_HASHVAL, key.data(), &size, 0)) ThrowLastError("PBKDF2");
  return key;
}

}  // namespace

SecretBytes DecryptPrivateKey(std::span<const BYTE> encrypted, const PinOptions& password,
                              const std::string& name) {
  const auto parts = Decode<CRYPT_SEQUENCE_OF_ANY>(X509_SEQUENCE_OF_ANY, encrypted);
  Pbes2 scheme;
  Bytes content;
  std::optional<AlgorithmIdentifier> algorithm;
  if (parts && parts->cValue == 2) algorithm = DecodeAlgorithm(BytesOf(parts->rgValue[0]));
  if (!algorithm || !TakeOctets(BytesOf(parts->rgValue[1]), content) || !ReadScheme(*algorithm, scheme))
    throw Failure(name + ": encrypted in a way that this tool does not know; \"openssl pkcs8\" decrypts it, or "
                         "\"openssl pkcs8 -topk8 -v2 aes-256-cbc\" makes one that it knows");
  SecretBytes secret = AskPin(password, "Password of " + name);
  secret.pop_back();
  const ProviderHandle provider = OpenProvider();
  const KeyHandle key =
      ImportCipherKey(provider.get(), scheme.cipher->algorithm, DeriveKey(provider.get(), scheme, secret));
  SecretBytes info = ToSecret(content);
  if (!DecryptCbc(key.get(), scheme.iv, info) || AlgorithmOfPrivateKey(info).empty())
    throw Failure(name + ": the password is wrong, or the file is damaged");
  return info;
}

}  // namespace certkern::cli
