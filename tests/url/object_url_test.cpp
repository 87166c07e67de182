// The URLs in a certificate's distribution points.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/url.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "store/sample_objects.h"
#include "support/hex.h"

using namespace certkern;
using namespace certkern::test;

namespace {

Bytes Name(BYTE tag, const std::string& text) { return Der(tag, Bytes(text.begin(), text.end())); }
// DistributionPoint with a fullName of these general names.
Bytes Point(std::initializer_list<Bytes> names) { return Der(0x30, Der(0xA0, Der(0xA0, Concat(names)))); }

const Bytes kDirectoryName = FromHex("A40D 300B 3109 3007 0603550403 0C00");

CertificateHandle With(const Bytes& points) {
  return CreateCertificate(MakeCertificate({.extensions = MakeExtension(31, Der(0x30, points))}));
}

TEST(ObjectUrl, TextsOfAllPointsInOneBlock) {
  const CertificateHandle certificate =
      With(Concat({Point({Name(0x86, "http://a/1"), kDirectoryName, Name(0x82, "dns")}),
                   Der(0x30, Der(0x81, {0x07, 0x80})), Point({Name(0x86, "ldap://b")})}));
  ASSERT_TRUE(certificate);
  auto* const para = const_cast<CERT_CONTEXT*>(certificate.get());
  const auto ask = [&](CRYPT_URL_ARRAY* array, DWORD* size) {
    return CryptGetObjectUrl(URL_OID_CERTIFICATE_CRL_DIST_POINT, para, 0, array, size, nullptr, nullptr,
                             nullptr);
  };
  DWORD size = 0;
  ASSERT_TRUE(ask(nullptr, &size));
  EXPECT_EQ(size, 16u + 3 * 8 + 4 * (11 + 4 + 9));
  std::vector<uint64_t> block(size / 8);
  auto* const array = reinterpret_cast<CRYPT_URL_ARRAY*>(block.data());
  DWORD less = size - 1;
  EXPECT_FALSE(ask(array, &less));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(less, size);
  ASSERT_TRUE(ask(array, &size));
  ASSERT_EQ(array->cUrl, 3u);
  EXPECT_STREQ(array->rgwszUrl[0], L"http://a/1");
  EXPECT_STREQ(array->rgwszUrl[1], L"dns");
  EXPECT_STREQ(array->rgwszUrl[2], L"ldap://b");
  EXPECT_EQ(static_cast<void*>(array->rgwszUrl), static_cast<void*>(array + 1));
}

TEST(ObjectUrl, WithoutUrls) {
  const CertificateHandle none = With(Point({kDirectoryName}));
  DWORD size = 0;
  EXPECT_TRUE(CryptGetObjectUrl(URL_OID_CERTIFICATE_CRL_DIST_POINT, const_cast<CERT_CONTEXT*>(none.get()), 0,
                                nullptr, &size, nullptr, nullptr, nullptr));
  EXPECT_EQ(size, 16u);
  const CertificateHandle plain = CreateCertificate(MakeCertificate({}));
  const CertificateHandle broken =
      CreateCertificate(MakeCertificate({.extensions = MakeExtension(31, FromHex("3001"))}));
  const struct {
    const char* name;
    LPCSTR kind;
    PCCERT_CONTEXT certificate;
    DWORD* size;
    DWORD code;  // 0: that of the decoder
  } cases[] = {
      {"no extension",   URL_OID_CERTIFICATE_CRL_DIST_POINT, plain.get(),  &size,   ERROR_NOT_FOUND        },
      {"broken",         URL_OID_CERTIFICATE_CRL_DIST_POINT, broken.get(), &size,   0                      },
      {"another kind",   URL_OID_CERTIFICATE_ISSUER,         none.get(),   &size,   ERROR_INVALID_PARAMETER},
      {"no certificate", URL_OID_CERTIFICATE_CRL_DIST_POINT, nullptr,      &size,   ERROR_INVALID_PARAMETER},
      {"no size",        URL_OID_CERTIFICATE_CRL_DIST_POINT, none.get(),   nullptr, ERROR_INVALID_PARAMETER},
  };
  for (const auto& [name, kind, certificate, sizeOut, code] : cases) {
    SCOPED_TRACE(name);
    SetLastError(0);
    EXPECT_FALSE(CryptGetObjectUrl(kind, const_cast<CERT_CONTEXT*>(certificate), 0, nullptr, sizeOut, nullptr,
                                   nullptr, nullptr));
    EXPECT_TRUE(code ? GetLastError() == code : GetLastError() != 0) << GetLastError();
  }
}

}  // namespace
