// Around the signature: what is hashed, how it is turned, which parameters reach the provider, and which objects and
// keys never do. Whether a signature is right is for the tests that drive openssl.
#include <certkern/errors.h>
#include <certkern/keys.h>
#include <certkern/oids.h>
#include <gtest/gtest.h>

#include <numeric>

#include "keys/fake_key_level.h"
#include "platform/owner.h"
#include "store/certificate_digest.h"
#include "support/hex.h"

using namespace certkern;
using certkern::test::FakeKeyLevel;

namespace {

#define SHA256_ID "30 0d 06 09 60 86 48 01 65 03 04 02 01 05 00 "
// RSASSA-PSS with SHA-256 and a salt of 32
#define PSS_SHA256_32 \
  "30 34 a0 0f " SHA256_ID "a1 1c 30 1a 06 09 2a 86 48 86 f7 0d 01 01 08 " SHA256_ID "a2 03 02 01 20"

struct Algorithm : CRYPT_ALGORITHM_IDENTIFIER {
  explicit Algorithm(const char* name, const std::string& hex = "") : oid(name), bytes(FromHex(hex)) {
    pszObjId = oid.data();
    Parameters = {static_cast<DWORD>(bytes.size()), bytes.data()};
  }
  std::string oid;
  std::vector<BYTE> bytes;
};

constexpr BYTE kToBeSigned[] = {0x30, 0x03, 0x02, 0x01, 0x05};
constexpr BYTE kSignature[] = {9, 8, 7};
std::vector<BYTE> Sha256Of(std::span<const BYTE> bytes) {
  std::vector<BYTE> hash(32);
  DWORD size = 32;
  EXPECT_TRUE(HashEncoded(0, CALG_SHA_256, bytes, hash.data(), &size));
  return hash;
}

std::vector<BYTE> SignedObjectOf(const Algorithm& algorithm, std::span<const BYTE> signature = kSignature,
                                 DWORD unusedBits = 0, std::span<const BYTE> toBeSigned = kToBeSigned) {
  CERT_SIGNED_CONTENT_INFO content{
      {static_cast<DWORD>(toBeSigned.size()), const_cast<BYTE*>(toBeSigned.data())},
      algorithm,
      { static_cast<DWORD>(signature.size()),  const_cast<BYTE*>(signature.data()),                           unusedBits}
  };
  DWORD size = 0;
  EXPECT_TRUE(CryptEncodeObject(X509_ASN_ENCODING, X509_CERT, &content, nullptr, &size));
  std::vector<BYTE> object(size);
  EXPECT_TRUE(CryptEncodeObject(X509_ASN_ENCODING, X509_CERT, &content, object.data(), &size));
  return object;
}

BOOL Verify(const std::vector<BYTE>& object, PCERT_PUBLIC_KEY_INFO key) {
  SetLastError(0);
  return CryptVerifyCertificateSignature(0, X509_ASN_ENCODING, object.data(),
                                         static_cast<DWORD>(object.size()), key);
}

TEST(VerifySignature, WhatTheProviderGets) {
  FakeKeyLevel fake;
  const Algorithm rsa(szOID_RSA_RSA);
  CERT_PUBLIC_KEY_INFO key{rsa, {}};
  EXPECT_TRUE(Verify(SignedObjectOf(Algorithm(szOID_RSA_SHA256RSA, "05 00")), &key));
  EXPECT_EQ(fake.converter, "XnRsaConvertPublicKeyInfo");
  EXPECT_EQ(fake.hash, Sha256Of(kToBeSigned)) << "header included";
  EXPECT_EQ(fake.signature, (std::vector<BYTE>{7, 8, 9}));
  EXPECT_EQ(fake.signatureFlags, 0u);
  EXPECT_TRUE(fake.pssParameter.empty());

  EXPECT_TRUE(Verify(SignedObjectOf(Algorithm(szOID_RSA_SSA_PSS, PSS_SHA256_32)), &key))
      << "a plain key with the signature's own parameters";
  EXPECT_EQ(fake.hash, Sha256Of(kToBeSigned));
  EXPECT_EQ(fake.signatureFlags, DWORD{CRYPT_PSS});
  EXPECT_EQ(fake.pssParameter, (std::vector<DWORD>{32, CALG_SHA_256}));

  fake.verifyFails = NTE_BAD_SIGNATURE;
  EXPECT_FALSE(Verify(SignedObjectOf(Algorithm(szOID_RSA_SHA256RSA, "05 00")), &key));
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_SIGNATURE}) << "not what the clean-up left";
  fake.importFails = NTE_BAD_PUBLIC_KEY;
  EXPECT_FALSE(Verify(SignedObjectOf(Algorithm(szOID_RSA_SHA256RSA, "05 00")), &key));
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_PUBLIC_KEY});
}

