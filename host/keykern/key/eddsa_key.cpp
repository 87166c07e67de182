// Ed25519 and Ed448, RFC 8032 and 8410, over libcrypto: they sign the message, not a hash of it.
#include "common/der.h"
#include "keykern/crypto_library.h"
#include "keykern/key/asymmetric_key.h"
#include "keykern/key/libcrypto_key.h"

#include <openssl/core_names.h>

#include <new>

namespace keykern {
namespace {

namespace der = certkern::der;

struct EdwardsCurve {
  const char* oid;
  const char* name;      // libcrypto's
  const char* hash;      // that a verification starts with, libcrypto's name
  size_t keySize;        // bytes, of either half
  size_t signatureSize;  // bytes
};
constexpr EdwardsCurve kCurves[] = {
    {"1.3.101.112", "ED25519", "SHA512",   32, 64 },
    {"1.3.101.113", "ED448",   "SHAKE256", 57, 114},
};

const EdwardsCurve* FindCurve(const std::string& oid) {
  for (const EdwardsCurve& curve : kCurves) {
    if (oid == curve.oid) return &curve;
  }
  return nullptr;
}

// RFC 8410, 3: the parameters must be absent.
const EdwardsCurve* ReadCurve(const std::string& oid, std::span<const BYTE> parameters) {
  return parameters.empty() ? FindCurve(oid) : nullptr;
}

// libcrypto's status: 1 for a signature that verifies, 0 otherwise.
int VerifyOnce(const PkeyPtr& key, std::span<const BYTE> message, std::span<const BYTE> signature) {
  const MdContextPtr context(EVP_MD_CTX_new());
  if (!context
      || EVP_DigestVerifyInit_ex(context.get(), nullptr, nullptr, LibcryptoContext(), nullptr, key.get(),
                                 nullptr)
          != 1)
    throw std::bad_alloc();
  return EVP_DigestVerify(context.get(), signature.data(), signature.size(), message.data(), message.size());
}

bool CanHash(const EdwardsCurve& curve) {
  const MdContextPtr context(EVP_MD_CTX_new());
  const std::unique_ptr<EVP_MD, LibcryptoFree<EVP_MD_free>> hash(
      EVP_MD_fetch(LibcryptoContext(), curve.hash, nullptr));
  return context && hash && EVP_DigestInit_ex2(context.get(), hash.get(), nullptr) == 1;
}

DWORD Judge(const SignatureInput& input) {
  if (input.pss) return NTE_BAD_FLAGS;
  return input.hash == CALG_MESSAGE_ITSELF ? ERROR_SUCCESS : NTE_BAD_ALGID;
}

class EdDsaPublicKey final : public PublicKey {
 public:
  EdDsaPublicKey(PkeyPtr key, const EdwardsCurve& curve) : key_(std::move(key)), curve_(curve) {}

  Family family() const override { return Family::EdDsa; }
  DWORD bits() const override { return static_cast<DWORD>(curve_.keySize * 8); }
  std::string parameterSet() const override { return curve_.oid; }
  const EdwardsCurve& curve() const { return curve_; }

  SecretBytes publicKeyInfo() const override {
    SecretBytes raw(curve_.keySize);
    size_t size = raw.size();
    if (EVP_PKEY_get_raw_public_key(key_.get(), raw.data(), &size) != 1) throw std::bad_alloc();
    return der::Sequence({der::AlgorithmIdentifier(curve_.oid, {}), der::BitString(raw)});
  }

  DWORD verify(const SignatureInput& input, std::span<const BYTE> signature) const override {
    if (const DWORD code = Judge(input)) return code;
    if (signature.size() != curve_.signatureSize) return NTE_BAD_SIGNATURE;
    const ErrorMark mark;
    const SecretBytes standard = Reversed(signature);
    if (VerifyOnce(key_, input.value, standard) == 1) return ERROR_SUCCESS;
    // Without a word libcrypto answers the same when its hash could not be had. So that is tried, and it is asked again.
    if (!CanHash(curve_)) return NTE_NO_MEMORY;
    return VerifyOnce(key_, input.value, standard) == 1 ? ERROR_SUCCESS : NTE_BAD_SIGNATURE;
  }

