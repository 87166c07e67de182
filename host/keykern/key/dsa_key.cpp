// DSA public keys, over libcrypto: old certificates are still verified, nothing new is signed.
#include "common/der.h"
#include "keykern/key/asymmetric_key.h"
#include "keykern/key/libcrypto_key.h"

#include <openssl/core_names.h>
#include <openssl/dsa.h>

#include <algorithm>
#include <iterator>

namespace keykern {
namespace {

namespace der = certkern::der;

constexpr char kDsa[] = "1.2.840.10040.4.1";
// What libcrypto computes with.
constexpr int kMaxPrimeBits = OPENSSL_DSA_MAX_MODULUS_BITS;
constexpr int kOrderBits[] = {160, 224, 256};  // FIPS 186-4, 4.2

constexpr size_t kMaxPrimeBytes = kMaxPrimeBits / 8;
constexpr size_t kMaxOrderBytes = 32;

struct DsaNumbers {
  BnPtr p, q, g, y;
};

class DsaPublicKey final : public PublicKey {
 public:
  explicit DsaPublicKey(PkeyPtr key) : key_(WithSizes(std::move(key))) {}

  Family family() const override { return Family::Dsa; }
  DWORD bits() const override { return static_cast<DWORD>(EVP_PKEY_get_bits(key_.get())); }

  SecretBytes publicKeyInfo() const override {
    const SecretBytes parameters = der::Sequence({der::Unsigned(NumberOf(key_, OSSL_PKEY_PARAM_FFC_P)),
                                                  der::Unsigned(NumberOf(key_, OSSL_PKEY_PARAM_FFC_Q)),
                                                  der::Unsigned(NumberOf(key_, OSSL_PKEY_PARAM_FFC_G))});
    return der::Sequence({der::AlgorithmIdentifier(kDsa, parameters),
                          der::BitString(der::Unsigned(NumberOf(key_, OSSL_PKEY_PARAM_PUB_KEY)))});
  }

  DWORD verify(const SignatureInput& input, std::span<const BYTE> signature) const override {
    return input.pss ? NTE_BAD_FLAGS : VerifyPair(key_, verifying_, input, signature);
  }

 private:
  const PkeyPtr key_;
  mutable SpareContext verifying_;
};

bool TakeNumber(der::Reader& in, size_t maximumBytes, BnPtr& number) {
  std::span<const BYTE> magnitude;
  if (!in.takeUnsigned(magnitude) || magnitude.empty() || magnitude.size() > maximumBytes) return false;
  number = ToNumber(magnitude);
  return true;
}

// Dss-Parms ::= SEQUENCE { p, q, g }. RFC 3279, 2.3.2. Parameters that a key inherits from its issuer's are nobody's
// here.
bool TakeNumbers(std::span<const BYTE> parameters, std::span<const BYTE> bits, DsaNumbers& numbers) {
  der::Reader in(parameters), body, key(bits);
  return in.take(der::kSequence, body) && in.empty() && TakeNumber(body, kMaxPrimeBytes, numbers.p)
      && TakeNumber(body, kMaxOrderBytes, numbers.q) && TakeNumber(body, kMaxPrimeBytes, numbers.g)
      && body.empty() && TakeNumber(key, kMaxPrimeBytes, numbers.y) && key.empty();
}

bool HasUsualSizes(const DsaNumbers& numbers) {
  return std::ranges::find(kOrderBits, BN_num_bits(numbers.q.get())) != std::end(kOrderBits)
      && BN_num_bits(numbers.p.get()) <= kMaxPrimeBits;
}

// 1 < number < p
bool IsInGroup(const BnPtr& number, const BnPtr& p) {
  return BN_cmp(number.get(), BN_value_one()) > 0 && BN_cmp(number.get(), p.get()) < 0;
}

}  // namespace

DWORD ParseDsaPublicKey(const std::string& oid, std::span<const BYTE> parameters, std::span<const BYTE> bits,
                        PublicKeyPtr& key) {
  const ErrorMark mark;
  DsaNumbers numbers;
  if (oid != kDsa || !TakeNumbers(parameters, bits, numbers) || !HasUsualSizes(numbers)
      || !BN_is_odd(numbers.p.get()) || BN_cmp(numbers.q.get(), numbers.p.get()) >= 0
      || !IsInGroup(numbers.g, numbers.p) || !IsInGroup(numbers.y, numbers.p)) {
    return NTE_BAD_PUBLIC_KEY;
  }
  PkeyPtr made = KeyPieces()
                     .number(OSSL_PKEY_PARAM_FFC_P, numbers.p)
                     .number(OSSL_PKEY_PARAM_FFC_Q, numbers.q)
                     .number(OSSL_PKEY_PARAM_FFC_G, numbers.g)
                     .number(OSSL_PKEY_PARAM_PUB_KEY, numbers.y)
                     .build("DSA", EVP_PKEY_PUBLIC_KEY);
  if (!made) return mark.failure();
  key = std::make_shared<DsaPublicKey>(std::move(made));
  return ERROR_SUCCESS;
}

}  // namespace keykern
