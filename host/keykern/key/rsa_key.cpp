// RSA keys: signatures and encryption of PKCS #1, RFC 8017, over libcrypto.
#include "common/der.h"
#include "keykern/crypto_library.h"
#include "keykern/key/asymmetric_key.h"
#include "keykern/key/libcrypto_key.h"
#include "keykern/key/rsa_pss_rule.h"
#include "keykern/key/rsa_verification.h"
#include "platform/limits.h"
#include "platform/supkern.h"

#include <openssl/core_names.h>
#include <openssl/rsa.h>

#include <array>
#include <bit>
#include <new>

namespace keykern {
namespace {

namespace der = certkern::der;
using certkern::kDefaultMaxRsaBits;
using certkern::kMaxRsaBits;
using certkern::ToSecret;

constexpr char kAnyPadding[] = "1.2.840.113549.1.1.1";
constexpr char kPssAlone[] = "1.2.840.113549.1.1.10";
constexpr size_t kMinRsaBits = 512;  // below, a padded hash value finds no room
constexpr DWORD kMinGeneratedBits = 1024;
constexpr DWORD kUsualBits = 2048;

// What the key is for: the algorithm of its SubjectPublicKeyInfo.
struct Purpose {
  std::string oid = kAnyPadding;
  SecretBytes parameters = der::Null();
  RsaPssRule rule = {};

  bool pssAlone() const { return oid == kPssAlone; }
};

bool ReadPurpose(const std::string& oid, std::span<const BYTE> parameters, Purpose& purpose) {
  purpose.oid = oid;
  if (!purpose.pssAlone())
    return oid == kAnyPadding && (parameters.empty() || ToSecret(parameters) == der::Null());
  purpose.parameters = ToSecret(parameters);
  return ReadRsaPssRule(parameters, purpose.rule);
}

// --- numbers ---

// Asked for at each key that needs it, which are few.
size_t ConfiguredMaxBits() {
  int64_t bits = 0;
  const bool given = support_registry_get_long("\\config\\Parameters\\MaxRsaKeyBits", &bits) == 0;
  return given && bits >= kDefaultMaxRsaBits && bits <= kMaxRsaBits ? static_cast<size_t>(bits)
                                                                    : kDefaultMaxRsaBits;
}

bool IsTooLong(size_t bits) { return bits > kDefaultMaxRsaBits && bits > ConfiguredMaxBits(); }

bool IsModulus(std::span<const BYTE> n) { return n.size() >= kMinRsaBits / 8 && (n.back() & 1); }

size_t BitsOf(std::span<const BYTE> n) {
  return n.empty() ? 0 : 8 * (n.size() - 1) + static_cast<size_t>(std::bit_width(n[0]));
}

bool IsExponent(std::span<const BYTE> e) {
  return !e.empty() && e.size() <= certkern::kMaxRsaExponentOctets && (e.back() & 1)
      && (e.size() > 1 || e[0] > 1);
}

// RSAPrivateKey, in the order that it is written in.
enum Part { kN, kE, kD, kP, kQ, kDp, kDq, kQinv, kParts };
constexpr const char* kPartNames[kParts] = {
    OSSL_PKEY_PARAM_RSA_N,         OSSL_PKEY_PARAM_RSA_E,
    OSSL_PKEY_PARAM_RSA_D,         OSSL_PKEY_PARAM_RSA_FACTOR1,
    OSSL_PKEY_PARAM_RSA_FACTOR2,   OSSL_PKEY_PARAM_RSA_EXPONENT1,
    OSSL_PKEY_PARAM_RSA_EXPONENT2, OSSL_PKEY_PARAM_RSA_COEFFICIENT1,
};
using Parts = std::array<BnPtr, kParts>;

// Arithmetic on numbers that were looked at before lacks nothing but memory.
void Compute(int status) {
  if (status != 1) throw std::bad_alloc();
}

// e times its inverse leaves 1 modulo prime - 1, and the shortened exponent is that inverse.
bool FitsPrime(const Parts& parts, Part prime, Part exponent, BN_CTX* context) {
  const BnPtr order = NewNumber(), rest = NewNumber();
  Compute(BN_sub(order.get(), parts[prime].get(), BN_value_one()));
  Compute(BN_mod_mul(rest.get(), parts[kE].get(), parts[kD].get(), order.get(), context));
  // modulo 1, where the prime is 2, everything is 0
  if (!BN_is_one(rest.get())) return false;
  Compute(BN_nnmod(rest.get(), parts[kD].get(), order.get(), context));
  return BN_cmp(rest.get(), parts[exponent].get()) == 0;
}

bool IsProduct(const Parts& parts, BN_CTX* context) {
  const BnPtr product = NewNumber();
  Compute(BN_mul(product.get(), parts[kP].get(), parts[kQ].get(), context));
  return BN_cmp(product.get(), parts[kN].get()) == 0;
}

bool IsInverse(const Parts& parts, BN_CTX* context) {
  const BnPtr product = NewNumber();
  Compute(BN_mod_mul(product.get(), parts[kQinv].get(), parts[kQ].get(), parts[kP].get(), context));
  return BN_is_one(product.get());
}

// The parts make one key. Whether the primes are prime is not asked: that takes longer than a signature, and nobody
// but the owner is hurt. What a damaged file changes shows here.
bool BelongTogether(const Parts& parts) {
  const BnContextPtr context(BN_CTX_secure_new_ex(LibcryptoContext()));
  if (!context) throw std::bad_alloc();
  return BN_cmp(parts[kP].get(), BN_value_one()) > 0 && BN_cmp(parts[kQ].get(), BN_value_one()) > 0
      && IsProduct(parts, context.get()) && FitsPrime(parts, kP, kDp, context.get())
      && FitsPrime(parts, kQ, kDq, context.get()) && IsInverse(parts, context.get())
      && BN_cmp(parts[kD].get(), parts[kN].get()) < 0 && BN_cmp(parts[kQinv].get(), parts[kP].get()) < 0;
}

// --- paddings ---

bool PreparePadding(EVP_PKEY_CTX* context, const SignatureInput& input, const EVP_MD* digest) {
  if (!input.pss) return EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING) == 1;
  return EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PSS_PADDING) == 1
      && EVP_PKEY_CTX_set_rsa_mgf1_md(context, digest) == 1
      && EVP_PKEY_CTX_set_rsa_pss_saltlen(context, static_cast<int>(input.saltLength)) == 1;
}

