// The exported functions of hashes.
#include "keykern/call.h"
#include "keykern/hash.h"
#include "keykern/session_key.h"

namespace keykern {
namespace {

DWORD KeyHash(Hash& hash, HCRYPTKEY handle) {
  const Pinned<KeyObject> key(handle);
  if (!key) return ERROR_INVALID_HANDLE;
  SessionKey* session = key->session();
  return session ? hash.setKey(session->settings().key) : NTE_BAD_KEY;
}

DWORD Create(HCRYPTPROV providerHandle, ALG_ID id, HCRYPTKEY key, DWORD flags, HCRYPTHASH* handle) {
  if (!handle) return ERROR_INVALID_PARAMETER;
  Pinned<Provider> provider(providerHandle);
  if (!provider) return ERROR_INVALID_HANDLE;
  const Algorithm* algorithm = FindAlgorithm(id);
  if (!algorithm || algorithm->kind == AlgorithmKind::Key) return NTE_BAD_ALGID;
  if (flags) return NTE_BAD_FLAGS;
  const bool keyed = algorithm->kind == AlgorithmKind::Hmac;
  if (key && !keyed) return NTE_BAD_KEY;
  if (id == CALG_HMAC && !key) return NTE_BAD_KEY;  // it has no parameter that could bring one
  std::unique_ptr<Digest> digest;
  if (algorithm->newDigest) {
    digest = algorithm->newDigest();
    if (!digest) return NTE_BAD_ALGID;
  } else if (!IsAvailable(*algorithm)) {
    return NTE_BAD_ALGID;
  }
  auto hash = std::make_unique<Hash>(std::move(provider), *algorithm, std::move(digest));
  if (key) {
    if (const DWORD code = KeyHash(*hash, key)) return code;
  }
  *handle = OpenHandle(std::move(hash));
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
