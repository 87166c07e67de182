// Which algorithms go together, over the real OID table and real providers.
#include <certkern/errors.h>
#include <certkern/oid.h>
#include <certkern/oids.h>
#include <certkern/sv.h>
#include <gtest/gtest.h>

#include <cstring>

#include "oid/provider_search.h"
#include "oid/signature_row.h"

using namespace certkern;

namespace {

std::string OidOf(PCCRYPT_OID_INFO info) { return info ? info->pszOID : "none"; }

class Lookups : public ::testing::Test {
 protected:
  void SetUp() override { SetLastError(kUntouched); }
  void TearDown() override { EXPECT_EQ(GetLastError(), kUntouched) << "a look-up has no error of its own"; }
  static constexpr DWORD kUntouched = 0x1234;
};

TEST_F(Lookups, BetweenIdentifiersAndNumbers) {
  EXPECT_EQ(CertOIDToAlgId(szOID_NIST_sha256), CALG_SHA_256);
  EXPECT_EQ(CertOIDToAlgId(szOID_RSA_RSA), CALG_RSA_KEYX) << "the first row of an identifier";
  EXPECT_EQ(CertOIDToAlgId("2.5.4.3"), 0u) << "a row without an algorithm";
  EXPECT_EQ(CertOIDToAlgId("1.2.3"), 0u);
  EXPECT_EQ(CertOIDToAlgId(nullptr), 0u);
  EXPECT_STREQ(CertAlgIdToOID(CALG_SHA1), szOID_OIWSEC_sha1) << "not one of the signatures over it";
  EXPECT_STREQ(CertAlgIdToOID(CALG_G28147), "1.2.643.2.2.21") << "no hash";
  EXPECT_EQ(CertAlgIdToOID(0), nullptr);
  EXPECT_EQ(CertAlgIdToOID(0xFFFF), nullptr);
}

struct KeyCase {
  LPCSTR key;
  ALG_ID gostHash;
  LPCSTR hash, signature, exchangeName;
};
const KeyCase kKeys[] = {
    {"1.2.643.2.2.19",        0x801E, "1.2.643.2.2.9",     "1.2.643.2.2.3",        "GOST R 34.10-2001 DH"        },
    {"1.2.643.7.1.1.1.1",     0x8021, "1.2.643.7.1.1.2.2", "1.2.643.7.1.1.3.2",    "GOST R 34.10-2012 256 bit DH"},
    {"1.2.643.7.1.1.1.2",     0x8022, "1.2.643.7.1.1.2.3", "1.2.643.7.1.1.3.3",    "GOST R 34.10-2012 512 bit DH"},
    {"1.2.840.113549.1.1.1",  0,      "1.3.14.3.2.26",     "1.2.840.113549.1.1.5", "RSA"                         },
    {"1.2.840.113549.1.1.10", 0,      "1.3.14.3.2.26",     "1.2.840.113549.1.1.5", nullptr                       },
    {"1.2.840.10045.2.1",     0,      "1.3.14.3.2.26",     "1.2.840.10045.4.1",    "ECDH"                        },
 // signs the message itself, which is a hash in name only
    {"1.3.101.112",           0,      "none",              "1.3.101.112",          nullptr                       },
    {"1.3.101.113",           0,      "none",              "1.3.101.113",          nullptr                       },
    {"1.2.643.2.2.199",       0,      "none",              "none",                 nullptr                       },
    {"1.2.840.113549.1.1.5",  0,      "none",              "none",                 nullptr                       },
    {nullptr,                 0,      "none",              "none",                 nullptr                       },
};

TEST_F(Lookups, DefaultsOfAKey) {
  for (const auto& [key, gostHash, hash, signature, exchangeName] : kKeys) {
    SCOPED_TRACE(key ? key : "null");
    EXPECT_EQ(SVGetDefaultGostHashAlgId(key), gostHash);
    EXPECT_EQ(OidOf(SVCryptGetDefaultHashOIDInfo(key)), hash);
    EXPECT_EQ(OidOf(SVCryptGetDefaultSignatureOIDInfo(key)), signature);
    const PCCRYPT_OID_INFO exchange = SVCryptGetPublicKeyOIDInfo(key, AT_KEYEXCHANGE);
    ASSERT_EQ(exchange != nullptr, exchangeName != nullptr);
    if (!exchange) continue;
    EXPECT_EQ(std::wstring(exchange->pwszName),
              std::wstring(exchangeName, exchangeName + strlen(exchangeName)));
    const PCCRYPT_OID_INFO signing = SVCryptGetPublicKeyOIDInfo(key, AT_SIGNATURE);
    ASSERT_TRUE(signing);
    EXPECT_EQ(OidOf(signing), key);
    EXPECT_EQ(GET_ALG_CLASS(signing->Algid), ALG_CLASS_SIGNATURE);
  }
  EXPECT_EQ(SVCryptGetPublicKeyOIDInfo(szOID_RSA_RSA, 3), nullptr);
  EXPECT_EQ(SVCryptGetPublicKeyOIDInfo(szOID_RSA_RSA, 0), nullptr);
}

TEST_F(Lookups, SignatureOfKeyAndHash) {
  EXPECT_EQ(OidOf(SVCryptGetSignatureOIDInfo(szOID_RSA_RSA, szOID_NIST_sha512)), szOID_RSA_SHA512RSA);
  EXPECT_EQ(OidOf(SVCryptGetSignatureOIDInfo(szOID_ECC_PUBLIC_KEY, szOID_NIST_sha384)), szOID_ECDSA_SHA384);
  EXPECT_EQ(OidOf(SVCryptGetSignatureOIDInfo(szOID_GOST_R3410_2012_256, szOID_GOST_R3411_2012_256)),
            szOID_GOST_R3411_2012_256_R3410);
  EXPECT_EQ(SVCryptGetSignatureOIDInfo(szOID_GOST_R3410_2012_256, szOID_NIST_sha256), nullptr)
      << "no other signature of the key takes its place";
  EXPECT_EQ(SVCryptGetSignatureOIDInfo(szOID_RSA_RSA, "1.2.3"), nullptr);
  EXPECT_EQ(SVCryptGetSignatureOIDInfo(szOID_RSA_RSA, nullptr), nullptr);
  EXPECT_EQ(SVCryptGetSignatureOIDInfo(nullptr, szOID_NIST_sha256), nullptr);
}

TEST(ProviderHash, FitsKeyAndProvider) {
  const ProviderHandle provider(SVAPI_I_GetDefaultProvider(PROV_RSA_AES));
  EXPECT_EQ(SVCryptGetProviderHashAlgId(provider.get(), szOID_GOST_R3410_2012_512), CALG_GR3411_2012_512);
  const ALG_ID hash = SVCryptGetProviderHashAlgId(provider.get(), szOID_ECC_PUBLIC_KEY);
  ALG_ID pair[] = {hash, CALG_ECDSA};
  EXPECT_TRUE(CryptFindOIDInfo(CRYPT_OID_INFO_SIGN_KEY, pair, CRYPT_SIGN_ALG_OID_GROUP_ID)) << hash;
  EXPECT_EQ(GET_ALG_CLASS(SVCryptGetProviderHashAlgId(provider.get(), nullptr)), ALG_CLASS_HASH);
  EXPECT_EQ(SVCryptGetProviderHashAlgId(provider.get(), "1.2.3"), 0u);
  EXPECT_EQ(SVCryptGetProviderHashAlgId(0x12345678, nullptr), 0u)
      << "no provider, no hash, and no endless walk";
}

// A provider must have all that is asked for; what is found is the caller's own.
TEST(ProviderSearch, AllAlgorithms) {
  const ALG_ID wanted[] = {CALG_SHA_256, CALG_GR3411_2012_512};
  const ALG_ID tooMuch[] = {CALG_SHA_256, CALG_MD2};
  const ProviderHandle found = SearchProviders(wanted);
  BYTE random[1];
  EXPECT_TRUE(CryptGenRandom(found.get(), 1, random));
  EXPECT_FALSE(SearchProviders(tooMuch));
  Solvane::CFindAlgIdInProviders named(wanted);
  EXPECT_FALSE(named.check(PROV_RSA_AES, "no such provider"));
  EXPECT_FALSE(named.take()) << "nothing is kept of a provider that failed";
  Solvane::CFindAlgIdInDefaultProviders ofType(wanted);
  EXPECT_TRUE(ofType.check(PROV_RSA_AES, "no such provider")) << "only the type counts";
  EXPECT_TRUE(ofType.take());
}

TEST(SignatureRow, WordsThatAreThere) {
  const std::optional<SignatureRow> row = FindSignatureRow(szOID_GOST_R3411_2012_256_R3410);
  ASSERT_TRUE(row);
  EXPECT_EQ(row->hash, CALG_GR3411_2012_256);
  EXPECT_EQ(row->key, CALG_GR3410_12_256);
  EXPECT_EQ(row->providerType, DWORD{PROV_GOST_2012_256});
  EXPECT_TRUE(row->isReversed());
  EXPECT_FALSE(FindSignatureRow(szOID_RSA_RSA)) << "a public key";
  EXPECT_FALSE(FindSignatureRow(nullptr));

  DWORD words[3] = {CALG_ECDSA, CRYPT_OID_NO_REVERSE, 16};
  CRYPT_OID_INFO info{sizeof(info), "1.2.3", L"", CRYPT_SIGN_ALG_OID_GROUP_ID, {}, {}};
  info.ExtraInfo = {sizeof(words), reinterpret_cast<BYTE*>(words)};
  EXPECT_FALSE(SignatureRow(info).isReversed());
  info.ExtraInfo.cbData = 11;
  EXPECT_EQ(SignatureRow(info).providerType, 0u) << "cut";
  EXPECT_EQ(SignatureRow(info).flags, DWORD{CRYPT_OID_NO_REVERSE});
  info.ExtraInfo.cbData = 12;
  info.dwGroupId = CRYPT_PUBKEY_ALG_OID_GROUP_ID;
  EXPECT_EQ(SignatureRow(info).providerType, 0u) << "another group's third word is something else";
}

}  // namespace