bool SetLabel(EVP_PKEY_CTX* context, std::span<const BYTE> label) {
  if (label.empty()) return true;
  BYTE* copy = static_cast<BYTE*>(OPENSSL_memdup(label.data(), label.size()));
  if (!copy) return false;
  if (EVP_PKEY_CTX_set0_rsa_oaep_label(context, copy, static_cast<int>(label.size())) == 1) return true;
  OPENSSL_free(copy);
  return false;
}

DWORD PrepareEncryption(EVP_PKEY_CTX* context, const RsaPadding& padding) {
  if (!padding.oaep) {
    return EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING) == 1 ? ERROR_SUCCESS : NTE_FAIL;
  }
  const EVP_MD* digest = FindDigest(padding.oaepHash);
  if (!digest) return NTE_BAD_HASH;
  if (padding.label.size() > certkern::kMaxKeyBlob) return NTE_BAD_DATA;
  return EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_OAEP_PADDING) == 1
          && EVP_PKEY_CTX_set_rsa_oaep_md(context, digest) == 1
          && EVP_PKEY_CTX_set_rsa_mgf1_md(context, digest) == 1 && SetLabel(context, padding.label)
      ? ERROR_SUCCESS
      : NTE_FAIL;
}

// Bytes of a message that fit. RFC 8017, 7.1.1 and 7.2.1
size_t LongestMessage(const RsaPadding& padding, size_t modulus) {
  const EVP_MD* digest = padding.oaep ? FindDigest(padding.oaepHash) : nullptr;
  const size_t taken = digest ? 2 * static_cast<size_t>(EVP_MD_get_size(digest)) + 2 : 11;
  return modulus < taken ? 0 : modulus - taken;
}

// --- keys ---

class RsaPublicKey final : public PublicKey {
 public:
  RsaPublicKey(PkeyPtr key, Purpose purpose)
      : key_(WithSizes(std::move(key))),
        modulus_(NumberOf(key_, OSSL_PKEY_PARAM_RSA_N)),
        purpose_(std::move(purpose)) {}

  Family family() const override { return Family::Rsa; }
  DWORD bits() const override { return static_cast<DWORD>(EVP_PKEY_get_bits(key_.get())); }
  DWORD size() const { return (bits() + 7) / 8; }
  const Purpose& purpose() const { return purpose_; }