struct PssRule {
  const char* name;
  const char* keyParameters;
  const char *signature, *parameters;
  DWORD code;
};
const PssRule kPssRules[] = {
    {"free key",           "",                     szOID_RSA_SSA_PSS,   PSS_SHA256_32,          0                 },
    {"the same",           PSS_SHA256_32,          szOID_RSA_SSA_PSS,   PSS_SHA256_32,          0                 },
    {"a longer salt",      "30 00",                szOID_RSA_SSA_PSS,   "30 05 a2 03 02 01 15", 0                 },
    {"a shorter salt",     "30 00",                szOID_RSA_SSA_PSS,   "30 05 a2 03 02 01 13", NTE_BAD_DATA      },
    {"another hash",       "30 05 a2 03 02 01 00", szOID_RSA_SSA_PSS,   PSS_SHA256_32,          NTE_BAD_DATA      },
    {"no PSS",             "",                     szOID_RSA_SHA256RSA, "05 00",                NTE_BAD_DATA      },
    {"bad signature data", "",                     szOID_RSA_SSA_PSS,   "05 00",                CRYPT_E_ASN1_ERROR},
    {"bad key data",       "05 00",                szOID_RSA_SSA_PSS,   "30 00",                CRYPT_E_ASN1_ERROR},
};

TEST(VerifySignature, KeysForPssOnly) {
  for (const auto& [name, keyParameters, signature, parameters, code] : kPssRules) {
    SCOPED_TRACE(name);
    FakeKeyLevel fake;
    const Algorithm keyAlgorithm(szOID_RSA_SSA_PSS, keyParameters);
    CERT_PUBLIC_KEY_INFO key{keyAlgorithm, {}};
    EXPECT_EQ(Verify(SignedObjectOf(Algorithm(signature, parameters)), &key), code == 0);
    EXPECT_EQ(GetLastError(), code);
    EXPECT_EQ(fake.converter.empty(), code != 0) << "a refused pair never reaches a provider";
  }
}

TEST(VerifySignature, RefusedObjectsAndArguments) {
  FakeKeyLevel fake;
  const Algorithm rsa(szOID_RSA_RSA), sha256Rsa(szOID_RSA_SHA256RSA);
  CERT_PUBLIC_KEY_INFO key{rsa, {}};
  const std::vector<BYTE> object = SignedObjectOf(sha256Rsa);
  EXPECT_FALSE(Verify({}, &key));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_ASN1_ERROR});
  EXPECT_FALSE(CryptVerifyCertificateSignature(0, X509_ASN_ENCODING, nullptr, 7, &key));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_ASN1_ERROR});
  EXPECT_FALSE(Verify(object, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_FALSE(Verify(SignedObjectOf(sha256Rsa, {}), &key));
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_DATA});
  EXPECT_FALSE(Verify(SignedObjectOf(sha256Rsa, kSignature, 1), &key));
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_SIGNATURE});
  EXPECT_FALSE(Verify(SignedObjectOf(Algorithm("1.2.3")), &key));
  EXPECT_FALSE(Verify(SignedObjectOf(Algorithm(szOID_NIST_sha256)), &key)) << "a hash is no signature";
  key.Algorithm.pszObjId = nullptr;
  EXPECT_FALSE(Verify(object, &key));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_TRUE(fake.converter.empty());
}