 private:
  const PkeyPtr key_;
  const EdwardsCurve& curve_;
};

class EdDsaPrivateKey final : public PrivateKey {
 public:
  EdDsaPrivateKey(PkeyPtr key, const EdwardsCurve& curve)
      : key_(std::move(key)), public_(std::make_shared<EdDsaPublicKey>(Share(key_), curve)) {}

  PublicKeyPtr publicKey() const override { return public_; }
  DWORD signatureSize() const override { return static_cast<DWORD>(public_->curve().signatureSize); }

  // CurvePrivateKey ::= OCTET STRING. RFC 8410, 7
  SecretBytes privateKeyInfo() const override {
    const ErrorMark mark;
    SecretBytes raw(public_->curve().keySize);
    size_t size = raw.size();
    // not EVP_PKEY_get_raw_private_key, which leaves a copy in freed memory
    if (EVP_PKEY_get_octet_string_param(key_.get(), OSSL_PKEY_PARAM_PRIV_KEY, raw.data(), raw.size(), &size)
        != 1)
      throw std::bad_alloc();
    return der::Sequence({der::Small(0), der::AlgorithmIdentifier(public_->curve().oid, {}),
                          der::OctetString(der::OctetString(raw))});
  }

  DWORD sign(const SignatureInput& input, SecretBytes& signature) const override {
    if (const DWORD code = Judge(input)) return code;
    const ErrorMark mark;
    const MdContextPtr context(EVP_MD_CTX_new());
    SecretBytes made(public_->curve().signatureSize);
    size_t size = made.size();
    if (!context
        || EVP_DigestSignInit_ex(context.get(), nullptr, nullptr, LibcryptoContext(), nullptr, key_.get(),
                                 nullptr)
            != 1
        || EVP_DigestSign(context.get(), made.data(), &size, input.value.data(), input.value.size()) != 1) {
      return mark.failure();
    }
    signature = Reversed(std::span(made).first(size));
    return ERROR_SUCCESS;
  }

 private:
  const PkeyPtr key_;
  const std::shared_ptr<const EdDsaPublicKey> public_;
};

}  // namespace

DWORD ParseEdDsaPublicKey(const std::string& oid, std::span<const BYTE> parameters,
                          std::span<const BYTE> bits, PublicKeyPtr& key) {
  const ErrorMark mark;
  const EdwardsCurve* curve = ReadCurve(oid, parameters);
  if (!curve || bits.size() != curve->keySize) return NTE_BAD_PUBLIC_KEY;
  PkeyPtr made(
      EVP_PKEY_new_raw_public_key_ex(LibcryptoContext(), curve->name, nullptr, bits.data(), bits.size()));
  if (!made) return mark.failure();
  key = std::make_shared<EdDsaPublicKey>(std::move(made), *curve);
  return ERROR_SUCCESS;
}

DWORD ParseEdDsaPrivateKey(const std::string& oid, std::span<const BYTE> parameters,
                           std::span<const BYTE> octets, PrivateKeyPtr& key) {
  const ErrorMark mark;
  const EdwardsCurve* curve = ReadCurve(oid, parameters);
  der::Reader in(octets);
  std::span<const BYTE> raw;
  if (!curve || !in.take(der::kOctetString, raw) || !in.empty() || raw.size() != curve->keySize) {
    return NTE_BAD_KEY;
  }
  PkeyPtr made(
      EVP_PKEY_new_raw_private_key_ex(LibcryptoContext(), curve->name, nullptr, raw.data(), raw.size()));
  if (!made) return mark.failure();
  key = std::make_shared<EdDsaPrivateKey>(std::move(made), *curve);
  return ERROR_SUCCESS;
}

DWORD GenerateEdDsaKey(const std::string& parameterSet, PrivateKeyPtr& key) {
  const ErrorMark mark;
  const EdwardsCurve* curve = parameterSet.empty() ? &kCurves[0] : FindCurve(parameterSet);
  if (!curve) return NTE_BAD_ALGID;
  const PkeyContextPtr context(EVP_PKEY_CTX_new_from_name(LibcryptoContext(), curve->name, nullptr));
  EVP_PKEY* made = nullptr;
  if (!context || EVP_PKEY_keygen_init(context.get()) != 1 || EVP_PKEY_generate(context.get(), &made) != 1) {
    return mark.failure();
  }
  key = std::make_shared<EdDsaPrivateKey>(PkeyPtr(made), *curve);
  return ERROR_SUCCESS;
}

}  // namespace keykern
