// The exported functions of keys: making, importing, exporting, properties.
#include "keykern/agreed_key.h"
#include "keykern/call.h"
#include "keykern/derive/derivation.h"
#include "keykern/hash.h"
#include "keykern/key/key_codec.h"
#include "keykern/key_blob.h"
#include "keykern/key_pair.h"
#include "keykern/results.h"
#include "keykern/session_key.h"

namespace keykern {
namespace {

constexpr unsigned kLengthShift = 16;
constexpr DWORD kGenerateFlags = CRYPT_EXPORTABLE | CRYPT_USER_PROTECTED | CRYPT_CREATE_SALT | CRYPT_NO_SALT
    | CRYPT_PREGEN | CRYPT_ARCHIVABLE;

DWORD LengthIn(DWORD flags) { return flags >> kLengthShift; }
bool HasUnknown(DWORD flags) { return (flags & 0xFFFF & ~kGenerateFlags) != 0; }
bool IsExportable(DWORD flags) { return (flags & (CRYPT_EXPORTABLE | CRYPT_ARCHIVABLE)) != 0; }

DWORD Give(std::unique_ptr<KeyObject> key, HCRYPTKEY* handle) {
  *handle = OpenHandle(std::move(key));
  return ERROR_SUCCESS;
}

// --- generation ---

// AT_KEYEXCHANGE and AT_SIGNATURE stand for the provider type's own family.
const FamilyRow* FamilyFor(const Provider& provider, ALG_ID& algorithm) {
  if (algorithm != AT_KEYEXCHANGE && algorithm != AT_SIGNATURE) return FindFamily(algorithm);
  const DWORD type = provider.row().type == PROV_RSA_FULL ? DWORD{PROV_RSA_AES} : provider.row().type;
  for (const FamilyRow& row : kFamilies) {
    if (row.providerType != type) continue;
    algorithm = algorithm == AT_SIGNATURE || !row.exchange ? row.signature : row.exchange;
    return &row;
  }
  return nullptr;
}

DWORD Generate(HCRYPTPROV providerHandle, ALG_ID algorithm, DWORD flags, HCRYPTKEY* handle) {
  if (!handle) return ERROR_INVALID_PARAMETER;
  const Pinned<Provider> provider(providerHandle);
  if (!provider) return ERROR_INVALID_HANDLE;
  if (HasUnknown(flags)) return NTE_BAD_FLAGS;
  std::unique_ptr<KeyObject> key;
  if (FindCipher(algorithm)) {
    if (flags & CRYPT_PREGEN) return NTE_BAD_FLAGS;
    if (const DWORD code = NewSessionKey(algorithm, LengthIn(flags), IsExportable(flags), key)) return code;
    return Give(std::move(key), handle);
  }
  const FamilyRow* row = FamilyFor(*provider, algorithm);
  if (!row) return NTE_BAD_ALGID;
  auto pair = std::make_unique<KeyPair>(provider, algorithm, SpecOf(algorithm), IsExportable(flags));
  pair->holdPending({row->family, LengthIn(flags), {}});
  if (!(flags & CRYPT_PREGEN)) {
    PrivateKeyPtr made;
    if (const DWORD code = pair->privateKey(made)) return code;
  }
  return Give(std::move(pair), handle);
}

// --- derivation ---

// The bits that others count with parity left out.
DWORD KeyBits(ALG_ID algorithm, DWORD asked, const CipherRow& cipher) {
  if (!asked) return cipher.keyBits;
  if (algorithm == CALG_3DES && asked == 168) return 192;
  if (algorithm == CALG_3DES_112 && asked == 112) return 128;
  if (algorithm == CALG_DES && asked == 56) return 64;
  return asked;
}

DWORD Derive(HCRYPTPROV providerHandle, ALG_ID algorithm, HCRYPTHASH hashHandle, DWORD flags,
             HCRYPTKEY* handle) {
  if (!handle) return ERROR_INVALID_PARAMETER;
  const Pinned<Provider> provider(providerHandle);
  const Pinned<Hash> hash(hashHandle);
  if (!provider || !hash) return ERROR_INVALID_HANDLE;
  if (HasUnknown(flags) || flags & CRYPT_PREGEN) return NTE_BAD_FLAGS;
  const CipherRow* cipher = FindCipher(algorithm);
  if (!cipher && algorithm != CALG_HMAC_KEY) return NTE_BAD_ALGID;
  HashValue value;
  SignatureInput input;
  if (const DWORD code = hash->finish(false, value, input)) return code;
  if (input.hash == CALG_MESSAGE_ITSELF) return NTE_BAD_HASH;
  const DWORD bits = cipher ? KeyBits(algorithm, LengthIn(flags), *cipher) : LengthIn(flags);
  if (bits % 8) return NTE_BAD_LEN;
  SecretBytes bytes(bits ? bits / 8 : input.value.size());
  if (!KeyFromHash(input.hash, input.value, bytes)) return NTE_BAD_LEN;
  std::unique_ptr<KeyObject> key;
  if (const DWORD code = MakeSessionKey(algorithm, std::move(bytes), IsExportable(flags), key)) return code;
  return Give(std::move(key), handle);
}

// --- keys of the container ---

DWORD GetUserKey(HCRYPTPROV providerHandle, DWORD spec, HCRYPTKEY* handle) {
  if (!handle) return ERROR_INVALID_PARAMETER;
  const Pinned<Provider> provider(providerHandle);
  if (!provider) return ERROR_INVALID_HANDLE;
  if (spec != AT_KEYEXCHANGE && spec != AT_SIGNATURE) return NTE_NO_KEY;
  PublicKeyPtr half;
  ALG_ID algorithm = 0;
  bool exportable = false;
  if (const DWORD code = provider->keySet().loadPublic(spec, half, algorithm, exportable)) return code;
  auto pair = std::make_unique<KeyPair>(provider, algorithm, spec, exportable);
  pair->holdPublic(std::move(half));
  return Give(std::move(pair), handle);
}

// --- blobs ---

DWORD Import(HCRYPTPROV providerHandle, std::span<const BYTE> blob, HCRYPTKEY wrappingHandle, DWORD flags,
             HCRYPTKEY* handle) {
  if (!handle || !blob.data()) return ERROR_INVALID_PARAMETER;
  const Pinned<Provider> provider(providerHandle);
  if (!provider) return ERROR_INVALID_HANDLE;
  const Pinned<KeyObject> wrapping(wrappingHandle);
  if (wrappingHandle && !wrapping) return ERROR_INVALID_HANDLE;
  std::unique_ptr<KeyObject> key;
  if (const DWORD code = ImportKey(provider, blob, wrapping ? &*wrapping : nullptr, flags, key)) return code;
  return Give(std::move(key), handle);
}

DWORD Export(HCRYPTKEY keyHandle, HCRYPTKEY wrappingHandle, DWORD type, DWORD flags, BYTE* out, DWORD* size) {
  if (!size) return ERROR_INVALID_PARAMETER;
  const Pinned<KeyObject> key(keyHandle);
  const Pinned<KeyObject> wrapping(wrappingHandle);
  if (!key || (wrappingHandle && !wrapping)) return ERROR_INVALID_HANDLE;
  SecretBytes blob;
  if (const DWORD code = ExportKey(*key, wrapping ? &*wrapping : nullptr, type, flags, blob)) return code;
  return GiveBytes(blob, out, size);
}

DWORD Duplicate(HCRYPTKEY handle, const DWORD* reserved, DWORD flags, HCRYPTKEY* other) {
  if (reserved || !other) return ERROR_INVALID_PARAMETER;
  if (flags) return NTE_BAD_FLAGS;
  const Pinned<KeyObject> key(handle);
  if (!key) return ERROR_INVALID_HANDLE;
  std::unique_ptr<KeyObject> copy;
  if (const DWORD code = key->copy(copy)) return code;
  return Give(std::move(copy), other);
}

}  // namespace
}  // namespace keykern