  SecretBytes publicKeyInfo() const override {
    const SecretBytes body =
        der::Sequence({der::Unsigned(modulus_), der::Unsigned(NumberOf(key_, OSSL_PKEY_PARAM_RSA_E))});
    return der::Sequence({der::AlgorithmIdentifier(purpose_.oid, purpose_.parameters), der::BitString(body)});
  }

  DWORD verify(const SignatureInput& input, std::span<const BYTE> signature) const override {
    if (const DWORD code = judge(input)) return code;
    if (!saltFits(input)) return NTE_BAD_SIGNATURE;
    return VerifyRsa(key_, modulus_, verifying_, &PreparePadding, input, signature);
  }

  DWORD encrypt(const RsaPadding& padding, std::span<const BYTE> plain, SecretBytes& sealed) const override {
    if (purpose_.pssAlone()) return NTE_BAD_KEY;
    const ErrorMark mark;
    const PkeyContextPtr context = NewContext(key_);
    if (!context || EVP_PKEY_encrypt_init(context.get()) != 1) return mark.failure();
    if (const DWORD code = PrepareEncryption(context.get(), padding)) return code;
    if (plain.size() > LongestMessage(padding, size())) return NTE_BAD_LEN;
    SecretBytes made(size());
    size_t length = made.size();
    if (EVP_PKEY_encrypt(context.get(), made.data(), &length, plain.data(), plain.size()) != 1)
      return mark.failure();
    made.resize(length);
    sealed = std::move(made);
    return ERROR_SUCCESS;
  }

  // Whether the key signs this way at all.
  DWORD judge(const SignatureInput& input) const {
    if (purpose_.pssAlone() && !input.pss) return NTE_BAD_ALGID;
    return purpose_.rule.hash && purpose_.rule.hash != input.hash ? NTE_BAD_HASH : ERROR_SUCCESS;
  }
  // Lengths above are no lengths to libcrypto, but wishes: the longest, any, and so on.
  bool saltFits(const SignatureInput& input) const {
    return !input.pss || (input.saltLength >= purpose_.rule.minimumSalt && input.saltLength < size());
  }

 private:
  const PkeyPtr key_;
  const SecretBytes modulus_;
  mutable SpareContext verifying_;
  const Purpose purpose_;
};

class RsaPrivateKey final : public PrivateKey {
 public:
  RsaPrivateKey(PkeyPtr key, Purpose purpose)
      : key_(WithSizes(std::move(key))),
        public_(std::make_shared<RsaPublicKey>(Share(key_), std::move(purpose))) {}

  PublicKeyPtr publicKey() const override { return public_; }
  DWORD signatureSize() const override { return public_->size(); }

  // RSAPrivateKey of RFC 8017, A.1.2, with two primes.
  SecretBytes privateKeyInfo() const override {
    SecretBytes parts = der::Small(0);
    for (const char* name : kPartNames) certkern::Append(parts, der::Unsigned(NumberOf(key_, name)));
    return der::Sequence({der::Small(0),
                          der::AlgorithmIdentifier(public_->purpose().oid, public_->purpose().parameters),
                          der::OctetString(der::Sequence({parts}))});
  }

  DWORD sign(const SignatureInput& input, SecretBytes& signature) const override {
    if (const DWORD code = public_->judge(input)) return code;
    if (!public_->saltFits(input)) return NTE_BAD_LEN;
    return SignHash(key_, signing_, input, signature, &PreparePadding);
  }

  // One code for every way of being wrong: more would tell a sender of made-up messages what is inside.
  DWORD decrypt(const RsaPadding& padding, std::span<const BYTE> sealed, SecretBytes& plain) const override {
    if (public_->purpose().pssAlone()) return NTE_BAD_KEY;
    const ErrorMark mark;
    const PkeyContextPtr context = NewContext(key_);
    if (!context || EVP_PKEY_decrypt_init(context.get()) != 1) return mark.failure();
    if (const DWORD code = PrepareEncryption(context.get(), padding)) return code;
    if (sealed.size() != public_->size()) return NTE_BAD_DATA;
    SecretBytes opened(public_->size());
    size_t length = opened.size();
    if (EVP_PKEY_decrypt(context.get(), opened.data(), &length, sealed.data(), sealed.size()) != 1) {
      return NTE_BAD_DATA;
    }
    opened.resize(length);
    plain = std::move(opened);
    return ERROR_SUCCESS;
  }

