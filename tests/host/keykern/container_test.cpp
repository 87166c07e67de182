// Containers through the exported functions: opening, PINs, what they keep, who sees them.
#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include "key_level.h"
#include "platform/temporary_directory.h"
#include "support/hex.h"

namespace {

// The user's data directory is the suite's own, and each test leaves it empty.
class Container : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    directory = std::make_unique<certkern::test::TemporaryDirectory>();
    setenv("XDG_DATA_HOME", directory->path("").c_str(), 1);
  }
  static void TearDownTestSuite() { directory.reset(); }
  void TearDown() override {
    const ProviderHandle provider = VerifyContext();
    for (std::string name; !(name = Text(provider, PP_ENUMCONTAINERS, CRYPT_FIRST)).empty();) {
      ASSERT_EQ(Delete(name.c_str()), 0u) << name;
    }
  }

  // 0, or the code of the failure.
  static DWORD Acquire(ProviderHandle& provider, const char* name, DWORD flags,
                       DWORD type = PROV_GOST_2012_256) {
    SetLastError(0);
    return CryptAcquireContextA(provider.out(), name, nullptr, type, flags) ? 0 : GetLastError();
  }
  static DWORD Delete(const char* name) {
    HCRYPTPROV untouched = 5;
    SetLastError(0);
    const BOOL deleted = CryptAcquireContextA(&untouched, name, nullptr, PROV_RSA_AES, CRYPT_DELETEKEYSET);
    EXPECT_EQ(untouched, 5u);
    return deleted ? 0 : GetLastError();
  }
  static DWORD SetPin(const ProviderHandle& provider, const char* pin, DWORD param = PP_KEYEXCHANGE_PIN) {
    SetLastError(0);
    return CryptSetProvParam(provider.get(), param, reinterpret_cast<const BYTE*>(pin), 0) ? 0
                                                                                           : GetLastError();
  }
  static DWORD SignCode(const ProviderHandle& provider, DWORD spec = AT_KEYEXCHANGE) {
    const HashHandle hash = HashOf(provider, CALG_GR3411_2012_256, Bytes("m"));
    BYTE signature[128];
    DWORD size = sizeof(signature);
    SetLastError(0);
    return CryptSignHashA(hash.get(), spec, nullptr, 0, signature, &size) ? 0 : GetLastError();
  }
  static std::string Text(const ProviderHandle& provider, DWORD param, DWORD flags = 0) {
    char text[512] = "";
    DWORD size = sizeof(text);
    if (!CryptGetProvParam(provider.get(), param, reinterpret_cast<BYTE*>(text), &size, flags)) return "";
    return text;
  }

  static inline std::unique_ptr<certkern::test::TemporaryDirectory> directory;
};

TEST_F(Container, IsMadeOpenedListedAndDeleted) {
  ProviderHandle provider;
  EXPECT_EQ(Acquire(provider, "alpha", 0), DWORD{NTE_KEYSET_NOT_DEF});
  ASSERT_EQ(Acquire(provider, "alpha", CRYPT_NEWKEYSET), 0u);
  ProviderHandle second;
  EXPECT_EQ(Acquire(second, "alpha", CRYPT_NEWKEYSET), DWORD{NTE_EXISTS});
  ASSERT_EQ(Acquire(second, "\\\\.\\DISKVAULT\\b\xC3\xA4ta", CRYPT_NEWKEYSET), 0u);
  EXPECT_EQ(Text(second, PP_CONTAINER), "b\xC3\xA4ta");
  EXPECT_EQ(Text(second, PP_UNIQUE_CONTAINER), "\\\\.\\DISKVAULT\\b\xC3\xA4ta");
  EXPECT_EQ(Text(second, PP_CONTAINER_PATH, CRYPT_FIRST), Text(second, PP_UNIQUE_CONTAINER));
  EXPECT_EQ(Text(provider, PP_ENUMCONTAINERS, CRYPT_FIRST), "alpha");
  EXPECT_EQ(Text(provider, PP_ENUMCONTAINERS, CRYPT_NEXT), "b\xC3\xA4ta");
  EXPECT_EQ(Text(provider, PP_ENUMCONTAINERS), "");
  EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_MORE_ITEMS});
  EXPECT_EQ(Text(VerifyContext(), PP_CONTAINER), "") << "a verify context has none";
  HCRYPTPROV wide = 0;
  ASSERT_TRUE(CryptAcquireContextW(&wide, L"b\u00E4ta", nullptr, PROV_RSA_AES, CRYPT_SILENT));
  CryptReleaseContext(wide, 0);
  EXPECT_EQ(Acquire(second, "\\\\.\\OTHER\\alpha", 0), DWORD{NTE_KEYSET_NOT_DEF});
  EXPECT_EQ(Acquire(second, "", CRYPT_VERIFYCONTEXT | CRYPT_NEWKEYSET), DWORD{NTE_BAD_FLAGS});
  EXPECT_EQ(Acquire(second, "alpha", CRYPT_VERIFYCONTEXT), DWORD{NTE_BAD_KEYSET_PARAM});
  EXPECT_EQ(Delete("alpha"), 0u);
  EXPECT_EQ(Delete("alpha"), DWORD{NTE_KEYSET_NOT_DEF});
  EXPECT_EQ(Acquire(provider, nullptr, CRYPT_NEWKEYSET), 0u) << "the one of the user's name";
  EXPECT_NE(Text(provider, PP_CONTAINER), "");
}

