// What the openssl program makes, and what browsers trust: certificates, revocation lists, requests and keys are decoded
// down to each extension, and written again they are the same bytes.
#include <certkern/text.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>

#include "asn1data/attributes.h"
#include "asn1data/certificate.h"
#include "asn1data/certificate_extensions.h"
#include "asn1data/devices.h"
#include "asn1data/extension_objects.h"
#include "asn1data/round_trip.h"
#include "interop/openssl_tool.h"
#include "support/hex.h"

namespace fs = std::filesystem;
using namespace certkern;
using namespace certkern::asn1data;
using namespace certkern::test;

namespace {

// Constraints with cA = FALSE written out, which a certificate may hold though DER would not write it.
constexpr const char* kSpelledDefault = "3003010100";

using Seen = std::set<std::string>;

// Each extension's octets are a value of the type that its identifier selects.
void ExpectExtensions(const ASN1T_Extensions& extensions, Seen& seen) {
  for (const ASN1T_Extension& extension : extensions) {
    const ObjectInfo* const object = FindObject(kObjects_SupportedExtensions, extension.extnID);
    if (!object || ToHex(extension.extnValue.bytes()) == kSpelledDefault) continue;
    SCOPED_TRACE(object->name);
    ExpectRoundTrip(*object->type, extension.extnValue.bytes());
    seen.insert(object->name);
  }
}

void ExpectCertificate(std::span<const BYTE> bytes, Seen& seen) {
  Decoded certificate(kInfo_Certificate, bytes);
  ASSERT_TRUE(certificate);
  ExpectExtensions(certificate.as<ASN1T_Certificate>().tbsCertificate.extensions, seen);
  EXPECT_EQ(certificate.encoded(), Bytes(bytes.begin(), bytes.end()));
}

void ExpectList(std::span<const BYTE> bytes, Seen& seen) {
  Decoded list(kInfo_CertificateList, bytes);
  ASSERT_TRUE(list);
  const auto& body = list.as<ASN1T_CertificateList>().tbsCertList;
  ExpectExtensions(body.crlExtensions, seen);
  for (const auto& entry : body.revokedCertificates) ExpectExtensions(entry.crlEntryExtensions, seen);
  EXPECT_EQ(list.encoded(), Bytes(bytes.begin(), bytes.end()));
}

// The attributes of a request are those of messages.
void ExpectRequest(std::span<const BYTE> bytes, Seen& seen) {
  Decoded request(kInfo_PCI_HSM_CertificationRequest, bytes);
  ASSERT_TRUE(request);
  for (const auto& attribute :
       request.as<ASN1T_PCI_HSM_CertificationRequest>().certificationRequestInfo.attributes) {
    for (const ASN1OpenValue& value : attribute.values) {
      ASN1ContextPtr context = ASN1ContextPtr::Create();
      ASN1OpenValue decoded = value;
      ASSERT_EQ(DecodeOpenValue(*context, kObjects_SupportedAttributes, attribute.type, decoded), ASN1_OK);
      if (decoded.type) seen.insert(decoded.type->name);
      if (decoded.type == &kInfo_Extensions)
        ExpectExtensions(*static_cast<const ASN1T_Extensions*>(decoded.decoded), seen);
    }
  }
  EXPECT_EQ(request.encoded(), Bytes(bytes.begin(), bytes.end()));
}

}  // namespace

TEST(CertificateGroup, ObjectsOfOpensslComeBack) {
  const fs::path directory = WorkDirectory() / "made";
  fs::create_directory(directory);
  RunShell("sh '" CERTKERN_SOURCE_DIR "/tests/data/make_objects.sh' '" + directory.string() + "'");
  const std::map<std::string, void (*)(std::span<const BYTE>, Seen&)> kinds = {
      {".crt", ExpectCertificate},
      {".crl", ExpectList       },
      {".csr", ExpectRequest    },
  };
  std::map<std::string, int> counts;
  Seen seen;
  for (const auto& entry : fs::directory_iterator(directory)) {
    SCOPED_TRACE(entry.path().filename().string());
    const std::string kind = entry.path().extension().string();
    if (const auto found = kinds.find(kind); found != kinds.end())
      found->second(ReadFile(entry.path()), seen);
    if (kind == ".key") {
      const fs::path key = WorkDirectory() / "key.der";
      RunShell("OPENSSL_CONF='" + (directory / "openssl.cnf").string() + "' openssl pkey -in '"
               + entry.path().string() + "' -pubout -outform DER -out '" + key.string() + "'");
      ExpectRoundTrip(kInfo_SubjectPublicKeyInfo, ReadFile(key));
    }
    ++counts[kind];
  }
  for (const char* kind : {".crt", ".crl", ".csr", ".key"}) EXPECT_GE(counts[kind], 5) << kind;
  for (const char* name : {"authorityInfoAccess",
                           "subjectInfoAccess",
                           "authorityKeyIdentifier",
                           "subjectKeyIdentifier",
                           "keyUsage",
                           "extKeyUsage",
                           "certificatePolicies",
                           "policyMappings",
                           "subjectAltName",
                           "issuerAltName",
                           "basicConstraints",
                           "nameConstraints",
                           "policyConstraints",
                           "cRLNumber",
                           "reasonCode",
                           "instructionCode",
                           "invalidityDate",
                           "cRLDistributionPoints",
                           "issuingDistributionPoint",
                           "deltaCRLIndicator",
                           "freshestCrl",
                           "Extensions"})
    EXPECT_TRUE(seen.count(name)) << name << " never came";
}

TEST(CertificateGroup, TrustedRootsComeBack) {
  std::ifstream bundle("/etc/ssl/certs/ca-certificates.crt");
  Seen seen;
  int count = 0;
  std::string pem;
  for (std::string line; std::getline(bundle, line);) {
    pem += line + "\n";
    if (line != "-----END CERTIFICATE-----") continue;
    SCOPED_TRACE("certificate " + std::to_string(++count));
    Bytes der(pem.size());
    DWORD size = static_cast<DWORD>(der.size());
    ASSERT_TRUE(
        CryptStringToBinaryA(pem.c_str(), 0, CRYPT_STRING_BASE64HEADER, der.data(), &size, nullptr, nullptr));
    ExpectCertificate(std::span(der.data(), size), seen);
    pem.clear();
  }
  EXPECT_GT(count, 100) << "the package ca-certificates is not installed";
}
