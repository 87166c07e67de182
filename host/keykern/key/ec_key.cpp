// Keys on named prime curves: ECDSA and the key agreement of SEC 1, over libcrypto.
#include "common/der.h"
#include "keykern/crypto_library.h"
#include "keykern/key/asymmetric_key.h"
#include "keykern/key/libcrypto_key.h"

#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/ecerr.h>

#include <algorithm>
#include <iterator>
#include <new>

namespace keykern {
namespace {

namespace der = certkern::der;

constexpr char kEcPublicKey[] = "1.2.840.10045.2.1";
constexpr BYTE kUncompressed = 4;

struct Curve {
  const char* oid;
  const char* name;  // libcrypto's
  int nid;
  DWORD bits;  // of the field, and of the order
};
constexpr Curve kCurves[] = {
    {"1.2.840.10045.3.1.7",   "prime256v1",      NID_X9_62_prime256v1, 256},
    {"1.3.132.0.34",          "secp384r1",       NID_secp384r1,        384},
    {"1.3.132.0.35",          "secp521r1",       NID_secp521r1,        521},
    {"1.3.132.0.33",          "secp224r1",       NID_secp224r1,        224},
    {"1.3.132.0.10",          "secp256k1",       NID_secp256k1,        256},
    {"1.3.36.3.3.2.8.1.1.5",  "brainpoolP224r1", NID_brainpoolP224r1,  224},
    {"1.3.36.3.3.2.8.1.1.7",  "brainpoolP256r1", NID_brainpoolP256r1,  256},
    {"1.3.36.3.3.2.8.1.1.9",  "brainpoolP320r1", NID_brainpoolP320r1,  320},
    {"1.3.36.3.3.2.8.1.1.11", "brainpoolP384r1", NID_brainpoolP384r1,  384},
    {"1.3.36.3.3.2.8.1.1.13", "brainpoolP512r1", NID_brainpoolP512r1,  512},
};
constexpr const Curve& kUsualCurve = kCurves[0];

const Curve* FindCurve(const std::string& oid) {
  for (const Curve& curve : kCurves) {
    if (oid == curve.oid) return &curve;
  }
  return nullptr;
}

size_t FieldSize(const Curve& curve) { return (curve.bits + 7) / 8; }

// Only a curve by name: explicit parameters let a sender choose a curve on which signatures are forged.
const Curve* ReadCurve(const std::string& oid, std::span<const BYTE> parameters) {
  der::Reader in(parameters);
  std::string name;
  return oid == kEcPublicKey && in.takeOid(name) && in.empty() ? FindCurve(name) : nullptr;
}

// --- libcrypto's objects ---

using GroupPtr = std::unique_ptr<EC_GROUP, LibcryptoFree<EC_GROUP_free>>;
using PointPtr = std::unique_ptr<EC_POINT, LibcryptoFree<EC_POINT_free>>;

GroupPtr NewGroup(const Curve& curve) {
  return GroupPtr(EC_GROUP_new_by_curve_name_ex(LibcryptoContext(), nullptr, curve.nid));
}

bool IsAboutCurve(unsigned long error) {
  const int reason = ERR_GET_REASON(error);
  return ERR_GET_LIB(error) == ERR_LIB_EC && (reason == EC_R_UNKNOWN_GROUP || reason == EC_R_INVALID_CURVE);
}

// Null only where the host lacks the curve: whoever hears of an unknown algorithm may remember that for good.
EVP_PKEY* MakeParameters(const Curve& curve) {
  const ErrorMark mark;
  PkeyPtr made =
      KeyPieces().text(OSSL_PKEY_PARAM_GROUP_NAME, curve.name).build("EC", EVP_PKEY_KEY_PARAMETERS);
  if (!made && mark.refusal(NTE_BAD_ALGID, IsAboutCurve) != NTE_BAD_ALGID) throw std::bad_alloc();
  return made.release();
}

// A key without numbers, kept for good; null where the host lacks the curve. Copying it is four times faster than
// looking the curve up by name, and each certificate brings a key.
const EVP_PKEY* ParametersOf(const Curve& curve) {
  static constinit MadeOnce<EVP_PKEY_free> parameters[std::size(kCurves)];
  return parameters[&curve - kCurves].get([&] { return MakeParameters(curve); });
}

bool IsAboutPoint(unsigned long error) {
  constexpr int kReasons[] = {EC_R_POINT_IS_NOT_ON_CURVE, EC_R_INVALID_COMPRESSED_POINT,
                              EC_R_INVALID_ENCODING, EC_R_INVALID_COMPRESSION_BIT,
                              EC_R_COORDINATES_OUT_OF_RANGE};
  return ERR_GET_LIB(error) == ERR_LIB_EC
      && std::ranges::find(kReasons, ERR_GET_REASON(error)) != std::end(kReasons);
}

// A point as SEC 1, 2.3.3 has it, but for infinity and the hybrid form.
DWORD MakePublic(const Curve& curve, std::span<const BYTE> point, PkeyPtr& made) {
  const size_t field = FieldSize(curve);
  const bool whole = point.size() == 1 + 2 * field && point[0] == kUncompressed;
  const bool compressed = point.size() == 1 + field && (point[0] == 2 || point[0] == 3);
  if (!whole && !compressed) return NTE_BAD_PUBLIC_KEY;
  PkeyPtr key(EVP_PKEY_dup(const_cast<EVP_PKEY*>(ParametersOf(curve))));
  if (!key) return NTE_NO_MEMORY;
  const ErrorMark mark;
  if (EVP_PKEY_set1_encoded_public_key(key.get(), point.data(), point.size()) != 1)
    return mark.refusal(NTE_BAD_PUBLIC_KEY, IsAboutPoint);
  made = std::move(key);
  return ERROR_SUCCESS;
}

SecretBytes Uncompressed(const GroupPtr& group, const PointPtr& point, const Curve& curve) {
  SecretBytes bytes(1 + 2 * FieldSize(curve));
  const size_t size = EC_POINT_point2oct(group.get(), point.get(), POINT_CONVERSION_UNCOMPRESSED,
                                         bytes.data(), bytes.size(), nullptr);
  if (size != bytes.size()) throw std::bad_alloc();  // a point that was just computed has its bytes
  return bytes;
}

SecretBytes Compressed(std::span<const BYTE> point) {
  SecretBytes bytes(point.begin(), point.begin() + static_cast<ptrdiff_t>(1 + point.size() / 2));
  bytes[0] = 2 | (point.back() & 1);
  return bytes;
}

// The public point of a secret number; empty when the number is not one of the curve's.
SecretBytes PointOf(const Curve& curve, const BnPtr& number) {
  const GroupPtr group = NewGroup(curve);
  const PointPtr point(group ? EC_POINT_new(group.get()) : nullptr);
  const BnContextPtr context(BN_CTX_secure_new_ex(LibcryptoContext()));
  if (!point || !context) throw std::bad_alloc();
  if (BN_is_zero(number.get()) || BN_cmp(number.get(), EC_GROUP_get0_order(group.get())) >= 0) return {};
  if (!EC_POINT_mul(group.get(), point.get(), number.get(), nullptr, nullptr, context.get()))
    throw std::bad_alloc();
  return Uncompressed(group, point, curve);
}

// --- keys ---

DWORD Judge(const SignatureInput& input) { return input.pss ? NTE_BAD_FLAGS : ERROR_SUCCESS; }

class EcPublicKey final : public PublicKey {
 public:
  EcPublicKey(PkeyPtr key, const Curve& curve) : key_(WithSizes(std::move(key))), curve_(curve) {}

