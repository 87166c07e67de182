// The exported functions that sign and verify.
#include "keykern/call.h"
#include "keykern/hash.h"
#include "keykern/key_pair.h"
#include "keykern/results.h"

namespace keykern {
namespace {

DWORD Sign(HCRYPTHASH hashHandle, DWORD spec, DWORD flags, BYTE* out, DWORD* size) {
  if (!size) return ERROR_INVALID_PARAMETER;
  const Pinned<Hash> hash(hashHandle);
  if (!hash) return ERROR_INVALID_HANDLE;
  if (flags & ~CRYPT_PSS) return NTE_BAD_FLAGS;
  KeyRecord record;
  if (const DWORD code = hash->provider()->loadKey(spec, record)) return code;
  const DWORD most = record.key->signatureSize();
  if (!out || *size < most) {
    // as the size is asked for, the hash goes on
    *size = most;
    return out ? ERROR_MORE_DATA : ERROR_SUCCESS;
  }
  HashValue value;
  SignatureInput input;
  if (const DWORD code = hash->finish((flags & CRYPT_PSS) != 0, value, input)) return code;
  SecretBytes signature;
  if (const DWORD code = record.key->sign(input, signature)) return code;
  return GiveBytes(signature, out, size);
}

DWORD Verify(HCRYPTHASH hashHandle, std::span<const BYTE> signature, HCRYPTKEY keyHandle, DWORD flags) {
  const Pinned<Hash> hash(hashHandle);
  const Pinned<KeyObject> key(keyHandle);
  if (!hash || !key) return ERROR_INVALID_HANDLE;
  if (flags & ~CRYPT_PSS) return NTE_BAD_FLAGS;
  if (!signature.data() && !signature.empty()) return ERROR_INVALID_PARAMETER;
  KeyPair* pair = key->pair();
  if (!pair) return NTE_BAD_KEY;
  PublicKeyPtr half;
  if (const DWORD code = pair->publicKey(half)) return code;
  HashValue value;
  SignatureInput input;
  if (const DWORD code = hash->finish((flags & CRYPT_PSS) != 0, value, input)) return code;
  return half->verify(input, signature);
}

}  // namespace
}  // namespace keykern

using namespace keykern;  // NOLINT(google-build-using-namespace): the rest of this file is the exported surface

extern "C" {

// The description takes part in nothing.
BOOL CryptSignHashA(HCRYPTHASH hHash, DWORD dwKeySpec, LPCSTR, DWORD dwFlags, BYTE* pbSignature,
                    DWORD* pdwSigLen) {
  return Call([&] { return Sign(hHash, dwKeySpec, dwFlags, pbSignature, pdwSigLen); });
}

BOOL CryptSignHashW(HCRYPTHASH hHash, DWORD dwKeySpec, LPCWSTR, DWORD dwFlags, BYTE* pbSignature,
                    DWORD* pdwSigLen) {
  return Call([&] { return Sign(hHash, dwKeySpec, dwFlags, pbSignature, pdwSigLen); });
}

BOOL CryptVerifySignatureA(HCRYPTHASH hHash, const BYTE* pbSignature, DWORD dwSigLen, HCRYPTKEY hPubKey,
                           LPCSTR, DWORD dwFlags) {
  return Call([&] { return Verify(hHash, {pbSignature, dwSigLen}, hPubKey, dwFlags); });
}

BOOL CryptVerifySignatureW(HCRYPTHASH hHash, const BYTE* pbSignature, DWORD dwSigLen, HCRYPTKEY hPubKey,
                           LPCWSTR, DWORD dwFlags) {
  return Call([&] { return Verify(hHash, {pbSignature, dwSigLen}, hPubKey, dwFlags); });
}

}  // extern "C"
