// Public keys: which converter, what it leaves behind, length, hash, comparison.
#include <certkern/errors.h>
#include <certkern/keys.h>
#include <certkern/oids.h>
#include <gtest/gtest.h>

#include "keys/fake_key_level.h"
#include "store/certificate_digest.h"
#include "support/hex.h"

using namespace certkern;
using certkern::test::FakeKeyLevel;

namespace {

// Keeps what its record points to.
struct Key {
  Key(const char* name, const std::string& parametersHex, const std::string& bitsHex, DWORD unused = 0)
      : oid(name), parameters(FromHex(parametersHex)), bits(FromHex(bitsHex)) {
    info.Algorithm.pszObjId = oid.data();
    info.Algorithm.Parameters = {static_cast<DWORD>(parameters.size()), parameters.data()};
    info.PublicKey = {static_cast<DWORD>(bits.size()), bits.data(), unused};
  }
  std::string oid;
  std::vector<BYTE> parameters, bits;
  CERT_PUBLIC_KEY_INFO info{};
};

struct ConverterCase {
  ALG_ID algorithm;
  DWORD providerType;
  const char* converter;
  DWORD flags;
};
const ConverterCase kConverters[] = {
    {0x2203, 80, "XnEcdsaConvertPublicKeyInfo", 0x10000},
    {0xAA05, 80, "XnEcdsaConvertPublicKeyInfo", 0x10000},
    {0x2220, 80, "XnEdDSAConvertPublicKeyInfo", 0x10000},
    {0x2400, 80, "XnRsaConvertPublicKeyInfo",   0      },
    {0xA400, 80, "XnRsaConvertPublicKeyInfo",   0      },
    {0x2E49, 24, "XnConvertPublicKeyInfo",      0x10000},
    {0,      1,  "XnRsaConvertPublicKeyInfo",   0      },
    {0,      24, "XnRsaConvertPublicKeyInfo",   0      },
    {0,      16, "XnEcdsaConvertPublicKeyInfo", 0x10000},
    {0,      32, "XnEdDSAConvertPublicKeyInfo", 0x10000},
    {0,      80, "XnConvertPublicKeyInfo",      0x10000},
};

TEST(ImportPublicKey, ChoosesTheConverter) {
  Key key("1.2.3", "", "00");
  for (const auto& [algorithm, providerType, converter, flags] : kConverters) {
    SCOPED_TRACE(testing::Message() << algorithm << " " << providerType);
    FakeKeyLevel fake;
    const ProviderHandle provider(SVAPI_I_GetDefaultProvider(providerType));
    HCRYPTKEY handle = 0;
    ASSERT_TRUE(CryptImportPublicKeyInfoEx(provider.get(), X509_ASN_ENCODING, &key.info, algorithm, 0x20,
                                           nullptr, &handle));
    EXPECT_EQ(fake.converter, converter);
    EXPECT_EQ(fake.importFlags, flags | 0x20);
    CryptDestroyKey(handle);
  }
  FakeKeyLevel fake;
  const ProviderHandle provider(SVAPI_I_GetDefaultProvider(80));
  Key named(szOID_ECC_PUBLIC_KEY, "", "00");
  HCRYPTKEY handle = 0;
  ASSERT_TRUE(CryptImportPublicKeyInfo(provider.get(), X509_ASN_ENCODING, &named.info, &handle));
  EXPECT_EQ(fake.converter, "XnEcdsaConvertPublicKeyInfo") << "by the key's own identifier";
  CryptDestroyKey(handle);
}

TEST(ImportPublicKey, FailuresKeepTheCodeOfTheirStep) {
  FakeKeyLevel fake;
  Key key("1.2.3", "", "00");
  HCRYPTKEY handle = 0;
  const auto import = [&](HCRYPTPROV provider, PCERT_PUBLIC_KEY_INFO info, HCRYPTKEY* out) {
    SetLastError(0);
    EXPECT_FALSE(CryptImportPublicKeyInfoEx(provider, X509_ASN_ENCODING, info, 0, 0, nullptr, out));
    return GetLastError();
  };
  const ProviderHandle provider(SVAPI_I_GetDefaultProvider(80));
  EXPECT_EQ(import(0x12345678, &key.info, &handle), DWORD{ERROR_INVALID_HANDLE}) << "no type to choose by";
  EXPECT_EQ(import(provider.get(), nullptr, &handle), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(import(provider.get(), &key.info, nullptr), DWORD{ERROR_INVALID_PARAMETER});
  fake.importFails = NTE_BAD_PUBLIC_KEY;
  EXPECT_EQ(import(provider.get(), &key.info, &handle), DWORD{NTE_BAD_PUBLIC_KEY});
  fake.convertFails = NTE_BAD_DATA;
  EXPECT_EQ(import(provider.get(), &key.info, &handle), DWORD{NTE_BAD_DATA});
  EXPECT_EQ(handle, 0u);
}

TEST(PublicKeyLength, BitsOrAReason) {
  FakeKeyLevel fake;
  // for the search of a provider an algorithm is an algorithm
  Key key(szOID_GOST_R3411_2012_256, "", "00");
  Key unknown("1.2.3", "", "00");
  const auto length = [](PCERT_PUBLIC_KEY_INFO info) {
    SetLastError(0);
    return CertGetPublicKeyLength(X509_ASN_ENCODING, info);
  };
  EXPECT_EQ(length(&key.info), certkern::test::kKeyBits);
  EXPECT_EQ(length(&unknown.info), 0u);
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_ALGID});
  EXPECT_EQ(length(nullptr), 0u);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  fake.keyLengthSize = 8;
  EXPECT_EQ(length(&key.info), 0u);
  EXPECT_EQ(GetLastError(), DWORD{NTE_FAIL}) << "and not what destroying the key left";
}

