// What the openssl program makes with RSA, ECDSA, Ed25519 and GOST R 34.10-2012 keys: every extension that it can
// write, revocation lists with all that their entries may hold, requests with attributes and without.
#include "interop/object_match.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

namespace fs = std::filesystem;

namespace {

class MadeObjects : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    directory_ = WorkDirectory() / "made";
    fs::create_directory(directory_);
    RunShell("sh '" CERTKERN_SOURCE_DIR "/tests/data/make_objects.sh' '" + directory_.string() + "'");
  }

  // How many files there are of a kind, each having been compared.
  static size_t forEach(const std::string& extension, void (*compare)(std::span<const BYTE>)) {
    size_t count = 0;
    for (const auto& entry : fs::directory_iterator(directory_)) {
      if (entry.path().extension() != extension) continue;
      SCOPED_TRACE(entry.path().filename().string());
      compare(ReadFile(entry.path()));
      ++count;
    }
    return count;
  }

  static fs::path directory_;
};
fs::path MadeObjects::directory_;

TEST_F(MadeObjects, ReadAsOpensslReadsThem) {
  EXPECT_EQ(forEach(".crt", ExpectCertificateMatches), 15u);
  EXPECT_EQ(forEach(".crl", ExpectListMatches), 12u);
  EXPECT_EQ(forEach(".csr", ExpectRequestMatches), 10u);
  // each extension that the script asks for was there
  for (const char* oid :
       {"1.3.6.1.5.5.7.1.1", "1.3.6.1.5.5.7.1.11", "2.5.29.14", "2.5.29.15", "2.5.29.17", "2.5.29.18",
        "2.5.29.19",         "2.5.29.20",          "2.5.29.21", "2.5.29.23", "2.5.29.24", "2.5.29.27",
        "2.5.29.28",         "2.5.29.31",          "2.5.29.32", "2.5.29.33", "2.5.29.35", "2.5.29.36",
        "2.5.29.37",         "2.5.29.46",          "2.5.29.54"}) {
    EXPECT_GT(CountRewritten(oid), 0u) << oid;
  }
}

}  // namespace
