// Private keys under a password: EncryptedPrivateKeyInfo by PBES2, as other programs read and write it. RFC 5958, 8018
#include "common/der.h"
#include "keykern/crypto_library.h"
#include "keykern/key/key_codec.h"
#include "keykern/key/libcrypto_key.h"
#include "platform/limits.h"

#include <openssl/core_names.h>
#include <openssl/kdf.h>

#include <array>
#include <string_view>

namespace keykern {
namespace {

namespace der = certkern::der;

constexpr std::string_view kPbes2 = "1.2.840.113549.1.5.13";
constexpr std::string_view kPbkdf2 = "1.2.840.113549.1.5.12";
constexpr size_t kSaltSize = 16;
constexpr size_t kBlock = 16;

struct Prf {
  std::string_view oid;
  ALG_ID hash;
};
constexpr Prf kPrfs[] = {
    {"1.2.840.113549.2.9",  CALG_SHA_256}, // what is written
    {"1.2.840.113549.2.7",  CALG_SHA1   }, // what an absent one stands for
    {"1.2.840.113549.2.11", CALG_SHA_512},
};
struct Cipher {
  std::string_view oid;
  const char* name;
  size_t keySize;
};
constexpr Cipher kCiphers[] = {
    {"2.16.840.1.101.3.4.1.42", "AES-256-CBC", 32}, // what is written
    {"2.16.840.1.101.3.4.1.2",  "AES-128-CBC", 16},
    {"2.16.840.1.101.3.4.1.22", "AES-192-CBC", 24},
};

template <class Row, size_t kCount>
const Row* FindRow(const Row (&rows)[kCount], std::string_view oid) {
  for (const Row& row : rows) {
    if (row.oid == oid) return &row;
  }
  return nullptr;
}

// All that a password needs to become a key and open something.
struct Scheme {
  const Prf* prf = &kPrfs[0];
  const Cipher* cipher = &kCiphers[0];
  std::span<const BYTE> salt;
  std::span<const BYTE> iv;
  uint32_t iterations = kPinIterations;
};

// --- libcrypto ---

using KdfContextPtr = std::unique_ptr<EVP_KDF_CTX, LibcryptoFree<EVP_KDF_CTX_free>>;
using CipherContextPtr = std::unique_ptr<EVP_CIPHER_CTX, LibcryptoFree<EVP_CIPHER_CTX_free>>;

bool DeriveKey(const Scheme& scheme, std::span<const BYTE> pin, SecretBytes& key) {
  static EVP_KDF* const algorithm = EVP_KDF_fetch(LibcryptoContext(), OSSL_KDF_NAME_PBKDF2, nullptr);
  const EVP_MD* digest = FindDigest(scheme.prf->hash);
  const KdfContextPtr context(algorithm ? EVP_KDF_CTX_new(algorithm) : nullptr);
  if (!digest || !context) return false;
  BYTE nothing = 0;  // libcrypto wants an address for an empty password, too
  BYTE* password = pin.empty() ? &nothing : const_cast<BYTE*>(pin.data());
  uint32_t iterations = scheme.iterations;
  int anySalt = 1;  // the other programs' salts of eight bytes as well
  const OSSL_PARAM parameters[] = {
      OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, const_cast<char*>(EVP_MD_get0_name(digest)), 0),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_PASSWORD, password, pin.size()),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, const_cast<BYTE*>(scheme.salt.data()),
                                        scheme.salt.size()),
      OSSL_PARAM_construct_uint32(OSSL_KDF_PARAM_ITER, &iterations),
      OSSL_PARAM_construct_int(OSSL_KDF_PARAM_PKCS5, &anySalt),
      OSSL_PARAM_construct_end(),
  };
  key.resize(scheme.cipher->keySize);
  return EVP_KDF_derive(context.get(), key.data(), key.size(), parameters) == 1;
}

const EVP_CIPHER* FetchCipher(const Cipher& cipher) {
  static const std::array<EVP_CIPHER*, std::size(kCiphers)> fetched = [] {
    std::array<EVP_CIPHER*, std::size(kCiphers)> all{};
    for (size_t i = 0; i < all.size(); ++i) {
      all[i] = EVP_CIPHER_fetch(LibcryptoContext(), kCiphers[i].name, nullptr);
    }
    return all;
  }();
  return fetched[static_cast<size_t>(&cipher - kCiphers)];
}

enum class Way : int { Open = 0, Seal = 1 };

// False when opening: not under this key.
bool RunCipher(Way way, const Scheme& scheme, const SecretBytes& key, std::span<const BYTE> in,
               SecretBytes& out) {
  const CipherContextPtr context(EVP_CIPHER_CTX_new());
  const EVP_CIPHER* cipher = FetchCipher(*scheme.cipher);
  SecretBytes made(in.size() + kBlock);
  int size = 0;
  int last = 0;
  if (!context || !cipher
      || EVP_CipherInit_ex2(context.get(), cipher, key.data(), scheme.iv.data(), static_cast<int>(way),
                            nullptr)
          != 1
      || EVP_CipherUpdate(context.get(), made.data(), &size, in.data(), static_cast<int>(in.size())) != 1
      || EVP_CipherFinal_ex(context.get(), made.data() + size, &last) != 1) {
    return false;
  }
  made.resize(static_cast<size_t>(size) + static_cast<size_t>(last));
  out = std::move(made);
  return true;
}

// --- the structure ---

