// The display of what is to be signed: which messages are registered with it, and for how long.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>

#include "certkern/cms_objects.h"

using namespace certkern::test;

namespace {

// The key level's display, played by the test: linked in, it stands before the library's own.
struct Display {
  bool enabled = false;
  bool refusesActivation = false;
  std::map<const void*, HASH_MSG_RECORD> registered;
  std::string calls;
};
Display display;

class MessageDisplayTest : public testing::Test {
 protected:
  void SetUp() override {
    display = {};
    display.enabled = true;
  }
  void TearDown() override { display = {}; }
};

}  // namespace

extern "C" {
BOOL isDTBSEnabled(void) { return display.enabled; }
BOOL TlsInitHashMsgIndex(void* key, DWORD, const HASH_MSG_RECORD* record) {
  display.registered[key] = *record;
  display.calls += "init ";
  return TRUE;
}
BOOL TlsSetHashMsgIndex(void*, DWORD active) {
  display.calls += active ? "set " : "unset ";
  return !display.refusesActivation;
}
BOOL TlsReleaseHashMsgIndex(void* key) {
  display.registered.erase(key);
  display.calls += "release ";
  SetLastError(0xBAD);
  return FALSE;
}
}

TEST_F(MessageDisplayTest, LastsFromOpenToClose) {
  OwnKey key("gost256");
  CMSG_SIGNER_ENCODE_INFO signer = key.signer();
  CMSG_SIGNED_ENCODE_INFO info{};
  info.cbSize = sizeof info;
  info.cSigners = 1;
  info.rgSigners = &signer;
  const auto open = [&](DWORD flags) {
    return Message(CryptMsgOpenToEncode(X509_ASN_ENCODING, flags | SVCMSG_CADES_DISABLE, CMSG_SIGNED, &info,
                                        nullptr, nullptr));
  };
  display.calls.clear();  // the certificate was signed, too
  EXPECT_TRUE(open(0));
  EXPECT_EQ(display.calls, "release ");
  display.calls.clear();

  Message message = open(SVCMSG_DTBS_DISPLAY | SVCMSG_DTBS_DISPLAY_SIGNER);
  ASSERT_TRUE(message);
  ASSERT_EQ(display.registered.count(message.get()), 1u);
  const HASH_MSG_RECORD& record = display.registered[message.get()];
  EXPECT_EQ(record.hCryptProv, signer.hCryptProv);
  EXPECT_EQ(record.dwFlags, SVCMSG_DTBS_DISPLAY | SVCMSG_DTBS_DISPLAY_SIGNER);
  EXPECT_EQ(record.fForced, 0u);
  SetLastError(0x1234);
  message.reset();
  EXPECT_EQ(GetLastError(), 0x1234u);
  EXPECT_EQ(display.calls, "init set release ");

  display.refusesActivation = true;
  EXPECT_FALSE(open(SVCMSG_DTBS_DISPLAY));
  EXPECT_EQ(GetLastError(), DWORD(E_FAIL));
  EXPECT_TRUE(display.registered.empty());
}

TEST_F(MessageDisplayTest, OfAnAddedSignerLastsForTheControl) {
  OwnKey key("gost256");
  const CMSG_SIGNER_ENCODE_INFO signer = key.signer();
  const Message message = OpenMessage(SignedBytes("rsa-attached.cms"));
  display.calls.clear();
  EXPECT_TRUE(CryptMsgControl(message.get(), SVCMSG_DTBS_DISPLAY_SIGNER | SVCMSG_CADES_DISABLE,
                              CMSG_CTRL_ADD_SIGNER, &signer));
  EXPECT_EQ(display.calls, "init set release ");
  display.calls.clear();
  display.refusesActivation = true;
  EXPECT_FALSE(CryptMsgControl(message.get(), SVCMSG_DTBS_DISPLAY | SVCMSG_CADES_DISABLE,
                               CMSG_CTRL_ADD_SIGNER, &signer));
  EXPECT_EQ(GetLastError(), DWORD(E_FAIL));
  DWORD count = 0, size = sizeof count;
  EXPECT_TRUE(CryptMsgGetParam(message.get(), CMSG_SIGNER_COUNT_PARAM, 0, &count, &size));
  EXPECT_EQ(count, 2u) << "nothing is signed unseen";
}

TEST_F(MessageDisplayTest, FailedOpenLeavesTheProvider) {
  HCRYPTPROV provider = 0;
  ASSERT_TRUE(CryptAcquireContextA(&provider, nullptr, nullptr, PROV_GOST_2012_256, CRYPT_VERIFYCONTEXT));
  display.refusesActivation = true;
  EXPECT_FALSE(CryptMsgOpenToDecode(0, SVCMSG_DTBS_DISPLAY | CMSG_CRYPT_RELEASE_CONTEXT_FLAG, 0, provider,
                                    nullptr, nullptr));
  EXPECT_EQ(GetLastError(), DWORD(E_FAIL));
  EXPECT_TRUE(CryptReleaseContext(provider, 0));
}

// In a process of its own: the configuration is read once.
TEST_F(MessageDisplayTest, ForcedByTheConfiguration) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::string path = (WorkDirectory() / "forced.toml").string();
  std::ofstream(path) << "[config.Parameters]\nForceDTBSDisplay = 1\n";
  const std::string before = std::getenv("CERTKERN_CONFIG") ? std::getenv("CERTKERN_CONFIG") : "";
  ASSERT_EQ(::setenv("CERTKERN_CONFIG", path.c_str(), 1), 0);
  EXPECT_EXIT(
      {
        HCRYPTPROV provider = 0;
        CryptAcquireContextA(&provider, nullptr, nullptr, PROV_GOST_2012_256, CRYPT_VERIFYCONTEXT);
        CryptMsgOpenToDecode(0, 0, 0, provider, nullptr, nullptr);
        std::_Exit(display.calls == "init set " ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
  ASSERT_EQ(::setenv("CERTKERN_CONFIG", before.c_str(), 1), 0);
}