TEST_F(Container, KeepsBothKeysAndWhatBelongsToThem) {
  ProviderHandle provider;
  ASSERT_EQ(Acquire(provider, "keys", CRYPT_NEWKEYSET), 0u);
  const ByteVector exchange = BytesParam(Generate(provider, AT_KEYEXCHANGE), KP_FP);
  const ByteVector signature = BytesParam(Generate(provider, CALG_ECDSA, 0), KP_FP);
  const ByteVector certificate = FromHex("30 03 02 01 05");
  const BYTE extension[] = {1, 0, 0, 0, 6, 0, 0, 0, 2, 0, 0, 0, '1', '.', '2', '.', '3', 0, 0xAA, 0xBB};
  {
    ProviderHandle again;
    ASSERT_EQ(Acquire(again, "keys", 0), 0u);
    KeyHandle key;
    ASSERT_TRUE(CryptGetUserKey(again.get(), AT_KEYEXCHANGE, key.out()));
    EXPECT_EQ(WordParam(key, KP_ALGID), DWORD{CALG_DH_GR3410_12_256_SF})
        << "the family of the provider's type";
    EXPECT_EQ(BytesParam(key, KP_FP), exchange);
    EXPECT_EQ(Export(key, PRIVATEKEYBLOB).empty(), false);
    ASSERT_TRUE(CryptSetKeyParam(key.get(), KP_CERTIFICATE, certificate.data(), 0));
    ASSERT_TRUE(CryptGetUserKey(again.get(), AT_SIGNATURE, key.out()));
    EXPECT_EQ(BytesParam(key, KP_FP), signature);
    DWORD size = 0;
    EXPECT_FALSE(CryptExportKey(key.get(), 0, PRIVATEKEYBLOB, 0, nullptr, &size));
    EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_KEY_STATE});
    EXPECT_FALSE(CryptGetKeyParam(key.get(), KP_CERTIFICATE, nullptr, &size, 0));
    EXPECT_EQ(GetLastError(), DWORD{NTE_NOT_FOUND});
    ASSERT_TRUE(CryptSetProvParam(again.get(), PP_CONTAINER_EXTENSION, extension, 0));
  }
  KeyHandle key;
  ASSERT_TRUE(CryptGetUserKey(provider.get(), AT_KEYEXCHANGE, key.out()));
  EXPECT_EQ(BytesParam(key, KP_CERTIFICATE), certificate);
  BYTE record[64];
  DWORD size = sizeof(record);
  ASSERT_TRUE(CryptGetProvParam(provider.get(), PP_ENUM_CONTAINER_EXTENSION, record, &size, CRYPT_FIRST));
  EXPECT_EQ(ToHex({record, size}), ToHex(extension));
  size = sizeof(record);
  EXPECT_FALSE(CryptGetProvParam(provider.get(), PP_ENUM_CONTAINER_EXTENSION, record, &size, 0));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_MORE_ITEMS});

  const ProviderHandle memory = VerifyContext();
  const KeyHandle fleeting = Generate(memory, AT_SIGNATURE);
  EXPECT_FALSE(CryptSetKeyParam(fleeting.get(), KP_CERTIFICATE, certificate.data(), 0));
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_TYPE});
}

