// The key level as a caller has it: owners, and calls that a test expects to succeed.
#ifndef CERTKERN_TESTS_HOST_KEYKERN_KEY_LEVEL_H
#define CERTKERN_TESTS_HOST_KEYKERN_KEY_LEVEL_H

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/owner.h"

using ProviderHandle = certkern::Owner<HCRYPTPROV, CryptReleaseContext>;
using HashHandle = certkern::Owner<HCRYPTHASH, CryptDestroyHash>;
using KeyHandle = certkern::Owner<HCRYPTKEY, CryptDestroyKey>;
using ByteVector = std::vector<BYTE>;

inline std::span<const BYTE> Bytes(std::string_view text) {
  return {reinterpret_cast<const BYTE*>(text.data()), text.size()};
}

inline ProviderHandle VerifyContext(DWORD type = PROV_GOST_2012_256) {
  ProviderHandle provider;
  EXPECT_TRUE(CryptAcquireContextA(provider.out(), nullptr, nullptr, type, CRYPT_VERIFYCONTEXT));
  return provider;
}

inline HashHandle NewHash(const ProviderHandle& provider, ALG_ID algorithm, HCRYPTKEY key = 0) {
  HashHandle hash;
  EXPECT_TRUE(CryptCreateHash(provider.get(), algorithm, key, 0, hash.out())) << std::hex << GetLastError();
  return hash;
}

inline HashHandle HashOf(const ProviderHandle& provider, ALG_ID algorithm, std::span<const BYTE> data) {
  HashHandle hash = NewHash(provider, algorithm);
  EXPECT_TRUE(CryptHashData(hash.get(), data.data(), static_cast<DWORD>(data.size()), 0));
  return hash;
}

// A hash that was given its value: what keys are derived from.
inline HashHandle Carrier(const ProviderHandle& provider, ALG_ID algorithm, ByteVector value) {
  HashHandle hash = NewHash(provider, algorithm);
  value.resize(64);
  EXPECT_TRUE(CryptSetHashParam(hash.get(), HP_HASHVAL, value.data(), 0));
  return hash;
}

inline KeyHandle Generate(const ProviderHandle& provider, ALG_ID algorithm, DWORD flags = CRYPT_EXPORTABLE) {
  KeyHandle key;
  EXPECT_TRUE(CryptGenKey(provider.get(), algorithm, flags, key.out())) << std::hex << GetLastError();
  return key;
}

inline KeyHandle Derive(const ProviderHandle& provider, ALG_ID algorithm, ByteVector bytes) {
  const DWORD bits = static_cast<DWORD>(bytes.size() * 8);
  const HashHandle carrier = Carrier(provider, CALG_GR3411_2012_512, std::move(bytes));
  KeyHandle key;
  EXPECT_TRUE(
      CryptDeriveKey(provider.get(), algorithm, carrier.get(), bits << 16 | CRYPT_EXPORTABLE, key.out()))
      << std::hex << GetLastError();
  return key;
}

inline ByteVector Export(const KeyHandle& key, DWORD type, HCRYPTKEY wrapping = 0, DWORD flags = 0) {
  DWORD size = 0;
  EXPECT_TRUE(CryptExportKey(key.get(), wrapping, type, flags, nullptr, &size)) << std::hex << GetLastError();
  ByteVector blob(size);
  EXPECT_TRUE(CryptExportKey(key.get(), wrapping, type, flags, blob.data(), &size))
      << std::hex << GetLastError();
  blob.resize(size);
  return blob;
}

// 0, or the code of the failure.
inline DWORD TryImport(const ProviderHandle& provider, const ByteVector& blob, KeyHandle& key,
                       HCRYPTKEY wrapping = 0, DWORD flags = CRYPT_EXPORTABLE) {
  SetLastError(0);
  const BYTE none = 0;
  const BYTE* data = blob.empty() ? &none : blob.data();
  return CryptImportKey(provider.get(), data, static_cast<DWORD>(blob.size()), wrapping, flags, key.out())
      ? 0
      : GetLastError();
}

inline KeyHandle Import(const ProviderHandle& provider, const ByteVector& blob, HCRYPTKEY wrapping = 0,
                        DWORD flags = CRYPT_EXPORTABLE) {
  KeyHandle key;
  EXPECT_EQ(TryImport(provider, blob, key, wrapping, flags), 0u);
  return key;
}

inline DWORD WordParam(const KeyHandle& key, DWORD param) {
  DWORD word = 0;
  DWORD size = sizeof(word);
  EXPECT_TRUE(CryptGetKeyParam(key.get(), param, reinterpret_cast<BYTE*>(&word), &size, 0));
  return word;
}

inline ByteVector BytesParam(const KeyHandle& key, DWORD param) {
  DWORD size = 0;
  EXPECT_TRUE(CryptGetKeyParam(key.get(), param, nullptr, &size, 0)) << std::hex << GetLastError();
  ByteVector value(size);
  EXPECT_TRUE(CryptGetKeyParam(key.get(), param, value.data(), &size, 0));
  return value;
}

inline bool SetWord(const KeyHandle& key, DWORD param, DWORD word) {
  return CryptSetKeyParam(key.get(), param, reinterpret_cast<const BYTE*>(&word), 0);
}

inline ByteVector Sign(const HashHandle& hash, DWORD spec, DWORD flags = 0) {
  DWORD size = 0;
  EXPECT_TRUE(CryptSignHashA(hash.get(), spec, nullptr, flags, nullptr, &size)) << std::hex << GetLastError();
  ByteVector signature(size);
  EXPECT_TRUE(CryptSignHashA(hash.get(), spec, nullptr, flags, signature.data(), &size))
      << std::hex << GetLastError();
  signature.resize(size);
  return signature;
}

// 0, or the code of the failure.
inline DWORD Verify(const HashHandle& hash, const ByteVector& signature, const KeyHandle& key,
                    DWORD flags = 0) {
  SetLastError(0);
  return CryptVerifySignatureA(hash.get(), signature.data(), static_cast<DWORD>(signature.size()), key.get(),
                               nullptr, flags)
      ? 0
      : GetLastError();
}

inline ByteVector Encrypt(const KeyHandle& key, std::span<const BYTE> plain, DWORD flags = 0) {
  DWORD size = static_cast<DWORD>(plain.size());
  EXPECT_TRUE(CryptEncrypt(key.get(), 0, TRUE, flags, nullptr, &size, 0)) << std::hex << GetLastError();
  ByteVector data(plain.begin(), plain.end());
  data.resize(size);
  DWORD length = static_cast<DWORD>(plain.size());
  EXPECT_TRUE(CryptEncrypt(key.get(), 0, TRUE, flags, data.data(), &length, size))
      << std::hex << GetLastError();
  data.resize(length);
  return data;
}

// 0, or the code of the failure.
inline DWORD TryDecrypt(const KeyHandle& key, ByteVector& data, DWORD flags = 0) {
  SetLastError(0);
  DWORD size = static_cast<DWORD>(data.size());
  BYTE none = 0;
  if (!CryptDecrypt(key.get(), 0, TRUE, flags, data.empty() ? &none : data.data(), &size))
    return GetLastError();
  data.resize(size);
  return 0;
}

#endif