using namespace keykern;  // NOLINT(google-build-using-namespace): the rest of this file is the exported surface

extern "C" {

BOOL CryptGenKey(HCRYPTPROV hProv, ALG_ID Algid, DWORD dwFlags, HCRYPTKEY* phKey) {
  return Call([&] { return Generate(hProv, Algid, dwFlags, phKey); });
}

BOOL CryptDeriveKey(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTHASH hBaseData, DWORD dwFlags, HCRYPTKEY* phKey) {
  return Call([&] { return Derive(hProv, Algid, hBaseData, dwFlags, phKey); });
}

BOOL CryptGetUserKey(HCRYPTPROV hProv, DWORD dwKeySpec, HCRYPTKEY* phUserKey) {
  return Call([&] { return GetUserKey(hProv, dwKeySpec, phUserKey); });
}

BOOL CryptImportKey(HCRYPTPROV hProv, const BYTE* pbData, DWORD dwDataLen, HCRYPTKEY hPubKey, DWORD dwFlags,
                    HCRYPTKEY* phKey) {
  return Call([&] { return Import(hProv, {pbData, dwDataLen}, hPubKey, dwFlags, phKey); });
}

BOOL CryptExportKey(HCRYPTKEY hKey, HCRYPTKEY hExpKey, DWORD dwBlobType, DWORD dwFlags, BYTE* pbData,
                    DWORD* pdwDataLen) {
  return Call([&] { return Export(hKey, hExpKey, dwBlobType, dwFlags, pbData, pdwDataLen); });
}

BOOL CryptDuplicateKey(HCRYPTKEY hKey, DWORD* pdwReserved, DWORD dwFlags, HCRYPTKEY* phKey) {
  return Call([&] { return Duplicate(hKey, pdwReserved, dwFlags, phKey); });
}

BOOL CryptDestroyKey(HCRYPTKEY hKey) {
  return Call([&]() -> DWORD { return CloseHandle<KeyObject>(hKey) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE; });
}

BOOL CryptGetKeyParam(HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags) {
  return Call([&]() -> DWORD {
    const Pinned<KeyObject> key(hKey);
    if (!key) return ERROR_INVALID_HANDLE;
    if (dwFlags) return NTE_BAD_FLAGS;
    return key->getParam(dwParam, pbData, pdwDataLen);
  });
}

BOOL CryptSetKeyParam(HCRYPTKEY hKey, DWORD dwParam, const BYTE* pbData, DWORD dwFlags) {
  return Call([&]() -> DWORD {
    const Pinned<KeyObject> key(hKey);
    if (!key) return ERROR_INVALID_HANDLE;
    if (dwFlags) return NTE_BAD_FLAGS;
    return key->setParam(dwParam, pbData);
  });
}

}  // extern "C"
