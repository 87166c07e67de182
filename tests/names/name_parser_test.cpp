// Text to names: keys, values, separators, positions of faults, buffers.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/name.h>

#include <gtest/gtest.h>

#include "names/der_name.h"
#include "support/hex.h"

using namespace certkern::test;  // NOLINT(google-build-using-namespace): the vocabulary of these tests

namespace {

constexpr DWORD kX500 = CERT_X500_NAME_STR;

Octets Parse(const std::wstring& text, DWORD type) {
  DWORD size = 0;
  LPCWSTR error = text.c_str();
  SetLastError(7);
  if (!CertStrToNameW(X509_ASN_ENCODING, text.c_str(), type, nullptr, nullptr, &size, &error))
    return "failed";
  EXPECT_EQ(GetLastError(), 0u);
  EXPECT_EQ(error, nullptr);
  Octets encoded(size, '?');
  EXPECT_TRUE(CertStrToNameW(0, text.c_str(), type, nullptr, reinterpret_cast<BYTE*>(encoded.data()), &size,
                             nullptr));
  EXPECT_EQ(size, encoded.size());
  return encoded;
}

std::string Hex(const Octets& octets) {
  return ToHex({reinterpret_cast<const BYTE*>(octets.data()), octets.size()});
}

const Octets kCnA = Cn("a");
const Octets kUnitB = Attribute(kUnit, 0x0C, "b");
const Octets kOneName = Name({RelativeName({kCnA, kUnitB})});
const Octets kTwoNames = NameOf({kCnA, kUnitB});

const struct {
  const char* name;
  const wchar_t* text;
  DWORD type;
  Octets encoded;
} kTexts[] = {
    {"commas separate names",             L"CN=a,OU=b",                kX500,                                                  kTwoNames                                       },
    {"so do semicolons",                  L"CN=a;OU=b",                kX500,                                                  kTwoNames                                       },
    {"a plus sign separates attributes",  L"CN=a+OU=b",                kX500,                                                  kOneName                                        },
    {"white space around everything",     L" \tCN = a + \n OU\t= b ",  kX500,                                                  kOneName                                        },
    {"no form is as good as any",         L"cn=a,ou=b",                0,                                                      kTwoNames                                       },
    {"identifiers",                       L"2.5.4.3=a,OID.2.5.4.11=b", CERT_OID_NAME_STR,                                      kTwoNames                                       },
    {"an identifier that nobody knows",   L"1.2.3=abc",                kX500,                                                  NameOf({Attribute(kNobodys, 0x13, "abc")})      },
    {"the last first",                    L"OU=b,CN=a",                kX500 | CERT_NAME_STR_REVERSE_FLAG,                     kTwoNames                                       },
    {"a pair keeps its order",            L"O=c,CN=a+OU=b",            kX500 | CERT_NAME_STR_REVERSE_FLAG,
     Name({RelativeName({kCnA, kUnitB}), RelativeName({Attribute(kOrganisation, 0x0C, "c")})})                                                                                 },
    {"attributes are not sorted",         L"OU=b+CN=a",                kX500,                                                  Name({RelativeName({kUnitB, kCnA})})            },
    {"mail is IA5",                       L"E=a@b",                    kX500,                                                  NameOf({Attribute(kMail, 0x16, "a@b")})         },
    {"letters beyond ASCII",              L"CN=\u0416\U0001F600",      kX500,                                                  NameOf({Cn("\xD0\x96\xF0\x9F\x98\x80")})        },
 // separators
    {"commas only",                       L"CN=a;b,OU=b",              CERT_NAME_STR_COMMA_FLAG,                               NameOf({Cn("a;b"), kUnitB})                     },
    {"semicolons only",                   L"CN=a,b;OU=b",              CERT_NAME_STR_SEMICOLON_FLAG,                           NameOf({Cn("a,b"), kUnitB})                     },
    {"lines only",                        L"CN=a,;\r\nOU=b",           CERT_NAME_STR_CRLF_FLAG,                                NameOf({Cn("a,;"), kUnitB})                     },
    {"commas before all others",          L"CN=a;\n.,OU=b",
     CERT_NAME_STR_COMMA_FLAG | CERT_NAME_STR_SEMICOLON_FLAG | CERT_NAME_STR_CRLF_FLAG,
     NameOf({Cn("a;\n."), kUnitB})                                                                                                                                             },
    {"semicolons before lines",           L"CN=a\n.;OU=b",             CERT_NAME_STR_SEMICOLON_FLAG | CERT_NAME_STR_CRLF_FLAG,
     NameOf({Cn("a\n."), kUnitB})                                                                                                                                              },
    {"no plus",                           L"CN=a+b",                   CERT_NAME_STR_NO_PLUS_FLAG,                             NameOf({Cn("a+b")})                             },
 // quotes and backslashes
    {"separators in quotes",              L"CN=\"a,+;=#\",OU=b",       kX500,                                                  NameOf({Cn("a,+;=#"), kUnitB})                  },
    {"blanks in quotes, and around them", L"CN= \" a \" ,OU=b",        kX500,                                                  NameOf({Cn(" a "), kUnitB})                     },
    {"doubled quotes",                    L"CN=\"a\"\"b\"\"\"",        kX500,                                                  NameOf({Cn("a\"b\"")})                          },
    {"empty quotes",                      L"CN=\"\"",                  kX500,                                                  NameOf({Cn("")})                                },
    {"a quote inside is a character",     L"CN=a\"\"b",                kX500,                                                  NameOf({Cn("a\"\"b")})                          },
    {"an escaped separator",              L"CN=a\\,b\\+c,OU=b",        kX500,                                                  NameOf({Cn("a,b+c"), kUnitB})                   },
    {"only one character is looked back", L"CN=a\\\\,b",               kX500,                                                  NameOf({Cn("a\\,b")})                           },
    {"a backslash in quotes",             L"CN=\"a\\b\\\\c\"",         kX500,                                                  NameOf({Cn("ab\\c")})                           },
    {"a backslash does not hold quotes",  L"CN=\"a\\\",OU=b",          kX500,                                                  NameOf({Cn("a"), kUnitB})                       },
    {"a backslash before doubled quotes", L"CN=\"a\\\"\"b\"",          kX500,                                                  NameOf({Cn("a\"b")})                            },
    {"a backslash at the end",            L"CN=a\\",                   kX500,                                                  NameOf({Cn("a")})                               },
    {"nothing but a backslash",           L"CN=\\",                    kX500,                                                  NameOf({Cn("")})                                },
    {"an escaped quote at the start",     L"CN=\\\"a\"",               kX500,                                                  NameOf({Cn("\"a\"")})                           },
    {"equals signs in a value",           L"CN=a=b",                   kX500,                                                  NameOf({Cn("a=b")})                             },
 // hexadecimal
    {"octets",                            L"CN=#01aB",                 kX500,                                                  NameOf({Attribute(kCn, 0x04, "\x01\xAB")})      },
    {"whatever the type",                 L"E=#FF ,OU=b",              kX500,                                                  NameOf({Attribute(kMail, 0x04, "\xFF"), kUnitB})},
    {"a hash in quotes is a character",   L"CN=\"#01\"",               kX500,                                                  NameOf({Cn("#01")})                             },
    {"an escaped hash as well",           L"CN=\\#01",                 kX500,                                                  NameOf({Cn("#01")})                             },
};

const struct {
  const char* name;
  const wchar_t* text;
  DWORD type;
  DWORD code;
  int position;  // -1: none
} kFaults[] = {
    {"nothing",                         L"",               0,                       CRYPT_E_INVALID_X500_STRING,      0 },
    {"nothing, as a simple name",       L"",               CERT_SIMPLE_NAME_STR,    CRYPT_E_INVALID_X500_STRING,      0 },
    {"a simple name",                   L"CN=a",           CERT_SIMPLE_NAME_STR,    E_INVALIDARG,                     -1},
    {"a form that does not exist",      L"",               4,                       E_INVALIDARG,                     -1},
    {"white space",                     L"  ",             kX500,                   CRYPT_E_INVALID_X500_STRING,      2 },
    {"no key",                          L" =a",            kX500,                   CRYPT_E_INVALID_X500_STRING,      1 },
    {"no equals sign",                  L"CN",             kX500,                   CRYPT_E_INVALID_X500_STRING,      0 },
    {"no value",                        L"CN=",            kX500,                   CRYPT_E_INVALID_X500_STRING,      3 },
    {"no value before a separator",     L"CN= ,OU=b",      kX500,                   CRYPT_E_INVALID_X500_STRING,      4 },
    {"a key that nobody knows",         L"CN=a,XY=b",      kX500,                   CRYPT_E_INVALID_X500_STRING,      5 },
    {"a trailing comma",                L"CN=a,",          kX500,                   CRYPT_E_INVALID_X500_STRING,      5 },
    {"a trailing plus sign",            L"CN=a+ ",         kX500,                   CRYPT_E_INVALID_X500_STRING,      6 },
    {"a trailing line end",             L"CN=a\r\n",       CERT_NAME_STR_CRLF_FLAG, CRYPT_E_INVALID_X500_STRING,      6 },
    {"no identifier behind the prefix", L"OID.=a",         kX500,                   CRYPT_E_INVALID_X500_STRING,      0 },
    {"a name behind the prefix",        L"OID.CN=a",       kX500,                   CRYPT_E_INVALID_X500_STRING,      0 },
    {"the prefix in small letters",     L"oid.2.5.4.3=a",  kX500,                   CRYPT_E_INVALID_X500_STRING,      0 },
    {"an identifier that is none",      L"9.9=a",          kX500,                   CRYPT_E_INVALID_X500_STRING,      4 },
    {"an identifier of one arc",        L"1=a",            kX500,                   CRYPT_E_INVALID_X500_STRING,      2 },
    {"quotes that stay open",           L"CN=\"a",         kX500,                   CRYPT_E_INVALID_X500_STRING,      3 },
    {"a lone quote",                    L"CN=\"",          kX500,                   CRYPT_E_INVALID_X500_STRING,      3 },
    {"a doubled quote closes nothing",  L"CN=\"a\"\"",     kX500,                   CRYPT_E_INVALID_X500_STRING,      3 },
    {"text behind quotes",              L"CN=\"a\"b,OU=c", kX500,                   CRYPT_E_INVALID_X500_STRING,      3 },
    {"a hash alone",                    L"CN=#",           kX500,                   CRYPT_E_INVALID_X500_STRING,      3 },
    {"half a pair",                     L"CN=#012",        kX500,                   CRYPT_E_INVALID_X500_STRING,      3 },
    {"no digits",                       L"CN=#0g",         kX500,                   CRYPT_E_INVALID_X500_STRING,      3 },
    {"a letter in a number",            L"CN=a, INN=12a",  kX500,                   CRYPT_E_INVALID_NUMERIC_STRING,   10},
    {"a digit in a checked type",       L"SERIALNUMBER=1", kX500,                   CRYPT_E_INVALID_PRINTABLE_STRING, 13},
    {"more than ASCII in mail",         L"E=\u0416",       kX500,                   CRYPT_E_INVALID_IA5_STRING,       2 },
};

// Lengths around those where a header grows, of characters around those where UTF-8 does.
TEST(NameParser, ValuesOfAnyLength) {
  const struct {
    wchar_t character;
    Octets utf8;
  } kCharacters[] = {
      {L'x',        "x"               },
      {L'\x7F',     "\x7F"            },
      {L'\x80',     "\xC2\x80"        },
      {L'\x7FF',    "\xDF\xBF"        },
      {L'\x800',    "\xE0\xA0\x80"    },
      {L'\x10FFFF', "\xF4\x8F\xBF\xBF"}
  };
  for (const auto& [character, utf8] : kCharacters) {
    Octets value;
    for (size_t count = 1; count < 300; ++count) {
      value += utf8;
      EXPECT_EQ(Hex(Parse(L"CN=\"" + std::wstring(count, character) + L"\"", kX500)),
                Hex(NameOf({Cn(value)})))
          << count;
    }
  }
}

TEST(CertStrToName, Texts) {
  for (const auto& [name, text, type, encoded] : kTexts) {
    SCOPED_TRACE(name);
    EXPECT_EQ(Hex(Parse(text, type)), Hex(encoded));
  }
}

TEST(CertStrToName, Faults) {
  for (const auto& [name, text, type, code, position] : kFaults) {
    SCOPED_TRACE(name);
    DWORD size = 7;
    LPCWSTR error = text;
    SetLastError(0);
    EXPECT_FALSE(CertStrToNameW(X509_ASN_ENCODING, text, type, nullptr, nullptr, &size, &error));
    EXPECT_EQ(GetLastError(), code);
    EXPECT_EQ(error ? error - text : -1, position);
    EXPECT_EQ(size, 7u);
    EXPECT_FALSE(CertStrToNameW(X509_ASN_ENCODING, text, type, nullptr, nullptr, &size, nullptr));
  }
}

TEST(CertStrToName, NarrowTextIsUtf8AndItsPositionsCountCharacters) {
  const char* text = "CN=\xD0\x96,E=\xD0\x96";
  LPCSTR error = nullptr;
  DWORD size = 0;
  EXPECT_FALSE(CertStrToNameA(X509_ASN_ENCODING, text, kX500, nullptr, nullptr, &size, &error));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_INVALID_IA5_STRING});
  EXPECT_EQ(error, text + 7);
  const Octets expected = NameOf({Cn("\xD0\x96")});
  BYTE encoded[64];
  size = static_cast<DWORD>(expected.size());
  ASSERT_TRUE(CertStrToNameA(0, "CN=\xD0\x96", kX500, nullptr, encoded, &size, &error));
  EXPECT_EQ(error, nullptr);
  EXPECT_EQ(ToHex({encoded, size}), Hex(expected));
}

