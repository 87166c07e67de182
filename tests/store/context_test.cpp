// Contexts: what is taken for an object, and how they are counted.
#include <certkern/errors.h>
#include <gtest/gtest.h>

#include "store/sample_objects.h"
#include "support/hex.h"

using namespace certkern;
using namespace certkern::test;

namespace {

TEST(Context, HeaderIsCheckedByHand) {
  const Bytes good = MakeCertificate({});
  Bytes cut = good;
  cut.pop_back();
  const struct {
    const char* name;
    Bytes bytes;
    DWORD encoding;
    DWORD code;
  } kCases[] = {
      {"no SEQUENCE",                   FromHex("310100"),         1, ERROR_INTERNAL_ERROR   },
      {"a header of one byte",          FromHex("30"),             1, ERROR_INTERNAL_ERROR   },
      {"indefinite length",             FromHex("30800000"),       1, ERROR_INTERNAL_ERROR   },
      {"five length bytes",             FromHex("30850000000001"), 1, ERROR_INTERNAL_ERROR   },
      {"length bytes run off the end",  FromHex("30840000"),       1, ERROR_INTERNAL_ERROR   },
      {"content runs off the end",      FromHex("30820100"),       1, CRYPT_E_ASN1_EOD       },
      {"content is the largest number", FromHex("3084FFFFFFFF"),   1, CRYPT_E_ASN1_EOD       },
      {"the last byte is missing",      cut,                       1, CRYPT_E_ASN1_EOD       },
      {"a body that is no certificate", FromHex("3003020105"),     1, CRYPT_E_OSS_ERROR      },
      {"an encoding that is not X.509", good,                      2, ERROR_INVALID_PARAMETER},
      {"a list is no certificate",      MakeCrl({}),               1, CRYPT_E_OSS_ERROR      },
  };
  const size_t before = contextRegistry.get()->size();
  for (const auto& [name, bytes, encoding, code] : kCases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(CertCreateCertificateContext(encoding, bytes.data(), static_cast<DWORD>(bytes.size())),
              nullptr);
    EXPECT_EQ(GetLastError(), code);
  }
  EXPECT_EQ(CertCreateCertificateContext(1, nullptr, 5), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{E_INVALIDARG});
  EXPECT_EQ(CertCreateCRLContext(1, good.data(), 0), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{E_INVALIDARG});
  EXPECT_EQ(contextRegistry.get()->size(), before) << "a failed context stays in the registry";
}

TEST(Context, EveryTruncationAndChangeHasAnAnswer) {
  const Bytes& good = OpensslCertificate();
  for (size_t size = 1; size < good.size(); ++size) {
    const Bytes cut(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_FALSE(CreateCertificate(cut)) << size;
  }
  for (size_t at = 0; at < good.size(); ++at) {
    for (const BYTE change : {BYTE{0x80}, BYTE{0x01}, BYTE{0xFF}}) {
      Bytes bent = good;
      bent[at] = static_cast<BYTE>(bent[at] ^ change);
      if (const CertificateHandle context = CreateCertificate(bent)) {
        DWORD size = 0;  // whatever was taken can be worked with
        static_cast<void>(
            CertGetCertificateContextProperty(context.get(), CERT_KEY_IDENTIFIER_PROP_ID, nullptr, &size));
      }
    }
  }
}

TEST(Context, BytesBehindTheObjectDoNotCount) {
  const Bytes good = MakeCertificate({.serial = 7});
  const CertificateHandle context = CreateCertificate(Concat({good, FromHex("DEADBEEF")}));
  ASSERT_TRUE(context);
  EXPECT_EQ(context->cbCertEncoded, good.size());
  EXPECT_EQ(Bytes(context->pbCertEncoded, context->pbCertEncoded + context->cbCertEncoded), good);
  EXPECT_EQ(context->hCertStore, nullptr);
  EXPECT_EQ(context->dwCertEncodingType, DWORD{X509_ASN_ENCODING});
}

TEST(Context, Counts) {
  const size_t before = contextRegistry.get()->size();
  PCCERT_CONTEXT context = CreateCertificate(MakeCertificate({})).release();
  const CertificateHandle other = CreateCertificate(MakeCertificate({}));
  EXPECT_NE(context, other.get()) << "the same bytes twice are two contexts";
  EXPECT_EQ(CertDuplicateCertificateContext(context), context);
  EXPECT_TRUE(CertFreeCertificateContext(context));
  EXPECT_EQ(context->pCertInfo->SerialNumber.cbData, 5u) << "one count is left";
  EXPECT_EQ(contextRegistry.get()->size(), before + 2);
  EXPECT_TRUE(CertFreeCertificateContext(context));
  EXPECT_EQ(contextRegistry.get()->size(), before + 1);

  EXPECT_TRUE(CertFreeCertificateContext(nullptr));
  EXPECT_TRUE(CertFreeCRLContext(nullptr));
  EXPECT_EQ(CertDuplicateCRLContext(nullptr), nullptr);
}

}  // namespace
