// Digests of encoded objects, and the search for a provider that can make them.
#include "store/certificate_digest.h"

#include <certkern/cert.h>
#include <certkern/errors.h>
#include <gtest/gtest.h>

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

// The default is only lent to us: what the search answers must be counted, or the second release ends it for everybody.
TEST(CertificateDigest, FoundProvidersAreOwned) {
  const HCRYPTPROV lent = SVAPI_I_CryptGetDefaultCryptProv(CALG_SHA1);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(FindProviderForAlgorithm(CALG_SHA1).get(), lent);
  EXPECT_EQ(SVAPI_I_CryptGetDefaultCryptProv(CALG_SHA1), lent) << "still alive";
  EXPECT_FALSE(FindProviderForAlgorithm(0));
  EXPECT_FALSE(FindProviderForAlgorithm(CALG_MD2));
}

}  // namespace
