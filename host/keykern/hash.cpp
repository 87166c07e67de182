#include "keykern/hash.h"

#include "keykern/call.h"
#include "keykern/results.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <cstring>

namespace keykern {
namespace {

// The parameter sets of GOST R 34.11-94. RFC 4357, 11.2. The first is what a new hash has.
struct ParameterSet {
  std::string_view oid;
  DigestMaker newDigest;
};
constexpr ParameterSet kGost94Sets[] = {
    {"1.2.643.2.2.30.1", NewGost94    },
    {"1.2.643.2.2.30.0", NewGost94Test},
};

}  // namespace

Hash::Hash(Pinned<Provider> provider, const Algorithm& algorithm, std::unique_ptr<Digest> digest)
    : provider_(std::move(provider)), algorithm_(algorithm), digest_(std::move(digest)) {}

Hash::~Hash() { OPENSSL_cleanse(value_.data(), value_.size()); }

DWORD Hash::add(std::span<const BYTE> data) {
  const std::lock_guard lock(mutex_);
  if (ended_) return NTE_BAD_HASH_STATE;
  if (data.empty()) return ERROR_SUCCESS;
  started_ = true;
  return digest_->add(data) ? ERROR_SUCCESS : NTE_FAIL;
}

DWORD Hash::getValue(BYTE* out, DWORD* size) {
  // what does not take the value away must not end the hash
  if (!out || *size < this->size()) return GiveBytes(value(), out, size);
  if (!ended_ && !digest_->finish(value())) return NTE_FAIL;
  ended_ = true;
  return GiveBytes(value(), out, size);
}

DWORD Hash::getParam(DWORD param, BYTE* out, DWORD* size) {
  if (!size) return ERROR_INVALID_PARAMETER;
  const std::lock_guard lock(mutex_);
  switch (param) {
    case HP_ALGID:
      return GiveRecord(algorithm_.id, out, size);
    case HP_HASHVAL:
      return getValue(out, size);
    case HP_HASHSIZE:
      return GiveRecord(this->size(), out, size);
    case HP_OID:
      if (algorithm_.id != CALG_GR3411) return NTE_BAD_TYPE;
      return GiveText(kGost94Sets[parameterSet_].oid, reinterpret_cast<char*>(out), size);
    default:
      return NTE_BAD_TYPE;
  }
}

DWORD Hash::setParameterSet(const char* oid) {
  if (algorithm_.id != CALG_GR3411) return NTE_BAD_TYPE;
  if (started_ || ended_) return NTE_BAD_HASH_STATE;
  const auto* set = std::find_if(std::begin(kGost94Sets), std::end(kGost94Sets),
                                 [oid](const ParameterSet& row) { return row.oid == oid; });
  if (set == std::end(kGost94Sets)) return NTE_BAD_DATA;
  std::unique_ptr<Digest> digest = set->newDigest();
  if (!digest) return NTE_BAD_ALGID;
  digest_ = std::move(digest);
  parameterSet_ = static_cast<size_t>(set - kGost94Sets);
  return ERROR_SUCCESS;
}

std::unique_ptr<Digest> Hash::newDigest() const {
  return algorithm_.id == CALG_GR3411 ? kGost94Sets[parameterSet_].newDigest() : algorithm_.newDigest();
}

DWORD Hash::restart() {
  if (!digest_->restart()) return NTE_FAIL;
  started_ = false;
  ended_ = false;
  return ERROR_SUCCESS;
}

DWORD Hash::setParam(DWORD param, const BYTE* data) {
  const std::lock_guard lock(mutex_);
  if (param == HP_HASHSTARTVECT_RESET) return restart();
  if (!data) return ERROR_INVALID_PARAMETER;
  switch (param) {
    case HP_HASHVAL:
      if (ended_) return NTE_BAD_HASH_STATE;
      std::copy_n(data, size(), value_.begin());
      ended_ = true;
      return ERROR_SUCCESS;
    case HP_OID:
      return setParameterSet(reinterpret_cast<const char*>(data));
    default:
      return NTE_BAD_TYPE;
  }
}

DWORD Hash::copy(std::unique_ptr<Hash>& other) const {
  const std::lock_guard lock(mutex_);
  // a digest that was finished has nothing to copy, and only begins again
  std::unique_ptr<Digest> digest = ended_ ? newDigest() : digest_->copy();
  if (!digest) return NTE_NO_MEMORY;
  other = std::make_unique<Hash>(provider_, algorithm_, std::move(digest));
  other->parameterSet_ = parameterSet_;
  other->started_ = started_;
  other->ended_ = ended_;
  other->value_ = value_;
  return ERROR_SUCCESS;
}

namespace {

DWORD Create(HCRYPTPROV providerHandle, ALG_ID id, HCRYPTKEY key, DWORD flags, HCRYPTHASH* handle) {
  if (!handle) return ERROR_INVALID_PARAMETER;
  Pinned<Provider> provider(providerHandle);
  if (!provider) return ERROR_INVALID_HANDLE;
  const Algorithm* algorithm = FindAlgorithm(id);
  if (!algorithm || !algorithm->newDigest) return NTE_BAD_ALGID;
  if (key) return NTE_BAD_KEY;  // none of these is keyed
  if (flags) return NTE_BAD_FLAGS;
  std::unique_ptr<Digest> digest = algorithm->newDigest();
  if (!digest) return NTE_BAD_ALGID;
  *handle = OpenHandle(std::make_unique<Hash>(std::move(provider), *algorithm, std::move(digest)));
  return ERROR_SUCCESS;
}

DWORD Duplicate(HCRYPTHASH handle, const DWORD* reserved, DWORD flags, HCRYPTHASH* other) {
  if (reserved || !other) return ERROR_INVALID_PARAMETER;
  if (flags) return NTE_BAD_FLAGS;
  const Pinned<Hash> hash(handle);
  if (!hash) return ERROR_INVALID_HANDLE;
  std::unique_ptr<Hash> copy;
  if (const DWORD code = hash->copy(copy)) return code;
  *other = OpenHandle(std::move(copy));
  return ERROR_SUCCESS;
}

}  // namespace
}  // namespace keykern

