#include "keykern/key_pair.h"

#include "keykern/algorithms.h"
#include "keykern/derive/key_wrap.h"
#include "keykern/key/key_codec.h"
#include "keykern/results.h"
#include "platform/limits.h"

#include <array>

namespace keykern {
namespace {

constexpr DWORD kPublicPermissions = CRYPT_ENCRYPT | CRYPT_READ | CRYPT_WRITE;

std::string HexOf(std::span<const BYTE> bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const BYTE byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}

}  // namespace

size_t EncodedSize(const BYTE* encoded) {
  if (encoded[0] != 0x30) return 0;
  const size_t first = encoded[1];
  if (first < 0x80) return 2 + first;
  const size_t octets = first & 0x7F;
  if (octets == 0 || octets > 4) return 0;
  size_t size = 0;
  for (size_t i = 0; i < octets; ++i) size = size << 8 | encoded[2 + i];
  return 2 + octets + size;
}

KeyPair::KeyPair(Pinned<Provider> provider, ALG_ID algorithm, DWORD spec, bool exportable)
    : provider_(std::move(provider)), algorithm_(algorithm), spec_(spec), exportable_(exportable) {}

void KeyPair::holdPrivate(PrivateKeyPtr key) {
  public_ = key->publicKey();
  private_ = std::move(key);
}

DWORD KeyPair::generate() {
  PrivateKeyPtr key;
  if (const DWORD code = GenerateKey(pending_.family, pending_.bits, pending_.parameterSet, key)) return code;
  if (spec_) {
    if (const DWORD code = provider_->storeKey(spec_, {key, algorithm_, exportable_})) return code;
  }
  holdPrivate(std::move(key));
  isPending_ = false;
  return ERROR_SUCCESS;
}

DWORD KeyPair::publicKeyLocked(PublicKeyPtr& key) {
  if (isPending_) {
    if (const DWORD code = generate()) return code;
  }
  if (!public_) return NTE_BAD_KEY_STATE;
  key = public_;
  return ERROR_SUCCESS;
}

DWORD KeyPair::privateKeyLocked(PrivateKeyPtr& key) {
  PublicKeyPtr half;
  if (const DWORD code = publicKeyLocked(half)) return code;
  if (!private_) {
    if (!spec_) return NTE_NO_KEY;
    KeyRecord record;
    if (const DWORD code = provider_->loadKey(spec_, record)) return code;
    // another key may stand in its place by now: that one is not this handle's
    if (record.algorithm != algorithm_ || Fingerprint(*record.key->publicKey()) != Fingerprint(*half))
      return NTE_NO_KEY;
    exportable_ = record.exportable;
    private_ = std::move(record.key);
  }
  key = private_;
  return ERROR_SUCCESS;
}

DWORD KeyPair::publicKey(PublicKeyPtr& key) {
  const std::lock_guard lock(mutex_);
  return publicKeyLocked(key);
}

DWORD KeyPair::privateKey(PrivateKeyPtr& key) {
  const std::lock_guard lock(mutex_);
  return privateKeyLocked(key);
}

DWORD KeyPair::exportableKey(PrivateKeyPtr& key) {
  const std::lock_guard lock(mutex_);
  if (!exportable_) return NTE_BAD_KEY_STATE;
  PrivateKeyPtr loaded;
  if (const DWORD code = privateKeyLocked(loaded)) return code;
  if (!exportable_) return NTE_BAD_KEY_STATE;  // as the container says
  key = std::move(loaded);
  return ERROR_SUCCESS;
}

ALG_ID KeyPair::wrap() const {
  const std::lock_guard lock(mutex_);
  return wrap_;
}

void KeyPair::oaep(ALG_ID& hash, SecretBytes& label) const {
  const std::lock_guard lock(mutex_);
  hash = oaepHash_;
  label = oaepLabel_;
}

DWORD KeyPair::getCertificate(BYTE* out, DWORD* size) {
  if (!spec_) return NTE_BAD_TYPE;
  SecretBytes encoded;
  if (const DWORD code = provider_->keySet().certificate(spec_, encoded)) return code;
  return GiveBytes(encoded, out, size);
}

DWORD KeyPair::setCertificate(const BYTE* data) {
  // what lives in memory only has nowhere to keep a certificate
  if (!spec_ || !provider_->keySet().persistent()) return NTE_BAD_TYPE;
  const size_t size = EncodedSize(data);
  if (!size || size > certkern::kMaxContainerFile) return NTE_BAD_DATA;
  return provider_->keySet().setCertificate(spec_, {data, size});
}

DWORD KeyPair::setParameterSet(const char* oid) {
  if (!isPending_) return NTE_BAD_KEY_STATE;
  pending_.parameterSet = oid;
  return ERROR_SUCCESS;
}

DWORD KeyPair::getParam(DWORD param, BYTE* out, DWORD* size) {
  if (!size) return ERROR_INVALID_PARAMETER;
  const std::lock_guard lock(mutex_);
  switch (param) {
    case KP_ALGID:
      return GiveRecord(algorithm_, out, size);
    case KP_CERTIFICATE:
      return getCertificate(out, size);
    case KP_OAEP_HASH:
      return GiveRecord(oaepHash_, out, size);
    case KP_OAEP_LABEL:
      return GiveBytes(oaepLabel_, out, size);
    case KP_PERMISSIONS: {
      const bool whole = private_ || spec_ || isPending_;
      DWORD permissions = whole ? kPublicPermissions | CRYPT_DECRYPT : kPublicPermissions;
      if (exportable_ || !whole) permissions |= CRYPT_EXPORT;
      return GiveRecord(permissions, out, size);
    }
    default:
      break;
  }
  PublicKeyPtr key;
  if (const DWORD code = publicKeyLocked(key)) return code;
  switch (param) {
    case KP_KEYLEN:
      return GiveRecord(key->bits(), out, size);
    case KP_BLOCKLEN:
      return GiveRecord(key->family() == Family::Rsa ? key->bits() : DWORD{0}, out, size);
    case KP_CURVEOID: {
      const std::string set = key->parameterSet();
      return set.empty() ? NTE_BAD_TYPE : GiveText(set, reinterpret_cast<char*>(out), size);
    }
    case KP_FP:
      return GiveBytes(Fingerprint(*key), out, size);
    case KP_KEY_LABEL: {
      const std::string label = HexOf(Fingerprint(*key));
      return GiveBytes({reinterpret_cast<const BYTE*>(label.data()), label.size()}, out, size);
    }
    default:
      return NTE_BAD_TYPE;
  }
}

DWORD KeyPair::setParam(DWORD param, const BYTE* data) {
  const std::lock_guard lock(mutex_);
  if (param == KP_X) return isPending_ ? generate() : NTE_BAD_KEY_STATE;  // the one that takes no value
  if (!data) return ERROR_INVALID_PARAMETER;
  switch (param) {
    case KP_ALGID:
      if (!IsGostWrap(WordOf(data)) && WordOf(data) != algorithm_) return NTE_BAD_ALGID;
      wrap_ = IsGostWrap(WordOf(data)) ? WordOf(data) : 0;
      return ERROR_SUCCESS;
    case KP_CERTIFICATE:
      return setCertificate(data);
    case KP_CURVEOID:
      return setParameterSet(reinterpret_cast<const char*>(data));
    case KP_OAEP_HASH:
      if (!FindHash(WordOf(data))) return NTE_BAD_ALGID;
      oaepHash_ = WordOf(data);
      return ERROR_SUCCESS;
    case KP_OAEP_LABEL: {
      const CRYPT_DATA_BLOB label = BlobOf(data);
      if ((!label.pbData && label.cbData) || label.cbData > certkern::kMaxKeyBlob)
        return ERROR_INVALID_PARAMETER;
      oaepLabel_.assign(label.pbData, label.pbData + label.cbData);
      return ERROR_SUCCESS;
    }
    default:
      return NTE_BAD_TYPE;
  }
}

DWORD KeyPair::copy(std::unique_ptr<KeyObject>& other) const {
  const std::lock_guard lock(mutex_);
  if (isPending_) return NTE_BAD_KEY_STATE;
  auto twin = std::make_unique<KeyPair>(provider_, algorithm_, spec_, exportable_);
  twin->public_ = public_;
  twin->private_ = private_;
  twin->wrap_ = wrap_;
  twin->oaepHash_ = oaepHash_;
  twin->oaepLabel_ = oaepLabel_;
  other = std::move(twin);
  return ERROR_SUCCESS;
}

}  // namespace keykern
