// Certificates of the public authorities that this machine trusts: made by many hands over thirty years.
#include "interop/object_match.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

std::vector<Bytes> ReadBundle() {
  std::vector<Bytes> certificates;
  std::ifstream file("/etc/ssl/certs/ca-certificates.crt");
  std::string pem;
  for (std::string line; std::getline(file, line);) {
    pem += line + "\n";
    if (line != "-----END CERTIFICATE-----") continue;
    DWORD size = 0;
    EXPECT_TRUE(
        CryptStringToBinaryA(pem.c_str(), 0, CRYPT_STRING_BASE64HEADER, nullptr, &size, nullptr, nullptr));
    Bytes der(size);
    EXPECT_TRUE(
        CryptStringToBinaryA(pem.c_str(), 0, CRYPT_STRING_BASE64HEADER, der.data(), &size, nullptr, nullptr));
    certificates.push_back(std::move(der));
    pem.clear();
  }
  return certificates;
}

TEST(Bundle, EveryAuthorityReadsAsOpensslReadsIt) {
  const std::vector<Bytes> bundle = ReadBundle();
  ASSERT_GT(bundle.size(), 100u) << "the package ca-certificates is not installed";
  for (size_t i = 0; i < bundle.size(); ++i) {
    SCOPED_TRACE("certificate " + std::to_string(i));
    ExpectCertificateMatches(bundle[i]);
  }
}

}  // namespace