// PBKDF2-params ::= SEQUENCE { salt OCTET STRING, iterationCount, keyLength OPTIONAL, prf DEFAULT hmacWithSHA1 }
DWORD TakePbkdf2(std::span<const BYTE> parameters, Scheme& scheme, uint32_t& keyLength) {
  der::Reader in(parameters), body;
  if (!in.take(der::kSequence, body) || !in.empty() || !body.take(der::kOctetString, scheme.salt)
      || !body.takeSmall(scheme.iterations)) {
    return NTE_BAD_DATA;
  }
  if (body.nextTag() == der::kInteger && !body.takeSmall(keyLength)) return NTE_BAD_DATA;
  scheme.prf = &kPrfs[1];
  if (!body.empty()) {
    der::Algorithm prf;
    if (!der::TakeAlgorithm(body, prf) || !body.empty()) return NTE_BAD_DATA;
    scheme.prf = FindRow(kPrfs, prf.oid);
    if (!scheme.prf) return NTE_BAD_ALGID;
  }
  const bool bounded = scheme.iterations > 0 && scheme.iterations <= certkern::kMaxIterations;
  return bounded && !scheme.salt.empty() ? ERROR_SUCCESS : NTE_BAD_DATA;
}

// PBES2-params ::= SEQUENCE { keyDerivationFunc, encryptionScheme }
DWORD TakeScheme(std::span<const BYTE> parameters, Scheme& scheme) {
  der::Reader in(parameters), body;
  der::Algorithm derivation, encryption;
  if (!in.take(der::kSequence, body) || !in.empty() || !der::TakeAlgorithm(body, derivation)
      || !der::TakeAlgorithm(body, encryption) || !body.empty()) {
    return NTE_BAD_DATA;
  }
  if (derivation.oid != kPbkdf2) return NTE_BAD_ALGID;
  scheme.cipher = FindRow(kCiphers, encryption.oid);
  if (!scheme.cipher) return NTE_BAD_ALGID;
  der::Reader iv(encryption.parameters);
  if (!iv.take(der::kOctetString, scheme.iv) || !iv.empty() || scheme.iv.size() != kBlock)
    return NTE_BAD_DATA;
  uint32_t keyLength = static_cast<uint32_t>(scheme.cipher->keySize);
  if (const DWORD code = TakePbkdf2(derivation.parameters, scheme, keyLength)) return code;
  return keyLength == scheme.cipher->keySize ? ERROR_SUCCESS : NTE_BAD_DATA;
}

// EncryptedPrivateKeyInfo ::= SEQUENCE { encryptionAlgorithm AlgorithmIdentifier, encryptedData OCTET STRING }
bool TakeSealed(std::span<const BYTE> sealed, der::Algorithm& algorithm, std::span<const BYTE>& data) {
  der::Reader in(sealed), body;
  return in.take(der::kSequence, body) && in.empty() && der::TakeAlgorithm(body, algorithm)
      && body.take(der::kOctetString, data) && body.empty();
}

SecretBytes WriteScheme(const Scheme& scheme) {
  const SecretBytes pbkdf2 = der::Sequence({der::OctetString(scheme.salt), der::Small(scheme.iterations),
                                            der::AlgorithmIdentifier(scheme.prf->oid, der::Null())});
  return der::Sequence({der::AlgorithmIdentifier(kPbkdf2, pbkdf2),
                        der::AlgorithmIdentifier(scheme.cipher->oid, der::OctetString(scheme.iv))});
}

}  // namespace

DWORD SealPrivateKeyInfo(std::span<const BYTE> privateKeyInfo, std::span<const BYTE> pin,
                         SecretBytes& sealed) {
  const ErrorMark mark;
  std::array<BYTE, kSaltSize> salt;
  std::array<BYTE, kBlock> iv;
  if (privateKeyInfo.size() > certkern::kMaxKeyBlob) return NTE_BAD_DATA;
  if (!RandomBytes(salt) || !RandomBytes(iv)) return NTE_FAIL;
  Scheme scheme;
  scheme.salt = salt;
  scheme.iv = iv;
  SecretBytes key, data;
  if (!DeriveKey(scheme, pin, key) || !RunCipher(Way::Seal, scheme, key, privateKeyInfo, data))
    return NTE_FAIL;
  sealed = der::Sequence({der::AlgorithmIdentifier(kPbes2, WriteScheme(scheme)), der::OctetString(data)});
  return ERROR_SUCCESS;
}

DWORD OpenPrivateKeyInfo(std::span<const BYTE> sealed, std::span<const BYTE> pin,
                         SecretBytes& privateKeyInfo) {
  const ErrorMark mark;
  der::Algorithm algorithm;
  std::span<const BYTE> data;
  if (sealed.size() > certkern::kMaxKeyBlob || !TakeSealed(sealed, algorithm, data)) return NTE_BAD_DATA;
  if (algorithm.oid != kPbes2) return NTE_BAD_ALGID;
  Scheme scheme;
  if (const DWORD code = TakeScheme(algorithm.parameters, scheme)) return code;
  if (data.empty() || data.size() % kBlock != 0) return NTE_BAD_DATA;
  SecretBytes key, opened;
  if (!DeriveKey(scheme, pin, key)) return NTE_FAIL;
  if (!RunCipher(Way::Open, scheme, key, data, opened)) return SCARD_W_WRONG_CHV;
  privateKeyInfo = std::move(opened);
  return ERROR_SUCCESS;
}

}  // namespace keykern
