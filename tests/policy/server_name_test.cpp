#include "policy/server_name.h"

#include <gtest/gtest.h>

#include <certkern/errors.h>

#include <clocale>

#include "platform/exceptions.h"
#include "store/sample_objects.h"

namespace certkern {
namespace {

using test::Bytes;
using test::Concat;
using test::Der;

Bytes Raw(std::string_view text) { return {text.begin(), text.end()}; }

TEST(ServerName, StarIsOneWholeFirstLabel) {
  struct Row {
    const wchar_t* server;
    const wchar_t* pattern;
    bool matches;
  };
  constexpr Row kRows[] = {
      {L"a.example",     L"*.example",     true },
      {L"abc.example",   L"*.example",     true },
      {L"xn--a.example", L"*.example",     true },
      {L"example",       L"*.example",     false},
      {L"a.b.example",   L"*.example",     false},
      {L".example",      L"*.example",     false},
      {L"abc.example",   L"a*.example",    false},
      {L"abc.example",   L"*c.example",    false},
      {L"abc.example",   L"**.example",    false},
      {L"*.example",     L"a.example",     false},
      {L"www.x.example", L"www.*.example", false},
      {L"www.*.example", L"www.*.example", false},
      {L"a.b.example",   L"*.*.example",   false},
      {L"localhost",     L"*",             true },
      {L"a.example",     L"*",             false},
      {L"a.example",     L"a.example",     true },
      {L"abc.example",   L"a.example",     false},
      {L"a.example",     L"abc.example",   false},
      {L"example.com.",  L"example.com",   false},
      {L"example.com",   L"example.com.",  false},
      {L"a.example.",    L"a.example.",    true },
      {L"a.b",           L"a.",            false},
      {L"127.0.0.1",     L"127.0.0.1",     true },
      {L"127.0.0.1",     L"*.0.0.1",       true },
      {L"",              L"x.y",           false},
      {L"x.y",           L"",              false},
      {L"",              L"",              false},
  };
  for (const Row& row : kRows) {
    EXPECT_EQ(MatchesServerName(row.server, row.pattern), row.matches)
        << LowerCase(row.server).size() << " " << std::string(row.pattern, row.pattern + wcslen(row.pattern));
  }
}

// Whatever the program's locale takes for the other case of a letter.
TEST(ServerName, CaseIsThatOfAscii) {
  ASSERT_TRUE(setlocale(LC_ALL, "C.UTF-8"));
  EXPECT_EQ(LowerCase(L"K.Example"), L"k.example");
  EXPECT_EQ(LowerCase(L"K\u212A.Example"), L"K\u212A.Example");
  setlocale(LC_ALL, "C");
}

// Alternative names of a certificate: the content of its extension, one entry after the other.
AltNameVerdict Compare(const Bytes& entries, const wchar_t* server, BYTE id = 17) {
  const auto certificate = test::CreateCertificate(
      test::MakeCertificate({.extensions = test::MakeExtension(id, Der(0x30, entries))}));
  return CompareAltNames(*certificate->pCertInfo, server);
}

TEST(ServerName, AlternativeNamesOfBothForms) {
  const Bytes dns = Der(0x82, Raw("*.Example.ORG"));
  const Bytes four = Der(0x87, {127, 0, 0, 1});
  EXPECT_EQ(Compare(dns, L"www.example.org"), AltNameVerdict::Matches);
  EXPECT_EQ(Compare(dns, L"www.example.org", 7), AltNameVerdict::Matches) << "the old identifier";
  EXPECT_EQ(Compare(dns, L"www.example.com"), AltNameVerdict::Seen);
  EXPECT_EQ(Compare(Concat({dns, four}), L"127.0.0.1"), AltNameVerdict::Matches);
  EXPECT_EQ(Compare(Der(0x81, Raw("a@b")), L"a@b"), AltNameVerdict::NoneSeen) << "mail names no server";
  EXPECT_EQ(Compare(Der(0x87, {}), L"a"), AltNameVerdict::Seen);
  EXPECT_EQ(Compare(Der(0x87, Bytes(16, 'a')), L"aaaaaaaaaaaaaaaa"), AltNameVerdict::Matches)
      << "taken as text";
  EXPECT_EQ(Compare(Der(0x87, Bytes(80, 'a')), std::wstring(80, L'a').c_str()), AltNameVerdict::Seen);
}

TEST(ServerName, NulHidesNothing) {
  const Bytes hidden = Der(0x82, Raw(std::string_view("good.example\0.evil.example", 26)));
  EXPECT_EQ(Compare(hidden, L"good.example"), AltNameVerdict::Seen);
  EXPECT_EQ(Compare(Concat({Der(0x81, Raw("a@b")), hidden}), L"good.example"), AltNameVerdict::Seen);
  // nor does it spoil its neighbours, and it excuses nothing
  const Bytes good = Der(0x82, Raw("good.example"));
  const Bytes bad = Der(0x82, Raw(std::string_view("bad.example\0.x", 14)));
  EXPECT_EQ(Compare(Concat({bad, good}), L"good.example"), AltNameVerdict::Matches);
  EXPECT_EQ(Compare(Concat({good, bad}), L"bad.example"), AltNameVerdict::Seen);
  EXPECT_EQ(Compare(Concat({good, Der(0x82, Raw(std::string_view("\0", 1)))}), L"good.example"),
            AltNameVerdict::Matches);
  EXPECT_THROW(Compare(Concat({
                           bad, good, {0x82, 0x05, 'a'}
  }),
                       L"good.example"),
               CryptException);
  EXPECT_THROW(Compare(Concat({bad, Der(0x88, {0x80})}), L"good.example"), CryptException);
}

TEST(ServerName, BrokenExtensionIsNoReasonToLookElsewhere) {
  EXPECT_THROW(Compare({0x82, 0x05, 'a'}, L"a"), CryptException);
}

Bytes Attribute(BYTE type, std::string_view value, BYTE tag = 0x0C) {
  return Der(0x30,
             Concat({
                 {0x06, 0x03, 0x55, 0x04, type},
                 Der(tag, Raw(value))
  }));
}
std::optional<std::wstring> NameOf(std::initializer_list<Bytes> attributes) {
  Bytes relative;
  for (const Bytes& attribute : attributes) relative = Concat({relative, Der(0x31, attribute)});
  Bytes encoded = Der(0x30, relative);
  const CERT_NAME_BLOB blob{static_cast<DWORD>(encoded.size()), encoded.data()};
  return CommonNameOf(blob);
}

TEST(ServerName, CommonNameIsAnAttributeAndNoPartOfOne) {
  constexpr BYTE kCommonName = 3, kOrganization = 10;
  EXPECT_EQ(NameOf({Attribute(kOrganization, "Org"), Attribute(kCommonName, "WWW.Example")}), L"www.example");
  EXPECT_EQ(NameOf({Attribute(kOrganization, "\xC3\x84"), Attribute(kCommonName, "WWW.Example")}),
            L"www.example");
  EXPECT_EQ(NameOf({Attribute(kCommonName, "first"), Attribute(kCommonName, "second")}), L"first");
  EXPECT_EQ(NameOf({Attribute(kOrganization, "cn=bank.com,x")}), std::nullopt);
  EXPECT_EQ(NameOf({Attribute(kOrganization, "x, cn=bank.com")}), std::nullopt);
  EXPECT_EQ(NameOf({Attribute(kOrganization, "x\", cn=bank.com")}), std::nullopt);
  EXPECT_EQ(NameOf({Attribute(kOrganization, "only")}), std::nullopt);
  EXPECT_EQ(NameOf({Attribute(kCommonName, std::string_view("good\0bad", 8))}), std::nullopt);
  EXPECT_EQ(NameOf({Attribute(kCommonName, std::string_view("\0g\0\0\0b", 6), 0x1E)}), std::nullopt);
  EXPECT_EQ(NameOf({Attribute(kCommonName, std::string_view("\0g\0b", 4), 0x1E)}), L"gb");
}

}  // namespace
}  // namespace certkern