// The key of RFC 9215, D.2; the digests are those of md5sum and sha256sum over what openssl exports.
TEST(HashPublicKey, OfTheEncodedKey) {
  Key key(
      szOID_GOST_R3410_2012_256, "300b06092a8503070102010101",
      "0440742795D4BEE884DDF2850FEC03EA3FAF1844E01D9DA60B645093A55E26DFC39978F596CF4D4D0C6CF1D18943D94493D16B"
      "9EC0A16D512D2E127CC4691A6318E2");
  BYTE value[64];
  const auto hash = [&](HCRYPTPROV provider, ALG_ID algorithm, DWORD type, PCERT_PUBLIC_KEY_INFO info,
                        DWORD* size) {
    SetLastError(0);
    return CryptHashPublicKeyInfo(provider, algorithm, 0, type, info, value, size);
  };
  DWORD size = sizeof(value);
  EXPECT_TRUE(hash(0, 0, X509_ASN_ENCODING, &key.info, &size));
  EXPECT_EQ(ToHex({value, size}), "C3C70908BCBA69F00CD98BC5AE521F4A");
  size = sizeof(value);
  EXPECT_TRUE(hash(0, CALG_SHA_256, X509_ASN_ENCODING, &key.info, &size));
  EXPECT_EQ(ToHex({value, size}), "575247F97EC9D1CF7999141017B3093737B18021880C09562DD8E6A9050E1E4F");
  EXPECT_TRUE(CryptHashPublicKeyInfo(0, 0, 0, X509_ASN_ENCODING, &key.info, nullptr, &size));
  EXPECT_EQ(size, 16u);

  EXPECT_FALSE(hash(1, 0, X509_ASN_ENCODING, &key.info, &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER}) << "only the default provider";
  EXPECT_FALSE(hash(0, 0, X509_ASN_ENCODING, nullptr, &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_FALSE(hash(0, 0, X509_ASN_ENCODING, &key.info, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_FALSE(hash(0, 0, 0, &key.info, &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_FALSE(hash(0, CALG_MD2, X509_ASN_ENCODING, &key.info, &size));
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_ALGID});
  size = 15;
  EXPECT_FALSE(hash(0, 0, X509_ASN_ENCODING, &key.info, &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
}

#define SET_A "06 07 2a 85 03 02 02 23 01"
#define SET_B "06 07 2a 85 03 02 02 23 02"
#define DIGEST "06 08 2a 85 03 07 01 01 02 02"
#define CIPHER "06 07 2a 85 03 02 02 1f 01"
constexpr char kGost256[] = szOID_GOST_R3410_2012_256;
constexpr char kGost512[] = szOID_GOST_R3410_2012_512;
constexpr char kGost2001[] = szOID_GOST_R3410_2001;

constexpr DWORD kSame = 1, kDifferent = 0x1234;  // which leaves the last error alone
struct ComparisonCase {
  const char* name;
  const char* oid;
  const char *parametersA, *parametersB;
  DWORD outcome;  // or a code
};
const ComparisonCase kComparisons[] = {
    {"the same bytes",        kGost256,      "30 09 " SET_A,               "30 09 " SET_A,                      kSame                },
    {"no parameters",         szOID_RSA_RSA, "",                           "",                                  kSame                },
    {"absent and NULL",       szOID_RSA_RSA, "",                           "05 00",                             kDifferent           },
    {"digest left out",       kGost256,      "30 13 " SET_A DIGEST,        "30 09 " SET_A,                      kSame                },
    {"digest left out, 512",  kGost512,      "30 13 " SET_A DIGEST,        "30 09 " SET_A,                      kSame                },
    {"cipher named",          kGost256,      "30 1c " SET_A DIGEST CIPHER, "30 09 " SET_A,                      kSame                },
    {"another set",           kGost256,      "30 09 " SET_A,               "30 09 " SET_B,                      kDifferent           },
    {"2001: each bit counts", kGost2001,     "30 13 " SET_A DIGEST,        "30 09 " SET_A,                      kDifferent           },
    {"one has no parameters", kGost256,      "",                           "30 09 " SET_A,                      CRYPT_E_ASN1_INTERNAL},
    {"no sequence",           kGost256,      "30 09 " SET_A,               SET_A,                               CRYPT_E_ASN1_INTERNAL},
    {"an empty identifier",   kGost256,      "30 09 " SET_A,               "30 02 06 00",                       CRYPT_E_ASN1_INTERNAL},
    {"a fourth field",        kGost256,      "30 09 " SET_A,               "30 25 " SET_A DIGEST CIPHER CIPHER, CRYPT_E_ASN1_INTERNAL},
    {"bytes behind",          kGost256,      "30 09 " SET_A,               "30 09 " SET_A "00",                 CRYPT_E_ASN1_INTERNAL},
    {"no identifier there",   kGost256,      "30 09 " SET_A,               "30 0b " SET_A "05 00",              CRYPT_E_ASN1_INTERNAL},
};

BOOL Same(Key& a, Key& b) {
  SetLastError(0x1234);
  return CertComparePublicKeyInfo(X509_ASN_ENCODING, &a.info, &b.info);
}

TEST(ComparePublicKeys, Parameters) {
  FakeKeyLevel fake;
  for (const auto& [name, oid, parametersA, parametersB, outcome] : kComparisons) {
    SCOPED_TRACE(name);
    Key a(oid, parametersA, "01 02"), b(oid, parametersB, "01 02");
    EXPECT_EQ(Same(a, b), outcome == kSame);
    EXPECT_EQ(GetLastError(), outcome == kSame ? kDifferent : outcome);
    EXPECT_EQ(Same(b, a), outcome == kSame);
  }
  EXPECT_LE(fake.settingReads, 1);
}

TEST(ComparePublicKeys, BitsAndNulls) {
  FakeKeyLevel fake;
  Key key(szOID_RSA_RSA, "05 00", "01 02"), bits(szOID_RSA_RSA, "05 00", "01 03");
  Key longer(szOID_RSA_RSA, "05 00", "01 02 03"), unused(szOID_RSA_RSA, "05 00", "01 02", 1);
  Key algorithm(kGost256, "05 00", "01 02");
  EXPECT_FALSE(Same(key, algorithm));
  EXPECT_FALSE(Same(key, bits));
  EXPECT_FALSE(Same(key, longer));
  EXPECT_FALSE(Same(key, unused));
  const CERT_PUBLIC_KEY_INFO whole = key.info;
  Key other(szOID_RSA_RSA, "05 00", "01 02");
  const auto expectDifferent = [&](const char* what) {
    EXPECT_FALSE(Same(key, other)) << what;
    EXPECT_FALSE(Same(other, key)) << what;
    EXPECT_FALSE(Same(key, key)) << what;
    EXPECT_EQ(GetLastError(), 0x1234u) << what;
    key.info = whole;
  };
  key.info.Algorithm.pszObjId = nullptr;
  expectDifferent("no algorithm");
  key.info.PublicKey.pbData = nullptr;
  expectDifferent("no bits");
  key.info.Algorithm.Parameters.pbData = nullptr;
  expectDifferent("no parameters");
  EXPECT_FALSE(CertComparePublicKeyInfo(X509_ASN_ENCODING, &key.info, nullptr));
  EXPECT_FALSE(CertComparePublicKeyInfo(X509_ASN_ENCODING, nullptr, &key.info));
}

// A process of its own, because the setting is read once.
TEST(ComparePublicKeysDeathTest, SettingTurnsTheGostRuleOff) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto compare = [] {
    FakeKeyLevel fake;
    fake.setting = 1;
    Key a(kGost256, "30 13 " SET_A DIGEST, "01 02"), b(kGost256, "30 09 " SET_A, "01 02");
    const bool off = !Same(a, b) && GetLastError() == 0x1234;
    fake.setting = 0;
    const bool stillOff = !Same(a, b) && fake.settingReads == 1;
    exit(off && stillOff ? 0 : 1);
  };
  EXPECT_EXIT(compare(), testing::ExitedWithCode(0), "");
}

}  // namespace