using namespace keykern;  // NOLINT(google-build-using-namespace): the rest of this file is the exported surface

extern "C" {

BOOL CryptCreateHash(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTKEY hKey, DWORD dwFlags, HCRYPTHASH* phHash) {
  return Call([&] { return Create(hProv, Algid, hKey, dwFlags, phHash); });
}

BOOL CryptHashData(HCRYPTHASH hHash, const BYTE* pbData, DWORD dwDataLen, DWORD dwFlags) {
  return Call([&]() -> DWORD {
    const Pinned<Hash> hash(hHash);
    if (!hash) return ERROR_INVALID_HANDLE;
    if (!pbData && dwDataLen) return ERROR_INVALID_PARAMETER;
    if (dwFlags) return NTE_BAD_FLAGS;
    return hash->add({pbData, dwDataLen});
  });
}

BOOL CryptGetHashParam(HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags) {
  return Call([&]() -> DWORD {
    const Pinned<Hash> hash(hHash);
    if (!hash) return ERROR_INVALID_HANDLE;
    if (dwFlags) return NTE_BAD_FLAGS;
    return hash->getParam(dwParam, pbData, pdwDataLen);
  });
}

BOOL CryptSetHashParam(HCRYPTHASH hHash, DWORD dwParam, const BYTE* pbData, DWORD dwFlags) {
  return Call([&]() -> DWORD {
    const Pinned<Hash> hash(hHash);
    if (!hash) return ERROR_INVALID_HANDLE;
    if (dwFlags) return NTE_BAD_FLAGS;
    return hash->setParam(dwParam, pbData);
  });
}

BOOL CryptDuplicateHash(HCRYPTHASH hHash, DWORD* pdwReserved, DWORD dwFlags, HCRYPTHASH* phHash) {
  return Call([&] { return Duplicate(hHash, pdwReserved, dwFlags, phHash); });
}

BOOL CryptDestroyHash(HCRYPTHASH hHash) {
  return Call([&]() -> DWORD { return CloseHandle<Hash>(hHash) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE; });
}

}  // extern "C"
