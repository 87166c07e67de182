// The question about a trusted root, from the addition down to a user at a terminal.
#include "store/root_confirmation.h"

#include <certkern/errors.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "platform/temporary_directory.h"
#include "store/sample_objects.h"
#include "support/at_terminal.h"

using namespace certkern;
using namespace certkern::test;

namespace {

class RootConfirmation : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(setenv("XDG_DATA_HOME", directory.path("").c_str(), 1), 0);
    ASSERT_EQ(setenv("NLSPATH", CERTKERN_BINARY_DIR "/catalogue/en/%N", 1), 0);
  }
  TemporaryDirectory directory;
};

constexpr DWORD kUser = CERT_SYSTEM_STORE_CURRENT_USER;

// Adds it in place of one that is there already with its property. Ends a child: 0 for added, 1 for refused with nothing
// lost, 2 for anything that must never be.
[[noreturn]] void AddAndEnd(const Bytes& encoded, DWORD disposition) {
  const StoreHandle store(AsStore(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, kUser, L"Root")));
  if (!store) _exit(2);
  const std::string before = Serials(*store.get());
  const CertificateHandle context = CreateCertificate(encoded);
  // a hash that somebody else has put there must not be what the user compares
  BYTE lie[20] = {};
  const CRYPT_DATA_BLOB blob{sizeof lie, lie};
  CertSetCertificateContextProperty(context.get(), CERT_SHA1_HASH_PROP_ID, 0, &blob);
  if (CertAddCertificateContextToStore(store.get(), context.get(), disposition, nullptr)) _exit(0);
  _exit(GetLastError() == ERROR_CANCELLED && Serials(*store.get()) == before ? 1 : 2);
}

TEST_F(RootConfirmation, TheUserDecides) {
  const Bytes& encoded = OpensslCertificate();
  const std::string hash = [&] {
    const CertificateHandle context = CreateCertificate(encoded);
    BYTE bytes[20];
    DWORD size = sizeof bytes;
    CertGetCertificateContextProperty(context.get(), CERT_SHA1_HASH_PROP_ID, bytes, &size);
    std::string text;
    for (const BYTE each : bytes) {
      char digits[3];
      snprintf(digits, sizeof digits, "%02X", each);
      text += digits;
    }
    return text;
  }();
  for (const auto& [answer, status] : {
           std::pair("no\n", 1), {"\n",    1},
             {"\x04",  1},
             {"yes\n", 0},
             {"no\n",  1}
  }) {
    AtTerminal user([&] { AddAndEnd(encoded, CERT_STORE_ADD_REPLACE_EXISTING); });
    EXPECT_TRUE(user.sees("SHA-1: " + hash + "\r\n")) << user.screen();
    EXPECT_TRUE(user.sees("[no] "));
    user.type(answer);
    EXPECT_EQ(user.status(), status) << answer;
  }
}

TEST_F(RootConfirmation, AForeignNameStaysAName) {
  AtTerminal user(
      [] { AddAndEnd(MakeCertificate({.subject = "Good\r\nSHA-1: 00\x1B[2J  %s"}), CERT_STORE_ADD_NEW); });
  EXPECT_TRUE(user.sees("Name: Good SHA-1: 00\uFFFD[2J %s\r\nSHA-1: ")) << user.screen();
  EXPECT_TRUE(user.sees("[no] "));
  user.type("n\n");
  EXPECT_EQ(user.status(), 1);
}

// Each ends with the code of the addition, whatever was in the way.
TEST_F(RootConfirmation, WhereNobodyCanBeAskedTheAnswerIsNo) {
  const auto atNoTerminal = [](const Bytes& encoded) {
    const pid_t child = fork();
    if (child == 0) {
      setsid();
      AddAndEnd(encoded, CERT_STORE_ADD_ALWAYS);
    }
    return StatusOf(child);
  };
  EXPECT_EQ(atNoTerminal(OpensslCertificate()), 1);
  const auto unasked = [](const std::function<void()>& prepare, const Bytes& encoded) {
    AtTerminal user([&] {
      prepare();
      AddAndEnd(encoded, CERT_STORE_ADD_ALWAYS);
    });
    EXPECT_FALSE(user.sees("[no] "));
    return user.status();
  };
  EXPECT_EQ(unasked([] { setenv("NLSPATH", "/nowhere/%N", 1); }, OpensslCertificate()), 1) << "no catalogue";
  Bytes damaged = MakeCertificate({.subject = "nobody"});
  const std::string_view name = "nobody";
  const auto at = std::search(damaged.begin(), damaged.end(), name.begin(), name.end());
  ASSERT_EQ(*(at - 11), 0x31) << "the set that the name is in";
  *(at - 11) = 0x30;
  EXPECT_EQ(unasked([] {}, damaged), 1) << "a name that can't be read";
}

TEST_F(RootConfirmation, OnlyTheUsersOwnRootsAreAskedAbout) {
  const pid_t child = fork();
  if (child == 0) {
    setsid();
    const Bytes& encoded = OpensslCertificate();
    const StoreHandle store(AsStore(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, kUser, L"CA")));
    const auto size = static_cast<DWORD>(encoded.size());
    _exit(CertAddEncodedCertificateToStore(store.get(), 1, encoded.data(), size, CERT_STORE_ADD_NEW, nullptr)
              ? 0
              : 1);
  }
  EXPECT_EQ(StatusOf(child), 0);
}

TEST(ShownName, OneLineOfABoundedLength) {
  const auto cut = [](wchar_t character) { return std::wstring(128, character).replace(125, 3, L"..."); };
  const struct {
    std::wstring name, shown;
  } kCases[] = {
      {L"\t a\r\n\v b\u2003\u3000 c \n", L"a b c"},
      {                                L"a\u202Eb\x7F",               L"a\uFFFDb\uFFFD"        },
      {             std::wstring(L"a\0b",                     3),                             L"a\uFFFDb"},
      {                     L" \n\u2800",                                L""                        },
      { std::wstring(128,                           L'x'),                                   std::wstring(128, L'x')},
      {                                                   std::wstring(129,                       L'x'),                               cut(L'x')},
      {             std::wstring(100'000,              L'\U0010FFFF'),                      cut(L'\U0010FFFF')},
  };
  for (const auto& [name, shown] : kCases) EXPECT_EQ(ShownName(name), shown);
}

}  // namespace