#define RSA_KEY "30 12 30 0d 06 09 2a 86 48 86 f7 0d 01 01 01 05 00 03 01 00 "
#define SIGNED_BY_RSA "30 0d 06 09 2a 86 48 86 f7 0d 01 01 0b 05 00 "
#define FIRST_OF_2026 "17 0d 32 36 30 31 30 31 30 30 30 30 30 30 5a "
constexpr char kCertificateBody[] =
    "30 4a 02 01 01 " SIGNED_BY_RSA "30 00 30 1e " FIRST_OF_2026 FIRST_OF_2026 "30 00 " RSA_KEY;
constexpr char kListBody[] = "30 25 02 01 01 " SIGNED_BY_RSA "30 00 " FIRST_OF_2026 "30 00";

TEST(VerifySignature, SubjectsAndIssuers) {
  FakeKeyLevel fake;
  const Algorithm rsa(szOID_RSA_RSA), signature(szOID_RSA_SHA256RSA, "05 00");
  CERT_PUBLIC_KEY_INFO info{rsa, {}};
  PCERT_PUBLIC_KEY_INFO key = &info;
  std::vector<BYTE> object = SignedObjectOf(signature);
  CRYPT_DATA_BLOB blob{static_cast<DWORD>(object.size()), object.data()};
  CRYPT_DATA_BLOB hollow{5, nullptr};
  const std::vector<BYTE> certificateBytes =
      SignedObjectOf(signature, kSignature, 0, FromHex(kCertificateBody));
  const std::vector<BYTE> listBytes = SignedObjectOf(signature, kSignature, 0, FromHex(kListBody));
  const Owner<PCCERT_CONTEXT, CertFreeCertificateContext> certificateOwner(CertCreateCertificateContext(
      X509_ASN_ENCODING, certificateBytes.data(), static_cast<DWORD>(certificateBytes.size())));
  const Owner<PCCRL_CONTEXT, CertFreeCRLContext> listOwner(
      CertCreateCRLContext(X509_ASN_ENCODING, listBytes.data(), static_cast<DWORD>(listBytes.size())));
  ASSERT_TRUE(certificateOwner) << GetLastError();
  ASSERT_TRUE(listOwner) << GetLastError();
  auto* const certificate = const_cast<CERT_CONTEXT*>(certificateOwner.get());
  auto* const list = const_cast<CRL_CONTEXT*>(listOwner.get());
  CERT_CONTEXT stranger = *certificate;
  const struct {
    const char* name;
    DWORD subjectType;
    void* subject;
    DWORD issuerType;
    void* issuer;
    DWORD flags;
    DWORD code;
  } kCases[] = {
      {"blob and key",                 1, &blob,       1, key,         0, 0                      },
      {"certificate and certificate",  2, certificate, 2, certificate, 0, 0                      },
      {"list and key",                 3, list,        1, key,         0, 0                      },
      {"no subject",                   1, nullptr,     1, key,         0, E_INVALIDARG           },
      {"no issuer",                    1, &blob,       1, nullptr,     0, E_INVALIDARG           },
      {"subject of type 0",            0, &blob,       1, key,         0, E_INVALIDARG           },
      {"subject of type 4",            4, &blob,       1, key,         0, E_INVALIDARG           },
      {"issuer of type 3",             1, &blob,       3, key,         0, E_INVALIDARG           },
      {"flags",                        1, &blob,       1, key,         1, E_INVALIDARG           },
      {"a blob without its bytes",     1, &hollow,     1, key,         0, CRYPT_E_ASN1_ERROR     },
      {"an issuer put together",       1, &blob,       2, &stranger,   0, 0                      },
      {"an issuer that is a list",     1, &blob,       2, list,        0, ERROR_INVALID_PARAMETER},
      {"a subject put together",       2, &stranger,   1, key,         0, 0                      },
      {"a subject that is a list",     2, list,        1, key,         0, ERROR_INVALID_PARAMETER},
      {"a list that is a certificate", 3, certificate, 1, key,         0, ERROR_INVALID_PARAMETER},
  };
  for (const auto& [name, subjectType, subject, issuerType, issuer, flags, code] : kCases) {
    SCOPED_TRACE(name);
    SetLastError(0);
    EXPECT_EQ(CryptVerifyCertificateSignatureEx(0, X509_ASN_ENCODING, subjectType, subject, issuerType,
                                                issuer, flags, nullptr),
              code == 0);
    EXPECT_EQ(GetLastError(), code);
  }
  EXPECT_FALSE(CryptVerifyCertificateSignatureEx(0, X509_ASN_ENCODING, 1, &blob, 1, key, 0, &blob));
  EXPECT_EQ(GetLastError(), DWORD{E_INVALIDARG});
}