TEST(CertStrToName, BuffersAndArguments) {
  const DWORD needed = static_cast<DWORD>(NameOf({kCnA}).size());
  BYTE encoded[64] = {};
  DWORD size = needed - 1;
  EXPECT_FALSE(CertStrToNameW(0, L"CN=a", kX500, nullptr, encoded, &size, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(size, needed);
  EXPECT_EQ(encoded[0], 0);
  LPCSTR narrowError = "";
  LPCWSTR wideError = L"";
  EXPECT_FALSE(CertStrToNameA(0, nullptr, kX500, nullptr, nullptr, &size, &narrowError));
  EXPECT_EQ(GetLastError(), DWORD{E_INVALIDARG});
  EXPECT_EQ(narrowError, nullptr);
  EXPECT_FALSE(CertStrToNameW(0, L"", kX500, nullptr, nullptr, nullptr, &wideError));
  EXPECT_EQ(GetLastError(), DWORD{E_INVALIDARG});
  EXPECT_EQ(wideError, nullptr);
}

// Lengths of one, two and three octets, at both levels.
TEST(CertStrToName, LongValues) {
  for (const size_t length : {0x60u, 0x7Fu, 0x80u, 0xF0u, 0x100u, 0x4000u}) {
    SCOPED_TRACE(length);
    EXPECT_EQ(Hex(Parse(L"CN=" + std::wstring(length, L'a'), kX500)), Hex(NameOf({Cn(Octets(length, 'a'))})));
  }
}

// What the printer writes the parser reads, for every separator and for values that need quotes.
TEST(CertStrToName, ReadsWhatCertNameToStrWrites) {
  std::vector<Octets> attributes;
  for (const char* value :
       {"a", "", " a", "a\t", "a,b", "a+b", "a=b", "\"", "a\"\"b", "<>", "#01", "a;b", "a\nb"})
    attributes.push_back(Cn(value));
  attributes.push_back(Attribute(kNobodys, 0x04, "\x01\x02"));
  const Octets name = Name({RelativeName(attributes), RelativeName({kUnitB}), RelativeName({kCnA})});
  CERT_NAME_BLOB blob = BlobOf(name);
  for (const DWORD separator : {0u, CERT_NAME_STR_SEMICOLON_FLAG, CERT_NAME_STR_CRLF_FLAG}) {
    for (const DWORD order : {0u, CERT_NAME_STR_REVERSE_FLAG}) {
      for (const DWORD form : {CERT_OID_NAME_STR, CERT_X500_NAME_STR}) {
        const DWORD type = static_cast<DWORD>(form) | separator | order;
        std::wstring text(CertNameToStrW(0, &blob, type, nullptr, 0), L'\0');
        CertNameToStrW(0, &blob, type, text.data(), static_cast<DWORD>(text.size()));
        text.pop_back();
        EXPECT_EQ(Hex(Parse(text, type)), Hex(name));
      }
    }
  }
}

}  // namespace