  Family family() const override { return Family::Ec; }
  DWORD bits() const override { return curve_.bits; }
  std::string parameterSet() const override { return curve_.oid; }
  const PkeyPtr& key() const { return key_; }
  const Curve& curve() const { return curve_; }

  // One form for a point, so that the same key always has the same bytes.
  SecretBytes point() const {
    const size_t field = FieldSize(curve_);
    SecretBytes bytes(1 + 2 * field);
    bytes[0] = kUncompressed;
    const SecretBytes x = NumberOf(key_, OSSL_PKEY_PARAM_EC_PUB_X),
                      y = NumberOf(key_, OSSL_PKEY_PARAM_EC_PUB_Y);
    std::copy(x.rbegin(), x.rend(), bytes.rbegin() + static_cast<ptrdiff_t>(field));
    std::copy(y.rbegin(), y.rend(), bytes.rbegin());
    return bytes;
  }
  SecretBytes publicKeyInfo() const override {
    return der::Sequence(
        {der::AlgorithmIdentifier(kEcPublicKey, der::Oid(curve_.oid)), der::BitString(point())});
  }

  DWORD verify(const SignatureInput& input, std::span<const BYTE> signature) const override {
    if (const DWORD code = Judge(input)) return code;
    return VerifyPair(key_, verifying_, input, signature);
  }

 private:
  const PkeyPtr key_;
  mutable SpareContext verifying_;
  const Curve& curve_;
};

class EcPrivateKey final : public PrivateKey {
 public:
  EcPrivateKey(PkeyPtr key, const Curve& curve)
      : key_(WithSizes(std::move(key))), public_(std::make_shared<EcPublicKey>(Share(key_), curve)) {}

  PublicKeyPtr publicKey() const override { return public_; }
  DWORD signatureSize() const override { return static_cast<DWORD>(EVP_PKEY_get_size(key_.get())); }

  // ECPrivateKey of RFC 5915, its number as long as the order.
  SecretBytes privateKeyInfo() const override {
    const SecretBytes number = NumberOf(key_, OSSL_PKEY_PARAM_PRIV_KEY);
    SecretBytes padded(FieldSize(public_->curve()));
    std::copy(number.rbegin(), number.rend(), padded.rbegin());
    const SecretBytes body =
        der::Sequence({der::Small(1), der::OctetString(padded),
                       der::Element(der::ContextConstructed(1), {der::BitString(public_->point())})});
    return der::Sequence({der::Small(0),
                          der::AlgorithmIdentifier(kEcPublicKey, der::Oid(public_->curve().oid)),
                          der::OctetString(body)});
  }