TEST_F(Container, PinGuardsThePrivateHalfAlone) {
  {
    ProviderHandle provider;
    ASSERT_EQ(Acquire(provider, "guarded", CRYPT_NEWKEYSET), 0u);
    ASSERT_EQ(SetPin(provider, "1234"), 0u);
    Generate(provider, AT_KEYEXCHANGE);
    EXPECT_EQ(SignCode(provider), 0u);
  }
  ProviderHandle provider;
  ASSERT_EQ(Acquire(provider, "guarded", 0), 0u);
  KeyHandle key;
  ASSERT_TRUE(CryptGetUserKey(provider.get(), AT_KEYEXCHANGE, key.out()));
  EXPECT_EQ(Export(key, PUBLICKEYBLOB).empty(), false);
  EXPECT_EQ(SignCode(provider), DWORD{SCARD_W_CARD_NOT_AUTHENTICATED});
  EXPECT_EQ(SetPin(provider, "4321"), DWORD{SCARD_W_WRONG_CHV});
  EXPECT_EQ(SetPin(provider, "1234", PP_SIGNATURE_PIN), 0u);
  EXPECT_EQ(SignCode(provider), 0u);
  ASSERT_EQ(SetPin(provider, "new one", PP_CHANGE_PIN), 0u);
  ASSERT_EQ(Acquire(provider, "guarded", CRYPT_SILENT), 0u);
  EXPECT_EQ(SignCode(provider), DWORD{NTE_SILENT_CONTEXT});
  EXPECT_EQ(SetPin(provider, "x", PP_CHANGE_PIN), DWORD{SCARD_W_CARD_NOT_AUTHENTICATED});
  EXPECT_EQ(SetPin(provider, "new one"), 0u);
  EXPECT_EQ(SignCode(provider), 0u);
  ASSERT_EQ(SetPin(provider, "", PP_CHANGE_PIN), 0u);
  ASSERT_EQ(Acquire(provider, "guarded", CRYPT_SILENT), 0u);
  EXPECT_EQ(SignCode(provider), 0u) << "no PIN any more";
}

TEST_F(Container, AHandleIsOfTheKeyThatItWasOpenedFor) {
  ProviderHandle provider;
  ASSERT_EQ(Acquire(provider, "replaced", CRYPT_NEWKEYSET), 0u);
  Generate(provider, AT_KEYEXCHANGE);
  ProviderHandle other;
  ASSERT_EQ(Acquire(other, "replaced", 0), 0u);
  KeyHandle old;
  ASSERT_TRUE(CryptGetUserKey(other.get(), AT_KEYEXCHANGE, old.out()));
  Generate(provider, AT_KEYEXCHANGE,
           0);  // must not leave the container, not even by the handle of its predecessor
  DWORD size = 0;
  EXPECT_FALSE(CryptExportKey(old.get(), 0, PRIVATEKEYBLOB, 0, nullptr, &size));
  EXPECT_EQ(GetLastError(), DWORD{NTE_NO_KEY});
}

TEST_F(Container, TheProcessesOwnProviderTakesNoKeys) {
  const HCRYPTPROV shared = SVAPI_I_CryptGetDefaultCryptProv(CALG_GR3410_12_256);
  KeyHandle key;
  EXPECT_FALSE(CryptGenKey(shared, AT_SIGNATURE, 0, key.out()));
  EXPECT_EQ(GetLastError(), DWORD{NTE_PERM});
  EXPECT_TRUE(CryptGenKey(shared, CALG_DH_GR3410_12_256_EPHEM, 0, key.out()))
      << "an ephemeral one is its handle's";
}

TEST_F(Container, ConcurrentMakersAndUsers) {
  std::atomic<int> made{0};
  std::atomic<int> failures{0};
  const auto work = [&] {
    ProviderHandle provider;
    const DWORD code = Acquire(provider, "race", CRYPT_NEWKEYSET);
    if (code == 0) ++made;
    if (code != 0 && code != DWORD{NTE_EXISTS}) ++failures;
    if (Acquire(provider, "race", 0)) return;
    for (int i = 0; i < 5; ++i) {
      KeyHandle key;
      if (!CryptGenKey(provider.get(), CALG_GR3410_12_256, 0, key.out())) ++failures;
      if (SignCode(provider, AT_SIGNATURE)) ++failures;
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back(work);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(made, 1);
  EXPECT_EQ(failures, 0);
}

}  // namespace
