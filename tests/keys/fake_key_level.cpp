#include "keys/fake_key_level.h"

#include "keys/held_keys.h"

#include <certkern/encode.h>
#include <certkern/errors.h>
#include <gtest/gtest.h>

#include <cstring>
#include <numeric>

#include "platform/extkern.h"
#include "platform/supkern.h"

namespace certkern::test {
namespace {

constexpr HCRYPTKEY kKey = 0x4B4559;
FakeKeyLevel* fake = nullptr;

BOOL Answer(DWORD code) {
  if (code) SetLastError(code);
  return !code;
}

// One of the converters: the blob is its name.
template <size_t kIndex>
BOOL Convert(DWORD encodingType, PCERT_PUBLIC_KEY_INFO info, ALG_ID algorithm, DWORD flags, BYTE** blob,
             DWORD* size) {
  constexpr const char* kNames[] = {"XnConvertPublicKeyInfo", "XnEcdsaConvertPublicKeyInfo",
                                    "XnEdDSAConvertPublicKeyInfo", "XnRsaConvertPublicKeyInfo"};
  EXPECT_TRUE(info && !encodingType && !algorithm && !flags);
  if (fake->convertFails) return Answer(fake->convertFails);
  *size = static_cast<DWORD>(strlen(kNames[kIndex]));
  *blob = static_cast<BYTE*>(LocalAlloc(0, *size));
  std::memcpy(*blob, kNames[kIndex], *size);
  return TRUE;
}

struct Export {
  const char* name;
  XnConvertKey* function;
};
constexpr Export kExports[] = {
    {"XnConvertPublicKeyInfo",      Convert<0>},
    {"XnEcdsaConvertPublicKeyInfo", Convert<1>},
    {"XnEdDSAConvertPublicKeyInfo", Convert<2>},
    {"XnRsaConvertPublicKeyInfo",   Convert<3>},
};

void KeepHash(HCRYPTHASH hash) {
  BYTE value[64];
  DWORD size = sizeof(value);
  EXPECT_TRUE(CryptGetHashParam(hash, HP_HASHVAL, value, &size, 0));
  fake->hash.assign(value, value + size);
}

}  // namespace

// Nothing is held from another test, nor left to the next.
FakeKeyLevel::FakeKeyLevel() {
  EndHoldingKeys();
  fake = this;
  BeginHoldingKeys();
}
FakeKeyLevel::~FakeKeyLevel() {
  EndHoldingKeys();
  EXPECT_EQ(liveKeys, 0);
  fake = nullptr;
  BeginHoldingKeys();
}

}  // namespace certkern::test

using namespace certkern::test;

extern "C" {

void* support_load_library_registry(const char* name, int) {
  EXPECT_STREQ(name, "libextkern.so.4");
  return &fake;
}
void* support_load_library_getaddr(void*, const char* symbol) {
  for (const Export& one : kExports) {
    if (strcmp(one.name, symbol) == 0) return reinterpret_cast<void*>(one.function);
  }
  return nullptr;
}
int support_registry_get_long(const char* path, int64_t* value) {
  EXPECT_STREQ(path, "\\config\\parameters\\DisableXnCertComparePublicKeyInfo");
  ++fake->settingReads;
  SetLastError(0xBAD);  // as an implementation may
  if (!fake->setting) return ERROR_FILE_NOT_FOUND;
  *value = fake->setting;
  return 0;
}

BOOL CryptImportKey(HCRYPTPROV, const BYTE* data, DWORD size, HCRYPTKEY wrapping, DWORD flags,
                    HCRYPTKEY* key) {
  EXPECT_EQ(wrapping, 0u);
  fake->converter.assign(data, data + size);
  fake->importFlags = flags;
  if (fake->importFails) return Answer(fake->importFails);
  ++fake->liveKeys;
  *key = kKey;
  return TRUE;
}
BOOL CryptDestroyKey(HCRYPTKEY key) {
  EXPECT_EQ(key, kKey);
  --fake->liveKeys;
  SetLastError(0xBAD);
  return TRUE;
}
BOOL CryptGetKeyParam(HCRYPTKEY key, DWORD parameter, BYTE* out, DWORD* size, DWORD) {
  EXPECT_EQ(key, kKey);
  EXPECT_EQ(parameter, DWORD{KP_KEYLEN});
  *size = fake->keyLengthSize;
  if (out) std::memcpy(out, &kKeyBits, sizeof(kKeyBits));
  return TRUE;
}

BOOL CryptSetHashParam(HCRYPTHASH, DWORD parameter, const BYTE* data, DWORD) {
  EXPECT_EQ(parameter, DWORD{HP_PSS_SALT});
  fake->pssParameter.resize(2);
  std::memcpy(fake->pssParameter.data(), data, 2 * sizeof(DWORD));
  return TRUE;
}
BOOL CryptSignHashA(HCRYPTHASH hash, DWORD keySpec, LPCSTR, DWORD flags, BYTE* out, DWORD* size) {
  EXPECT_EQ(keySpec, DWORD{AT_SIGNATURE});
  fake->signatureFlags = flags;
  if (!out) {
    *size = fake->sizeTold;
    return TRUE;
  }
  if (*size < fake->sizeTold) return Answer(ERROR_MORE_DATA);
  ++fake->signatures;
  KeepHash(hash);
  std::iota(out, out + fake->sizeMade, BYTE{1});
  *size = fake->sizeMade;
  return TRUE;
}
BOOL CryptVerifySignatureA(HCRYPTHASH hash, const BYTE* signature, DWORD size, HCRYPTKEY key, LPCSTR,
                           DWORD flags) {
  EXPECT_EQ(key, kKey);
  KeepHash(hash);
  fake->signature.assign(signature, signature + size);
  fake->signatureFlags = flags;
  return Answer(fake->verifyFails);
}

BOOL isDTBSEnabled(void) { return fake->displays; }
BOOL TlsInitHashMsgIndex(void* key, DWORD, const HASH_MSG_RECORD* record) {
  EXPECT_TRUE(key && record->hCryptProv && !record->dwFlags && !record->fForced);
  fake->display.emplace_back("init");
  return Answer(fake->displayFails ? E_FAIL : 0);
}
BOOL TlsReleaseHashMsgIndex(void*) {
  fake->display.emplace_back("release");
  return TRUE;
}

}  // extern "C"