  DWORD sign(const SignatureInput& input, SecretBytes& signature) const override {
    if (const DWORD code = Judge(input)) return code;
    return SignHash(key_, signing_, input, signature);
  }

  DWORD ecdh(const PublicKey& other, SecretBytes& shared) const override {
    const auto* peer = dynamic_cast<const EcPublicKey*>(&other);
    if (!peer || &peer->curve() != &public_->curve()) return NTE_BAD_KEY;
    const ErrorMark mark;
    const PkeyContextPtr context = NewContext(key_);
    SecretBytes x(FieldSize(public_->curve()));
    size_t size = x.size();
    if (!context || EVP_PKEY_derive_init(context.get()) != 1
        || EVP_PKEY_derive_set_peer(context.get(), peer->key().get()) != 1
        || EVP_PKEY_derive(context.get(), x.data(), &size) != 1 || size != x.size()) {
      return mark.failure();
    }
    shared = std::move(x);
    return ERROR_SUCCESS;
  }

 private:
  const PkeyPtr key_;
  mutable SpareContext signing_;
  const std::shared_ptr<const EcPublicKey> public_;
};

// What ECPrivateKey says besides its number has to agree with it.
bool TakeRest(der::Reader& body, const Curve& curve, std::span<const BYTE> point) {
  der::Reader field;
  if (body.take(der::ContextConstructed(0), field) && ReadCurve(kEcPublicKey, field.rest()) != &curve)
    return false;
  if (!body.take(der::ContextConstructed(1), field)) return body.empty();
  std::span<const BYTE> written;
  if (!field.takeBits(written) || !field.empty() || !body.empty()) return false;
  const SecretBytes compressed = Compressed(point);
  return std::ranges::equal(written, point) || std::ranges::equal(written, compressed);
}

}  // namespace

DWORD ParseEcPublicKey(const std::string& oid, std::span<const BYTE> parameters, std::span<const BYTE> bits,
                       PublicKeyPtr& key) {
  const ErrorMark mark;
  const Curve* curve = ReadCurve(oid, parameters);
  if (!curve || !ParametersOf(*curve)) return NTE_BAD_ALGID;
  PkeyPtr made;
  if (const DWORD code = MakePublic(*curve, bits, made)) return code;
  key = std::make_shared<EcPublicKey>(std::move(made), *curve);
  return ERROR_SUCCESS;
}

// ECPrivateKey ::= SEQUENCE { version 1, privateKey OCTET STRING, parameters [0] OPTIONAL, publicKey [1] OPTIONAL }
DWORD ParseEcPrivateKey(const std::string& oid, std::span<const BYTE> parameters,
                        std::span<const BYTE> octets, PrivateKeyPtr& key) {
  const ErrorMark mark;
  const Curve* curve = ReadCurve(oid, parameters);
  if (!curve || !ParametersOf(*curve)) return NTE_BAD_ALGID;
  der::Reader in(octets), body;
  uint32_t version;
  std::span<const BYTE> magnitude;
  if (!in.take(der::kSequence, body) || !in.empty() || !body.takeSmall(version) || version != 1
      || !body.take(der::kOctetString, magnitude) || magnitude.size() > FieldSize(*curve)) {
    return NTE_BAD_KEY;
  }
  const BnPtr number = ToNumber(magnitude);
  const SecretBytes point = PointOf(*curve, number);
  if (point.empty() || !TakeRest(body, *curve, point)) return NTE_BAD_KEY;
  PkeyPtr made = KeyPieces()
                     .text(OSSL_PKEY_PARAM_GROUP_NAME, curve->name)
                     .number(OSSL_PKEY_PARAM_PRIV_KEY, number)
                     .octets(OSSL_PKEY_PARAM_PUB_KEY, point)
                     .build("EC", EVP_PKEY_KEYPAIR);
  if (!made) return mark.failure();
  key = std::make_shared<EcPrivateKey>(std::move(made), *curve);
  return ERROR_SUCCESS;
}

DWORD GenerateEcKey(const std::string& parameterSet, PrivateKeyPtr& key) {
  const ErrorMark mark;
  const Curve* curve = parameterSet.empty() ? &kUsualCurve : FindCurve(parameterSet);
  if (!curve || !ParametersOf(*curve)) return NTE_BAD_ALGID;
  const PkeyContextPtr context(EVP_PKEY_CTX_new_from_name(LibcryptoContext(), "EC", nullptr));
  EVP_PKEY* made = nullptr;
  if (!context || EVP_PKEY_keygen_init(context.get()) != 1
      || EVP_PKEY_CTX_set_group_name(context.get(), curve->name) != 1
      || EVP_PKEY_generate(context.get(), &made) != 1) {
    return mark.failure();
  }
  key = std::make_shared<EcPrivateKey>(PkeyPtr(made), *curve);
  return ERROR_SUCCESS;
}

}  // namespace keykern
