// GOST objects as the documents print them: beside what openssl reads, the points and parameters that the documents
// give for each key.
#include "interop/object_match.h"
#include "support/hex.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

Bytes Published(const std::string& name) {
  return ReadFile(CERTKERN_SOURCE_DIR "/tests/data/published/" + name);
}

struct PublishedCertificate {
  const char* file;
  bool selfSigned;
  const char* parameters;  // of the curve; empty where the document names none
  const char* x;           // of the public point, big-endian; empty where the document does not print it
  const char* y;
};
const PublishedCertificate kCertificates[] = {
    {"rfc9215/d1_certificate.der",           true,  "1.2.643.2.2.35.0",
     "7F2B49E270DB6D90D8595BEC458B50C58585BA1D4E9B788F6689DBD8E56FD80B",       "26F1B489D6701DD185C8413A977B3CBBAF64D1C593D26627DFFB101A87FF77DA"},
    {"rfc9215/d2_certificate.der",           true,  "1.2.643.7.1.2.1.1.1",
     "99C3DF265EA59350640BA69D1DE04418AF3FEA03EC0F85F2DD84E8BED4952774",       "E218631A69C47C122E2D516DA1C09E6BD19344D94389D1F16C0C4D4DCF96F578"},
    {"rfc9215/d3_certificate.der",           true,  "1.2.643.7.1.2.1.2.0",
     "115DC5BC96760C7B48598D8AB9E740D4C4A85A65BE33C1815B5C320C854621DD"
     "5A515856D13314AF69BC5B924C8B4DDFF75C45415C1D9DD9DD33612CD530EFE1",       "37C7C90CD40B0F5621DC3AC1B751CFA0E2634FA0503B3D52639F5D7FB72AFD61"
     "EA199441D943FFE7F0C70A2759A3CDB84C114E1F9339FDF27F35ECA93677BEEC"  },
    {"tc26/cert256.der",                     true,  "1.2.643.2.2.36.0",    "", ""                                                                },
    {"tc26/cert512.der",                     true,  "1.2.643.7.1.2.1.2.2", "", ""                                                                },
    {"r1323565.1.025/root256_cert.der",      true,  "",                    "", ""                                                                },
    {"r1323565.1.025/sender256_cert.der",    false, "",                    "", ""                                                                },
    {"r1323565.1.025/sender512_cert.der",    false, "",                    "", ""                                                                },
    {"r1323565.1.025/recipient256_cert.der", false, "",                    "", ""                                                                },
    {"r1323565.1.025/recipient512_cert.der", false, "",                    "", ""                                                                },
};

std::string LittleEndian(const char* number) {
  Bytes bytes = FromHex(number);
  std::reverse(bytes.begin(), bytes.end());
  return ToHex(bytes);
}

TEST(PublishedObjects, Certificates) {
  for (const auto& [file, selfSigned, parameters, x, y] : kCertificates) {
    SCOPED_TRACE(file);
    const Bytes der = Published(file);
    ExpectCertificateMatches(der);
    const auto info = Decode<CERT_INFO>(X509_CERT_TO_BE_SIGNED, der);
    ASSERT_TRUE(info);
    const Bytes issuer(info->Issuer.pbData, info->Issuer.pbData + info->Issuer.cbData);
    const Bytes subject(info->Subject.pbData, info->Subject.pbData + info->Subject.cbData);
    EXPECT_EQ(issuer == subject, selfSigned);
    const CERT_PUBLIC_KEY_INFO& key = info->SubjectPublicKeyInfo;
    if (*parameters) {
      // GostR3410-PublicKeyParameters: the first OID is the curve's
      const auto values = Decode<CRYPT_SEQUENCE_OF_ANY>(
          X509_SEQUENCE_OF_ANY, {key.Algorithm.Parameters.pbData, key.Algorithm.Parameters.cbData});
      ASSERT_TRUE(values);
      const auto curve =
          Decode<LPSTR>(X509_OBJECT_IDENTIFIER, {values->rgValue[0].pbData, values->rgValue[0].cbData});
      ASSERT_TRUE(curve);
      EXPECT_STREQ(*curve, parameters);
    }
    if (*x) {
      // RFC 9215, 4.3: both coordinates little-endian in an OCTET STRING
      const auto point =
          Decode<CRYPT_DATA_BLOB>(X509_OCTET_STRING, {key.PublicKey.pbData, key.PublicKey.cbData});
      ASSERT_TRUE(point);
      EXPECT_EQ(ToHex({point->pbData, point->cbData}), LittleEndian(x) + LittleEndian(y));
    }
  }
}

TEST(PublishedObjects, RequestsAndLists) {
  for (const std::string example : {"rfc9215/d1", "rfc9215/d2", "rfc9215/d3"}) {
    SCOPED_TRACE(example);
    ExpectRequestMatches(Published(example + "_request.der"));
    // these lists have neither entries nor extensions, which is refused; their frame is read
    const Bytes list = Published(example + "_crl.der");
    ExpectListMatches(list);
    EXPECT_FALSE(Decode<CRL_INFO>(X509_CERT_CRL_TO_BE_SIGNED, list));
  }
}

}  // namespace
