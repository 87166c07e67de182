// Names and values to text: forms, separators, quotes, buffers.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/name.h>

#include <gtest/gtest.h>

#include <cstring>

#include "names/der_name.h"

using namespace certkern::test;  // NOLINT(google-build-using-namespace): the vocabulary of these tests
using namespace std::string_literals;

namespace {

constexpr DWORD kX500 = CERT_X500_NAME_STR;

std::wstring TextOf(const Octets& name, DWORD type) {
  CERT_NAME_BLOB blob = BlobOf(name);
  std::wstring text(1024, L'?');
  const DWORD count = CertNameToStrW(X509_ASN_ENCODING, &blob, type, text.data(), 1024);
  EXPECT_EQ(CertNameToStrW(0, &blob, type, nullptr, 0), count) << "the size asked for is the size written";
  EXPECT_EQ(GetLastError(), 0u);
  EXPECT_EQ(text.find_first_not_of(L'\0', count - 1), text.npos) << "a long buffer is filled with zeros";
  text.resize(count - 1);
  return text;
}

const Octets kPair = RelativeName({Cn("a"), Attribute(kUnit, 0x13, "b")});
const Octets kThree = Name({kPair, RelativeName({Attribute(kNobodys, 0x16, "c")})});

const struct {
  const char* name;
  DWORD type;
  const wchar_t* text;
} kForms[] = {
    {"no form is the simple one",  0,                                                      L"a + b, c"                       },
    {"simple",                     CERT_SIMPLE_NAME_STR,                                   L"a + b, c"                       },
    {"identifiers",                CERT_OID_NAME_STR,                                      L"2.5.4.3=a + 2.5.4.11=b, 1.2.3=c"},
    {"keys",                       kX500,                                                  L"CN=a + OU=b, 1.2.3=c"           },
    {"only the low two bits tell", 0x100,                                                  L"CN=a + OU=b, 1.2.3=c"           },
    {"four is not zero",           4,                                                      L"CN=a + OU=b, 1.2.3=c"           },
    {"reversed, a pair stays",     kX500 | CERT_NAME_STR_REVERSE_FLAG,                     L"1.2.3=c, CN=a + OU=b"           },
    {"lines",                      kX500 | CERT_NAME_STR_CRLF_FLAG,                        L"CN=a + OU=b\r\n1.2.3=c"         },
    {"semicolons",                 kX500 | CERT_NAME_STR_SEMICOLON_FLAG,                   L"CN=a + OU=b; 1.2.3=c"           },
    {"semicolons before lines",    CERT_NAME_STR_SEMICOLON_FLAG | CERT_NAME_STR_CRLF_FLAG, L"a + b; c"                       },
    {"the comma changes nothing",  CERT_NAME_STR_COMMA_FLAG | CERT_NAME_STR_CRLF_FLAG,     L"a + b\r\nc"                     },
    {"no plus",                    kX500 | CERT_NAME_STR_NO_PLUS_FLAG,                     L"CN=a OU=b, 1.2.3=c"             },
};

const struct {
  const char* name;
  int tag;
  Octets value;
  const wchar_t* quoted;
  const wchar_t* plain;
} kValues[] = {
    {"letters",                       0x0C, "a b",                      L"a b",              L"a b"             },
    {"nothing",                       0x0C, "",                         L"\"\"",             L""                },
    {"a quote",                       0x0C, "a\"b",                     L"\"a\"\"b\"",       L"a\"b"            },
    {"a comma",                       0x13, "a,b",                      L"\"a,b\"",          L"a,b"             },
    {"a plus sign",                   0x13, "a+b",                      L"\"a+b\"",          L"a+b"             },
    {"an equals sign",                0x13, "a=b",                      L"\"a=b\"",          L"a=b"             },
    {"less",                          0x13, "a<b",                      L"\"a<b\"",          L"a<b"             },
    {"greater",                       0x13, "a>b",                      L"\"a>b\"",          L"a>b"             },
    {"a hash in the middle",          0x13, "a#b",                      L"\"a#b\"",          L"a#b"             },
    {"a semicolon",                   0x13, "a;b",                      L"\"a;b\"",          L"a;b"             },
    {"a line end",                    0x13, "a\nb",                     L"\"a\nb\"",         L"a\nb"            },
    {"a carriage return",             0x13, "a\rb",                     L"a\rb",             L"a\rb"            },
    {"a backslash",                   0x13, "a\\b",                     L"a\\b",             L"a\\b"            },
    {"a blank at the start",          0x13, " a",                       L"\" a\"",           L" a"              },
    {"a tab at the end",              0x13, "a\t",                      L"\"a\t\"",          L"a\t"             },
    {"text ends at a NUL",            0x13, "a\0b"s,                    L"a",                L"a"               },
    {"an octet string",               0x04, "\x01\xAB,",                L"#01AB2C",          L"#01AB2C"         },
    {"a bit string, header and all",  0x03, "\0\x80"s,                  L"#03020080",        L"#03020080"       },
    {"UTF-8",                         0x0C, "\xD0\x96\xF0\x9F\x98\x80", L"\u0416\U0001F600", L"\u0416\U0001F600"},
    {"two octets a character",        0x1E, "\x04\x16\0,"s,             L"\"\u0416,\"",      L"\u0416,"         },
    {"four octets a character",       0x1C, "\0\x01\xF6\0"s,            L"\U0001F600",       L"\U0001F600"      },
    {"an octet that is no character", 0x14, "a\xE9",                    L"a\u00E9",          L"a\u00E9"         },
};

TEST(CertNameToStr, Forms) {
  for (const auto& [name, type, text] : kForms) {
    SCOPED_TRACE(name);
    EXPECT_EQ(TextOf(kThree, type), text);
  }
}

TEST(CertNameToStr, ValuesAndTheirQuotes) {
  for (const auto& [name, tag, value, quoted, plain] : kValues) {
    SCOPED_TRACE(name);
    const Octets encoded = NameOf({Attribute(kCn, tag, value)});
    EXPECT_EQ(TextOf(encoded, kX500), std::wstring(L"CN=") + quoted);
    EXPECT_EQ(TextOf(encoded, kX500 | CERT_NAME_STR_NO_QUOTING_FLAG), std::wstring(L"CN=") + plain);
  }
}

TEST(CertNameToStr, EmptyNamesAndWhatIsNone) {
  EXPECT_EQ(TextOf(Element(0x30, ""), kX500), L"");
  EXPECT_EQ(TextOf(Name({RelativeName({}), RelativeName({}), RelativeName({Cn("a")})}), kX500), L", , CN=a");
  EXPECT_EQ(TextOf("", kX500), L"");
  EXPECT_EQ(TextOf("\x31", kX500), L"");
  const Octets whole = NameOf({Cn("a")});
  EXPECT_EQ(TextOf(whole.substr(0, whole.size() - 1), kX500), L"");
  EXPECT_EQ(TextOf(NameOf({Element(0x30, kCn)}), kX500), L"CN=\"\"") << "no value at all";
  SetLastError(7);
  EXPECT_EQ(CertNameToStrW(0, nullptr, kX500, nullptr, 0), 1u);
  EXPECT_EQ(GetLastError(), 0u);
  CERT_NAME_BLOB lengthOnly = {5, nullptr};
  EXPECT_EQ(CertNameToStrA(0, &lengthOnly, kX500, nullptr, 0), 1u);
}

// Deep in the heap: more than the decoder's own room.
TEST(CertNameToStr, LongNames) {
  std::vector<Octets> attributes;
  std::wstring expected;
  for (int i = 0; i < 500; ++i) {
    attributes.push_back(Cn("value " + std::to_string(i)));
    expected += (i ? L", CN=value " : L"CN=value ") + std::to_wstring(i);
  }
  CERT_NAME_BLOB blob{};
  const Octets name = NameOf(attributes);
  blob = BlobOf(name);
  std::wstring text(expected.size() + 1, L'?');
  EXPECT_EQ(CertNameToStrW(0, &blob, kX500, text.data(), static_cast<DWORD>(text.size())), text.size());
  text.pop_back();
  EXPECT_EQ(text, expected);
}

TEST(CertNameToStr, WideBuffers) {
  const Octets name = NameOf({Cn("ab")});
  CERT_NAME_BLOB blob = BlobOf(name);
  const struct {
    DWORD room, count;
    const wchar_t* text;
  } kCases[] = {
      {6, 6, L"CN=ab"},
      {5, 5, L"CN=a" },
      {1, 1, L""     },
  };
  for (const auto& [room, count, text] : kCases) {
    std::vector<wchar_t> buffer(room, L'?');
    EXPECT_EQ(CertNameToStrW(0, &blob, kX500, buffer.data(), room), count);
    EXPECT_STREQ(buffer.data(), text);
  }
  wchar_t untouched = L'?';
  EXPECT_EQ(CertNameToStrW(0, &blob, kX500, &untouched, 0), 6u);
  EXPECT_EQ(untouched, L'?');
}

TEST(CertNameToStr, NarrowIsUtf8) {
  const Octets name = NameOf({Cn("\xD0\x96")});
  CERT_NAME_BLOB blob = BlobOf(name);
  const struct {
    DWORD room, count, code;
    const char* text;
  } kCases[] = {
      {100, 6, 0,               "CN=\xD0\x96"},
      {6,   6, 0,               "CN=\xD0\x96"},
      {5,   1, ERROR_MORE_DATA, ""           }, // four characters, but five bytes
      {4,   4, 0,               "CN="        }, // cut as the wide text is cut
      {1,   1, 0,               ""           },
  };
  for (const auto& [room, count, code, text] : kCases) {
    SCOPED_TRACE(room);
    std::vector<char> buffer(room, '?');
    EXPECT_EQ(CertNameToStrA(0, &blob, kX500, buffer.data(), room), count);
    EXPECT_EQ(GetLastError(), code);
    EXPECT_STREQ(buffer.data(), text);
  }
  EXPECT_EQ(CertNameToStrA(0, &blob, kX500, nullptr, 0), 17u) << "the most that five characters can take";
  char whole[6];
  EXPECT_EQ(CertNameToStrA(0, &blob, kX500, whole, 0xFFFFFFFF), 6u) << "nothing is made as large as that";
}

// --- single values ---

const struct {
  const char* name;
  DWORD type;
  Octets bytes;
  std::wstring wide;
  Octets narrow;
} kPlain[] = {
    {"no type",                         0,                         "ab",                        L"ab",               "ab"       },
    {"octets are characters",           CERT_RDN_OCTET_STRING,     "\x01\xE9",                  L"\x01\u00E9",       "\x01\xE9" },
    {"narrow text, never quoted",       CERT_RDN_PRINTABLE_STRING, "a, \"b",                    L"a, \"b",           "a, \"b"   },
    {"a NUL ends the narrow form only", CERT_RDN_IA5_STRING,       "a\0b"s,                     L"a\0b"s,            "a"        },
    {"16-bit units",                    CERT_RDN_BMP_STRING,       "\x16\x04,\0?"s,             L"\u0416,",          "\xD0\x96,"},
    {"wide characters",                 CERT_RDN_UTF8_STRING,      "\x16\x04\0\0\0\xF6\x01\0"s, L"\u0416\U0001F600",
     "\xD0\x96\xF0\x9F\x98\x80"                                                                                                 },
    {"half a character is none",        CERT_RDN_UNIVERSAL_STRING, "abc",                       L"",                 ""         },
    {"nothing, of whatever type",       77,                        "",                          L"",                 ""         },
};

TEST(CertRDNValueToStr, Values) {
  for (const auto& [name, type, bytes, wide, narrow] : kPlain) {
    SCOPED_TRACE(name);
    const Octets shifted = "?" + bytes;  // wide units may stand anywhere
    CERT_RDN_VALUE_BLOB blob = BlobOf(shifted);
    ++blob.pbData;
    --blob.cbData;
    std::vector<wchar_t> w(wide.size() + 1, L'?');
    const DWORD wideCount = static_cast<DWORD>(w.size());
    EXPECT_EQ(CertRDNValueToStrW(type, &blob, nullptr, 0), wideCount);
    EXPECT_EQ(CertRDNValueToStrW(type, &blob, w.data(), wideCount), wideCount);
    EXPECT_EQ(std::wstring(w.data(), wideCount), wide + L'\0');
    std::vector<char> a(narrow.size() + 1, '?');
    const DWORD count = static_cast<DWORD>(a.size());
    EXPECT_EQ(CertRDNValueToStrA(type, &blob, nullptr, 0), count);
    EXPECT_EQ(CertRDNValueToStrA(type, &blob, a.data(), count), count);
    EXPECT_EQ(a.data(), narrow);
  }
}

TEST(CertRDNValueToStr, ShortBuffersCutBetweenCharacters) {
  const Octets bytes = "\x16\x04\0\0\x16\x04\0\0"s;
  CERT_RDN_VALUE_BLOB blob = BlobOf(bytes);
  wchar_t wide[2];
  EXPECT_EQ(CertRDNValueToStrW(CERT_RDN_UTF8_STRING, &blob, wide, 2), 2u);
  EXPECT_STREQ(wide, L"\u0416");
  for (const auto& [room, count] : {
           std::pair{5u, 5u},
           {4u, 3u},
           {3u, 3u},
           {2u, 1u},
           {1u, 1u}
  }) {
    std::vector<char> narrow(room, '?');
    EXPECT_EQ(CertRDNValueToStrA(CERT_RDN_UTF8_STRING, &blob, narrow.data(), room), count) << room;
    EXPECT_EQ(std::strlen(narrow.data()), count - 1);
  }
}

TEST(CertRDNValueToStr, Refusals) {
  const Octets text = "ab";
  CERT_RDN_VALUE_BLOB blob = BlobOf(text), none = {2, nullptr};
  const struct {
    const char* name;
    DWORD type;
    CERT_RDN_VALUE_BLOB* value;
    DWORD code;
  } kCases[] = {
      {"no value",               CERT_RDN_UTF8_STRING,     nullptr, ERROR_INVALID_PARAMETER},
      {"a length without bytes", CERT_RDN_ENCODED_BLOB,    &none,   ERROR_INVALID_PARAMETER},
      {"an encoded value",       CERT_RDN_ENCODED_BLOB,    &blob,   E_NOTIMPL              },
      {"a type that is none",    CERT_RDN_UTF8_STRING + 1, &blob,   E_NOTIMPL              },
  };
  for (const auto& [name, type, value, code] : kCases) {
    SCOPED_TRACE(name);
    wchar_t wide = L'?';
    char narrow = '?';
    SetLastError(0);
    EXPECT_EQ(CertRDNValueToStrW(type, value, &wide, 1), 1u);
    EXPECT_EQ(GetLastError(), code);
    EXPECT_EQ(wide, L'\0');
    SetLastError(0);
    EXPECT_EQ(CertRDNValueToStrA(type, value, &narrow, 1), 1u);
    EXPECT_EQ(GetLastError(), code);
    EXPECT_EQ(narrow, '\0');
  }
}

}  // namespace
