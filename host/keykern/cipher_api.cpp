// The exported functions that encrypt and decrypt.
#include "keykern/call.h"
#include "keykern/hash.h"
#include "keykern/key_pair.h"
#include "keykern/key_transport.h"
#include "keykern/session_key.h"

#include <algorithm>

namespace keykern {
namespace {

// A hash may run over the plaintext beside a cipher.
DWORD Feed(HCRYPTHASH handle, std::span<const BYTE> data) {
  if (!handle) return ERROR_SUCCESS;
  const Pinned<Hash> hash(handle);
  return hash ? hash->add(data) : ERROR_INVALID_HANDLE;
}

// RSA takes one piece, and its result is little-endian as all numbers here are.
DWORD EncryptByRsa(KeyPair& pair, DWORD flags, BYTE* data, DWORD* size, DWORD room) {
  PublicKeyPtr half;
  if (const DWORD code = pair.publicKey(half)) return code;
  if (half->family() != Family::Rsa) return NTE_BAD_KEY;
  const DWORD whole = (half->bits() + 7) / 8;
  if (!data || room < whole) {
    *size = whole;
    return data ? ERROR_MORE_DATA : ERROR_SUCCESS;
  }
  WrappedKey wrapped;
  if (const DWORD code = WrapKey(pair, flags, {data, *size}, wrapped)) return code;
  std::copy(wrapped.bytes.begin(), wrapped.bytes.end(), data);
  *size = static_cast<DWORD>(wrapped.bytes.size());
  return ERROR_SUCCESS;
}

DWORD DecryptByRsa(KeyPair& pair, DWORD flags, BYTE* data, DWORD* size) {
  if (!data) return ERROR_INVALID_PARAMETER;
  PrivateKeyPtr own;
  if (const DWORD code = pair.privateKey(own)) return code;
  RsaPadding padding{.oaep = (flags & CRYPT_OAEP) != 0};
  SecretBytes label;
  pair.oaep(padding.oaepHash, label);
  padding.label = label;
  SecretBytes cipherText(data, data + *size);
  std::reverse(cipherText.begin(), cipherText.end());
  SecretBytes plain;
  if (const DWORD code = own->decrypt(padding, cipherText, plain)) return code;
  if (plain.size() > *size) return NTE_BAD_DATA;
  std::copy(plain.begin(), plain.end(), data);
  *size = static_cast<DWORD>(plain.size());
  return ERROR_SUCCESS;
}

DWORD Encrypt(HCRYPTKEY keyHandle, HCRYPTHASH hash, bool last, DWORD flags, BYTE* data, DWORD* size,
              DWORD room) {
  if (!size) return ERROR_INVALID_PARAMETER;
  const Pinned<KeyObject> key(keyHandle);
  if (!key) return ERROR_INVALID_HANDLE;
  if (flags & ~CRYPT_OAEP) return NTE_BAD_FLAGS;
  if (data && *size > room) return ERROR_MORE_DATA;
  if (data) {
    // sizing first: a hash must not run over a piece that is given again
    DWORD needed = *size;
    if (SessionKey* session = key->session()) {
      if (const DWORD code = session->encrypt(last, nullptr, &needed, 0)) return code;
      if (needed > room) return *size = needed, ERROR_MORE_DATA;
    }
    if (const DWORD code = Feed(hash, {data, *size})) return code;
  }
  if (SessionKey* session = key->session()) return session->encrypt(last, data, size, room);
  if (KeyPair* pair = key->pair()) return EncryptByRsa(*pair, flags, data, size, room);
  return NTE_BAD_KEY;
}

DWORD Decrypt(HCRYPTKEY keyHandle, HCRYPTHASH hash, bool last, DWORD flags, BYTE* data, DWORD* size) {
  if (!size) return ERROR_INVALID_PARAMETER;
  const Pinned<KeyObject> key(keyHandle);
  if (!key) return ERROR_INVALID_HANDLE;
  if (flags & ~CRYPT_OAEP) return NTE_BAD_FLAGS;
  DWORD code = NTE_BAD_KEY;
  if (SessionKey* session = key->session()) code = session->decrypt(last, data, size);
  if (KeyPair* pair = key->pair()) code = DecryptByRsa(*pair, flags, data, size);
  return code ? code : Feed(hash, {data, *size});
}

}  // namespace
}  // namespace keykern

using namespace keykern;  // NOLINT(google-build-using-namespace): the rest of this file is the exported surface

extern "C" {

BOOL CryptEncrypt(HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final, DWORD dwFlags, BYTE* pbData,
                  DWORD* pdwDataLen, DWORD dwBufLen) {
  return Call([&] { return Encrypt(hKey, hHash, Final != FALSE, dwFlags, pbData, pdwDataLen, dwBufLen); });
}

BOOL CryptDecrypt(HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final, DWORD dwFlags, BYTE* pbData,
                  DWORD* pdwDataLen) {
  return Call([&] { return Decrypt(hKey, hHash, Final != FALSE, dwFlags, pbData, pdwDataLen); });
}

}  // extern "C"