 private:
  const PkeyPtr key_;
  mutable SpareContext signing_;
  const std::shared_ptr<const RsaPublicKey> public_;
};

// RSAPrivateKey ::= SEQUENCE { version 0, n, e, d, p, q, d mod (p-1), d mod (q-1), (inverse of q) mod p }
DWORD TakeParts(std::span<const BYTE> octets, Parts& parts) {
  der::Reader in(octets), body;
  uint32_t version;
  if (!in.take(der::kSequence, body) || !in.empty() || !body.takeSmall(version) || version != 0)
    return NTE_BAD_KEY;
  for (size_t i = 0; i < parts.size(); ++i) {
    std::span<const BYTE> magnitude;
    if (!body.takeUnsigned(magnitude)) return NTE_BAD_KEY;
    if (IsTooLong(BitsOf(magnitude))) return NTE_BAD_LEN;
    if ((i == kN && !IsModulus(magnitude)) || (i == kE && !IsExponent(magnitude))) return NTE_BAD_KEY;
    parts[i] = ToNumber(magnitude);
  }
  return body.empty() ? ERROR_SUCCESS : NTE_BAD_KEY;
}

}  // namespace

// RSAPublicKey ::= SEQUENCE { n, e }
DWORD ParseRsaPublicKey(const std::string& oid, std::span<const BYTE> parameters, std::span<const BYTE> bits,
                        PublicKeyPtr& key) {
  Purpose purpose;
  std::span<const BYTE> n, e;
  der::Reader in(bits), body;
  if (!ReadPurpose(oid, parameters, purpose) || !in.take(der::kSequence, body) || !in.empty()
      || !body.takeUnsigned(n) || !body.takeUnsigned(e) || !body.empty() || !IsModulus(n) || !IsExponent(e)) {
    return NTE_BAD_PUBLIC_KEY;
  }
  if (IsTooLong(BitsOf(n))) return NTE_BAD_LEN;
  const ErrorMark mark;
  const BnPtr modulus = ToNumber(n), exponent = ToNumber(e);
  PkeyPtr made = KeyPieces()
                     .number(OSSL_PKEY_PARAM_RSA_N, modulus)
                     .number(OSSL_PKEY_PARAM_RSA_E, exponent)
                     .build("RSA", EVP_PKEY_PUBLIC_KEY);
  if (!made) return mark.failure();
  key = std::make_shared<RsaPublicKey>(std::move(made), std::move(purpose));
  return ERROR_SUCCESS;
}

DWORD ParseRsaPrivateKey(const std::string& oid, std::span<const BYTE> parameters,
                         std::span<const BYTE> octets, PrivateKeyPtr& key) {
  const ErrorMark mark;
  Purpose purpose;
  Parts parts;
  if (!ReadPurpose(oid, parameters, purpose)) return NTE_BAD_KEY;
  if (const DWORD code = TakeParts(octets, parts)) return code;
  if (!BelongTogether(parts)) return NTE_BAD_KEY;
  KeyPieces pieces;
  for (size_t i = 0; i < parts.size(); ++i) pieces.number(kPartNames[i], parts[i]);
  PkeyPtr made = pieces.build("RSA", EVP_PKEY_KEYPAIR);
  if (!made) return mark.failure();
  key = std::make_shared<RsaPrivateKey>(std::move(made), std::move(purpose));
  return ERROR_SUCCESS;
}

DWORD GenerateRsaKey(DWORD bits, PrivateKeyPtr& key) {
  if (bits == 0) bits = kUsualBits;
  if (bits < kMinGeneratedBits || IsTooLong(bits) || bits % 8 != 0) return NTE_BAD_LEN;
  const ErrorMark mark;
  const PkeyContextPtr context(EVP_PKEY_CTX_new_from_name(LibcryptoContext(), "RSA", nullptr));
  EVP_PKEY* made = nullptr;
  if (!context || EVP_PKEY_keygen_init(context.get()) != 1
      || EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), static_cast<int>(bits)) != 1
      || EVP_PKEY_generate(context.get(), &made) != 1) {
    return mark.failure();
  }
  key = std::make_shared<RsaPrivateKey>(PkeyPtr(made), Purpose());
  return ERROR_SUCCESS;
}

}  // namespace keykern