class Signing : public ::testing::Test {
 protected:
  BOOL sign(Algorithm algorithm, std::vector<BYTE>& signature) {
    DWORD size = static_cast<DWORD>(signature.size());
    SetLastError(0);
    const BOOL done = CryptSignCertificate(provider.get(), AT_SIGNATURE, X509_ASN_ENCODING, kToBeSigned,
                                           sizeof(kToBeSigned), &algorithm, nullptr, signature.data(), &size);
    signature.resize(size);
    return done;
  }
  FakeKeyLevel fake;
  const ProviderHandle provider{SVAPI_I_GetDefaultProvider(PROV_RSA_AES)};
};

TEST_F(Signing, TurnsTheSignature) {
  std::vector<BYTE> signature;
  EXPECT_TRUE(sign(Algorithm(szOID_RSA_SHA256RSA), signature)) << "asks for the size";
  EXPECT_EQ(signature.size(), 4u);
  EXPECT_EQ(fake.signatures, 0);
  EXPECT_TRUE(sign(Algorithm(szOID_RSA_SHA256RSA), signature));
  EXPECT_EQ(signature, (std::vector<BYTE>{4, 3, 2, 1}));
  EXPECT_EQ(fake.hash, Sha256Of(kToBeSigned));
  EXPECT_TRUE(sign(Algorithm(szOID_RSA_SSA_PSS, PSS_SHA256_32), signature));
  EXPECT_EQ(fake.hash, Sha256Of(kToBeSigned)) << "the parameters' hash, not the table's";
  EXPECT_EQ(fake.pssParameter, (std::vector<DWORD>{32, CALG_SHA_256}));
  EXPECT_EQ(fake.signatureFlags, DWORD{CRYPT_PSS});
  EXPECT_TRUE(sign(Algorithm(szOID_RSA_SSA_PSS), signature));
  EXPECT_EQ(fake.pssParameter, (std::vector<DWORD>{20, CALG_SHA1}));
  signature.resize(32);
  EXPECT_TRUE(sign(Algorithm(szOID_NIST_sha256), signature));
  EXPECT_EQ(signature, Sha256Of(kToBeSigned)) << "a bare hash, not turned";
}

