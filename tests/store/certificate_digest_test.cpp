// Digests of encoded objects, and the search for a provider that can make them.
#include "store/certificate_digest.h"

#include <certkern/cert.h>
#include <certkern/errors.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string_view>
#include <vector>

#include "support/hex.h"

using namespace certkern;

namespace {

constexpr std::string_view kContent = "The quick brown fox jumps over the lazy dog";
const BYTE* const kBytes = reinterpret_cast<const BYTE*>(kContent.data());
constexpr DWORD kSize = kContent.size();

std::string HashCertificate(HCRYPTPROV provider, ALG_ID algorithm) {
  DWORD size = 0;
  if (!CryptHashCertificate(provider, algorithm, 0, kBytes, kSize, nullptr, &size)) return "failed";
  std::vector<BYTE> value(size);
  EXPECT_TRUE(CryptHashCertificate(provider, algorithm, 0, kBytes, kSize, value.data(), &size));
  return ToHex(value);
}

// The digests are those that "openssl dgst" prints.
TEST(CertificateDigest, Values) {
  constexpr char kSha1[] = "2FD4E1C67A2D28FCED849EE1BB76E7391B93EB12";
  EXPECT_EQ(HashCertificate(0, 0), kSha1);
  EXPECT_EQ(HashCertificate(0, CALG_SHA1), kSha1);
  EXPECT_EQ(HashCertificate(0, CALG_MD5), "9E107D9D372BB6826BD81D3542A419D6");
  EXPECT_EQ(HashCertificate(0, CALG_SHA_256),
            "D7A8FBB307D7809469CA9ABCB0082E4F8D5651E46D3CDB762D02D0BF37C9E592");
  EXPECT_EQ(HashCertificate(0, CALG_GR3411_2012_256),
            "3E7DEA7F2384B6C5A3D0E24AAA29C05E89DDD762145030EC22C71A6DB8B2C1F4");
  const ProviderHandle given(SVAPI_I_GetDefaultProvider(PROV_GOST_2012_256));
  EXPECT_EQ(HashCertificate(given.get(), 0), kSha1);
  BYTE random[1];
  EXPECT_TRUE(CryptGenRandom(given.get(), 1, random)) << "the caller's provider stays the caller's";
}

TEST(CertificateDigest, Failures) {
  BYTE value[64];
  DWORD size = 19;
  EXPECT_FALSE(CryptHashCertificate(0, 0, 0, kBytes, kSize, value, &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(size, 20u);
  const struct {
    const char* name;
    HCRYPTPROV provider;
    ALG_ID algorithm;
    const BYTE* bytes;
    DWORD* size;
    DWORD code;
  } kCases[] = {
      {"an algorithm that nobody has", 0,          CALG_MD2, kBytes,  &size,   NTE_BAD_ALGID          },
      {"no hash at all",               0,          1,        kBytes,  &size,   NTE_BAD_ALGID          },
      {"a provider that is none",      0x12345678, 0,        kBytes,  &size,   ERROR_INVALID_HANDLE   },
      {"no bytes",                     0,          0,        nullptr, &size,   ERROR_INVALID_PARAMETER},
      {"no size",                      0,          0,        kBytes,  nullptr, ERROR_INVALID_PARAMETER},
  };
  for (const auto& [name, provider, algorithm, bytes, cb, code] : kCases) {
    SCOPED_TRACE(name);
    SetLastError(0);
    EXPECT_FALSE(CryptHashCertificate(provider, algorithm, 0, bytes, kSize, value, cb));
    EXPECT_EQ(GetLastError(), code);
  }
}

std::vector<BYTE> Published(const std::string& name) {
  std::ifstream file(CERTKERN_SOURCE_DIR "/tests/data/published/rfc9215/" + name + ".der", std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string HashSignedPart(HCRYPTPROV provider, const std::vector<BYTE>& object) {
  BYTE value[64];
  DWORD size = sizeof(value);
  const DWORD objectSize = static_cast<DWORD>(object.size());
  if (!CryptHashToBeSigned(provider, X509_ASN_ENCODING, object.data(), objectSize, value, &size))
    return "failed";
  return ToHex({value, size});
}

// The digests are those that "openssl dgst" prints for the first element of each object.
TEST(CertificateDigest, SignedPart) {
  const std::vector<BYTE> certificate = Published("d1_certificate");
  constexpr char kCertificate[] = "AFECC67F740BFC461F87BFA2F5E4185E68DDE304EFE6A98B777CDC031FFD8743";
  EXPECT_EQ(HashSignedPart(0, certificate), kCertificate);
  const ProviderHandle given(SVAPI_I_GetDefaultProvider(PROV_RSA_AES));
  EXPECT_EQ(HashSignedPart(given.get(), certificate), kCertificate);
  EXPECT_EQ(HashSignedPart(0, Published("d2_crl")),
            "9E965B7DA162B243E077CAEA8020E8FE181F2D1D7F6773DFB99B093AB0E6B5AC");
  EXPECT_EQ(HashSignedPart(0, Published("d3_request")),
            "D21DD8CFC2B3B83DE69395A971C26FBC386B50114B84993E9CB9603D4E95A656"
            "C468597AC64AC2D0A2C7FD5E22A67C3F1FB490922A335A5DB3A12BE44DEE9FC0");
}

TEST(CertificateDigest, SignedPartFailures) {
  const struct {
    const char* name;
    const char* object;
    DWORD code;
  } kCases[] = {
      {"no object",                     "",                                 CRYPT_E_ASN1_ERROR},
      {"another element",               "31 00",                            CRYPT_E_ASN1_ERROR},
      {"nothing inside",                "30 00",                            CRYPT_E_ASN1_ERROR},
      {"no algorithm",                  "30 02 05 00",                      CRYPT_E_ASN1_ERROR},
      {"algorithm without identifier",  "30 04 05 00 30 00",                CRYPT_E_ASN1_ERROR},
      {"identifier without content",    "30 06 05 00 30 02 06 00",          CRYPT_E_ASN1_ERROR},
      {"signature without unused bits", "30 09 05 00 30 03 06 01 2A 03 00", CRYPT_E_ASN1_ERROR},
      {"an algorithm that nobody has",  "30 07 05 00 30 03 06 01 2A",       NTE_FAIL          },
  };
  for (const auto& [name, object, code] : kCases) {
    SCOPED_TRACE(name);
    SetLastError(0);
    EXPECT_EQ(HashSignedPart(0, FromHex(object)), "failed");
    EXPECT_EQ(GetLastError(), code);
  }
  SetLastError(0);
  DWORD size = 0;
  EXPECT_FALSE(CryptHashToBeSigned(0, X509_ASN_ENCODING, nullptr, 5, nullptr, &size));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_ASN1_ERROR});
  const std::vector<BYTE> whole = Published("d1_certificate");
  for (size_t cut = 0; cut < whole.size(); ++cut) {
    EXPECT_EQ(HashSignedPart(0, {whole.begin(), whole.begin() + static_cast<ptrdiff_t>(cut)}), "failed")
        << cut;
  }
}

// The default is only lent to us: what the search answers must be counted, or the second release ends it for everybody.
TEST(CertificateDigest, FoundProvidersAreOwned) {
  const HCRYPTPROV lent = SVAPI_I_CryptGetDefaultCryptProv(CALG_SHA1);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(FindProviderForAlgorithm(CALG_SHA1).get(), lent);
  EXPECT_EQ(SVAPI_I_CryptGetDefaultCryptProv(CALG_SHA1), lent) << "still alive";
  EXPECT_FALSE(FindProviderForAlgorithm(0));
  EXPECT_FALSE(FindProviderForAlgorithm(CALG_MD2));
}

}  // namespace
