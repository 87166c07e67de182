// A site's revocation library in place of the built-in engine. In a program of its own: the setting is read once.
#include <certkern/revocation.h>

#include <fstream>

#include "certkern/chain/chain_fixture.h"

namespace certkern::test {
namespace {

constexpr DWORD kChain = CERT_CHAIN_REVOCATION_CHECK_CHAIN;

class RevocationLibrary : public testing::Test {
 protected:
  // Before anything reads the configuration.
  static void SetUpTestSuite() {
    std::ofstream(Sandbox().path("config.toml"), std::ios::app)
        << "[cryptography.OID.'EncodingType 1'.CertDllVerifyRevocation.DEFAULT]\nDLL = '" JUDGE_LIBRARY "'\n";
  }
  void SetUp() override { setenv("JUDGE_LOG", log_.path("log").c_str(), 1); }
  std::string verdict(const char* answer, const Question& question = {.flags = kChain}) {
    setenv("JUDGE_ANSWER", answer, 1);
    std::remove(log_.path("log").c_str());
    return ChainWorld(objects_, "root", "").verdict("leaf", question);
  }
  std::string log() const { return log_.read("log"); }

  const TemporaryDirectory log_;
  const ChainObjects objects_{"cert root | | | | | ca\ncert leaf | root"};
};

TEST_F(RevocationLibrary, Answers) {
  EXPECT_EQ(verdict("good"), "leaf root");
  EXPECT_EQ(verdict("revoked"), "leaf:0x4 root = 0x4");
  EXPECT_EQ(verdict("offline"), "leaf:0x40 root = 0x40");
  SetLastError(static_cast<DWORD>(CRYPT_E_REVOKED));
  EXPECT_EQ(verdict("no code"), "leaf:0x40 root = 0x40") << "an older code is not the library's";
}

TEST_F(RevocationLibrary, WhatItIsAsked) {
  verdict("good");
  EXPECT_EQ(log(), "10001 1 1 flags=20000006 para=80 time=0 status=24\n") << "no list from the network";
  verdict("good", {.flags = kChain, .at = "20260101", .wire = true});
  EXPECT_EQ(log(), "10001 1 1 flags=20000000 para=80 time=1 status=24\n");
}

TEST_F(RevocationLibrary, ThatCallsBack) {
  EXPECT_EQ(verdict("back"), "leaf:0x4 root = 0x4") << "judged without any list";
  EXPECT_EQ(log().find('\n'), log().size() - 1) << "asked once";
  EXPECT_EQ(verdict("good"), "leaf root") << "and it is asked again afterwards";
}

}  // namespace
}  // namespace certkern::test
