#include "keykern/agreed_key.h"

#include "keykern/algorithms.h"
#include "keykern/cipher/cipher.h"
#include "keykern/crypto_library.h"
#include "keykern/derive/derivation.h"
#include "keykern/derive/key_wrap.h"
#include "keykern/results.h"
#include "platform/limits.h"

namespace keykern {
namespace {

constexpr size_t kGostUkm = 8;
constexpr size_t kKegUkm = 32;
constexpr size_t kGostKek = 32;
constexpr size_t kKegIv = 24;  // where the initial value stands in the UKM. RFC 9189, 8.3.1

bool IsKexp(ALG_ID method) { return method == CALG_EXPORT_KEXP15_M || method == CALG_EXPORT_KEXP15_K; }
bool IsStandardWrap(ALG_ID method) {
  return method == CALG_AES_128 || method == CALG_AES_192 || method == CALG_AES_256 || method == CALG_3DES;
}
ALG_ID KexpCipher(ALG_ID method) {
  return method == CALG_EXPORT_KEXP15_M ? CALG_GR3412_2015_M : CALG_GR3412_2015_K;
}

}  // namespace

AgreedKey::AgreedKey(PrivateKeyPtr own, PublicKeyPtr peer, ALG_ID algorithm)
    : own_(std::move(own)), peer_(std::move(peer)), algorithm_(algorithm) {
  // RFC 4357 for keys of 2001, RFC 7836 for those of 2012
  box_ = own_->family() == Family::Gost2001 ? "1.2.643.2.2.31.1" : "1.2.643.7.1.2.5.1.1";
}

// --- the three ways to a wrapping key ---

DWORD AgreedKey::gostKek(std::span<const BYTE> ukm, SecretBytes& kek) const {
  return own_->vko(*peer_, ukm, kGostKek, kek);
}

DWORD AgreedKey::kexpKeys(SecretBytes& keys, std::span<const BYTE>& iv) const {
  if (ukm_.size() != kKegUkm) return NTE_BAD_KEY_STATE;
  const CipherRow* cipher = FindCipher(KexpCipher(method_));
  iv = std::span(ukm_).subspan(kKegIv, cipher->blockSize / 2);
  return own_->keg(*peer_, ukm_, keys);
}

DWORD AgreedKey::standardKek(ALG_ID cipher, SecretBytes& kek) const {
  SecretBytes secret;
  if (const DWORD code = own_->ecdh(*peer_, secret)) return code;
  kek.resize(FindCipher(cipher)->keyBits / 8);
  return X963Kdf(kdfHash_, secret, kdfInfo_, kek) ? ERROR_SUCCESS : NTE_FAIL;
}

DWORD AgreedKey::wrap(std::span<const BYTE> key, ALG_ID& method, SecretBytes& wrapped) {
  const std::lock_guard lock(mutex_);
  method = method_;
  SecretBytes kek;
  if (IsGostWrap(method)) {
    if (ukm_.empty()) {
      ukm_ = SecretBytes(kGostUkm);
      if (!RandomBytes(ukm_)) return NTE_FAIL;
    }
    if (ukm_.size() != kGostUkm) return NTE_BAD_KEY_STATE;
    if (const DWORD code = gostKek(ukm_, kek)) return code;
    return GostWrap(method, kek, box_, ukm_, key, wrapped);
  }
  if (IsKexp(method)) {
    std::span<const BYTE> iv;
    if (const DWORD code = kexpKeys(kek, iv)) return code;
    return KExp15(KexpCipher(method), kek, iv, key, wrapped);
  }
  if (!IsStandardWrap(method)) return NTE_BAD_KEY_STATE;
  if (const DWORD code = standardKek(method, kek)) return code;
  return StandardWrap(method, kek, key, wrapped);
}

DWORD AgreedKey::unwrap(ALG_ID method, std::span<const BYTE> wrapped, SecretBytes& key) {
  const std::lock_guard lock(mutex_);
  if (method != method_) return NTE_BAD_KEY_STATE;
  SecretBytes kek;
  if (IsGostWrap(method)) {
    if (wrapped.size() < kGostUkm) return NTE_BAD_DATA;
    if (const DWORD code = gostKek(wrapped.first(kGostUkm), kek)) return code;
    return GostUnwrap(method, kek, box_, wrapped, key);
  }
  if (IsKexp(method)) {
    std::span<const BYTE> iv;
    if (const DWORD code = kexpKeys(kek, iv)) return code;
    return KImp15(KexpCipher(method), kek, iv, wrapped, key);
  }
  if (!IsStandardWrap(method)) return NTE_BAD_KEY_STATE;
  if (const DWORD code = standardKek(method, kek)) return code;
  return StandardUnwrap(method, kek, wrapped, key);
}

// --- parameters ---

DWORD AgreedKey::getParam(DWORD param, BYTE* out, DWORD* size) {
  if (!size) return ERROR_INVALID_PARAMETER;
  const std::lock_guard lock(mutex_);
  switch (param) {
    case KP_ALGID:
      return GiveRecord(method_ ? method_ : algorithm_, out, size);
    case KP_KEYLEN:
      return GiveRecord(peer_->bits(), out, size);
    case KP_IV:
      return GiveBytes(ukm_, out, size);
    case KP_CIPHEROID:
      if (!IsGost(own_->family())) return NTE_BAD_TYPE;
      return GiveText(box_, reinterpret_cast<char*>(out), size);
    case KP_KDF_HASH:
      return GiveRecord(kdfHash_, out, size);
    case KP_PERMISSIONS:
      return GiveRecord(DWORD{CRYPT_READ | CRYPT_WRITE}, out, size);
    default:
      return NTE_BAD_TYPE;
  }
}

DWORD AgreedKey::setAlgorithm(ALG_ID algorithm) {
  const bool gost = IsGost(own_->family());
  const bool fits = gost ? IsGostWrap(algorithm) || IsKexp(algorithm) : IsStandardWrap(algorithm);
  if (!fits) return NTE_BAD_ALGID;
  method_ = algorithm;
  ukm_.clear();
  return ERROR_SUCCESS;
}

// As many bytes as the method takes, which is therefore set first.
DWORD AgreedKey::setUkm(const BYTE* data) {
  if (!IsGostWrap(method_) && !IsKexp(method_)) return NTE_BAD_KEY_STATE;
  ukm_ = certkern::ToSecret({data, IsKexp(method_) ? kKegUkm : kGostUkm});
  return ERROR_SUCCESS;
}

DWORD AgreedKey::setParam(DWORD param, const BYTE* data) {
  if (!data) return ERROR_INVALID_PARAMETER;
  const std::lock_guard lock(mutex_);
  switch (param) {
    case KP_ALGID:
      return setAlgorithm(WordOf(data));
    case KP_IV:
      return setUkm(data);
    case KP_CIPHEROID:
      if (!IsSubstitutionBox(reinterpret_cast<const char*>(data))) return NTE_BAD_DATA;
      box_ = reinterpret_cast<const char*>(data);
      return ERROR_SUCCESS;
    case KP_KDF_HASH:
      if (!FindHash(WordOf(data))) return NTE_BAD_ALGID;
      kdfHash_ = WordOf(data);
      return ERROR_SUCCESS;
    case KP_KDF_INFO: {
      const CRYPT_DATA_BLOB info = BlobOf(data);
      if ((!info.pbData && info.cbData) || info.cbData > certkern::kMaxKeyBlob)
        return ERROR_INVALID_PARAMETER;
      kdfInfo_.assign(info.pbData, info.pbData + info.cbData);
      return ERROR_SUCCESS;
    }
    default:
      return NTE_BAD_TYPE;
  }
}

DWORD AgreedKey::copy(std::unique_ptr<KeyObject>& other) const {
  const std::lock_guard lock(mutex_);
  auto twin = std::make_unique<AgreedKey>(own_, peer_, algorithm_);
  twin->method_ = method_;
  twin->ukm_ = ukm_;
  twin->box_ = box_;
  twin->kdfHash_ = kdfHash_;
  twin->kdfInfo_ = kdfInfo_;
  other = std::move(twin);
  return ERROR_SUCCESS;
}

}  // namespace keykern