TEST_F(Signing, Failures) {
  std::vector<BYTE> signature(4);
  EXPECT_FALSE(sign(Algorithm("1.2.3"), signature));
  EXPECT_EQ(GetLastError(), DWORD{NTE_FAIL});
  EXPECT_FALSE(sign(Algorithm(szOID_RSA_SSA_PSS, "05 00"), signature));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_ASN1_ERROR});
  signature.resize(3);
  EXPECT_FALSE(sign(Algorithm(szOID_RSA_SHA256RSA), signature));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(fake.signatures, 0);

  Algorithm good(szOID_RSA_SHA256RSA), nameless(szOID_RSA_SHA256RSA), hollow(szOID_RSA_SHA256RSA, "05 00");
  nameless.pszObjId = nullptr;
  hollow.Parameters.pbData = nullptr;
  DWORD size = 4;
  const auto expectRefused = [&](const BYTE* bytes, PCRYPT_ALGORITHM_IDENTIFIER algorithm, DWORD* cb) {
    SetLastError(0);
    EXPECT_FALSE(CryptSignCertificate(provider.get(), AT_SIGNATURE, X509_ASN_ENCODING, bytes, 5, algorithm,
                                      nullptr, signature.data(), cb));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  };
  expectRefused(nullptr, &good, &size);
  expectRefused(kToBeSigned, nullptr, &size);
  expectRefused(kToBeSigned, &nameless, &size);
  expectRefused(kToBeSigned, &hollow, &size);
  expectRefused(kToBeSigned, &good, nullptr);
}

TEST_F(Signing, DisplaysWhatIsSigned) {
  fake.displays = true;
  std::vector<BYTE> signature;
  EXPECT_TRUE(sign(Algorithm(szOID_RSA_SHA256RSA), signature));
  EXPECT_TRUE(fake.display.empty()) << "a question for the size shows nothing";
  EXPECT_TRUE(sign(Algorithm(szOID_RSA_SHA256RSA), signature));
  EXPECT_EQ(fake.display, (std::vector<std::string>{"init", "release"}));
  fake.displayFails = true;
  EXPECT_FALSE(sign(Algorithm(szOID_RSA_SHA256RSA), signature));
  EXPECT_EQ(GetLastError(), DWORD{E_FAIL});
  EXPECT_EQ(fake.signatures, 1) << "nothing is signed unseen";
  EXPECT_EQ(fake.display.back(), "init") << "what was not registered is not released";
}

// Of ECDSA a signature may be shorter than the size that was told.
TEST_F(Signing, SignsAndEncodes) {
  fake.sizeTold = 130;
  fake.sizeMade = 126;
  Algorithm algorithm(szOID_ECDSA_SHA256);
  CERT_BLOB record{sizeof(kToBeSigned), const_cast<BYTE*>(kToBeSigned)};
  const auto make = [&](BYTE* out, DWORD* size) {
    SetLastError(0);
    return CryptSignAndEncodeCertificate(provider.get(), AT_SIGNATURE, X509_ASN_ENCODING, X509_OCTET_STRING,
                                         &record, &algorithm, nullptr, out, size);
  };
  DWORD most = 0;
  EXPECT_TRUE(make(nullptr, &most));
  std::vector<BYTE> object(most);
  DWORD size = most - 1;
  EXPECT_FALSE(make(object.data(), &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(size, most);
  EXPECT_EQ(fake.signatures, 0) << "no signature is made in vain";
  EXPECT_TRUE(make(object.data(), &size)) << GetLastError();
  object.resize(size);
  EXPECT_EQ(fake.hash, Sha256Of(FromHex("04 05 30 03 02 01 05"))) << "the encoding of the record";

  SignedObject parts;
  ASSERT_TRUE(ReadSignedObject(object, parts));
  EXPECT_EQ(ToHex(parts.toBeSigned), "04053003020105");
  EXPECT_EQ(parts.algorithm.oid, szOID_ECDSA_SHA256);
  std::vector<BYTE> turned(126);
  std::iota(turned.rbegin(), turned.rend(), BYTE{1});
  EXPECT_EQ(ToHex(parts.signature), ToHex(turned));
  EXPECT_EQ(parts.unusedBits, 0);

  EXPECT_FALSE(make(object.data(), nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  algorithm.pszObjId = nullptr;
  EXPECT_FALSE(make(nullptr, &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

}  // namespace
