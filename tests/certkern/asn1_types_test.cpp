// Names of generated types made of text, and their values read as text.
#include "certkern/ASN1Types.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/name.h>

#include <gtest/gtest.h>

#include "asn1rt/message_buffer.h"
#include "certkern/ASN1Util.h"
#include "platform/exceptions.h"
#include "support/hex.h"

using namespace certkern;
using namespace certkern::asn1data;

namespace {

std::string Encoded(std::wstring_view text, DWORD type = CERT_X500_NAME_STR) {
  const NameOfText name(text, type);
  ASN1T_Name copy = name.value();
  ASN1BEREncodeBuffer buffer;
  buffer.context().setSetOrder(SetOrder::AsGiven);
  EXPECT_GT(ASN1C_Name(buffer, copy).Encode(), 0);
  return ToHex({buffer.GetMsgPtr(), buffer.GetMsgLen()});
}

// By the parser that works on bytes.
std::string EncodedElsewhere(const wchar_t* text, DWORD type) {
  BYTE out[512];
  DWORD size = sizeof(out);
  EXPECT_TRUE(CertStrToNameW(X509_ASN_ENCODING, text, type, nullptr, out, &size, nullptr)) << text;
  return ToHex({out, size});
}

std::string Fault(std::wstring_view text) {
  try {
    const NameOfText name(text);
  } catch (const Asn1Exception& exception) {
    const std::string what = exception.what();
    EXPECT_NE(what.find("at file:'certkern/ASN1Types'"), what.npos);
    return what.substr(0, what.find("' at")).substr(sizeof("Exception :'") - 1);
  } catch (const CryptException& exception) {
    return std::to_string(exception.code() & 0xFFFF);
  }
  return "none";
}

std::wstring Text(const char* oid, const char* hex) {
  static const auto context = ASN1ContextPtr::Create();
  ASN1T_AttributeTypeAndValue attribute;
  attribute.type = StrToOid(*context, oid);
  attribute.value.encoded = CopyOctets(*context, FromHex(hex));
  return AttributeText(attribute);
}

}  // namespace

TEST(NameOfText, IsWhatTheOtherParserMakes) {
  const std::pair<const wchar_t*, DWORD> kCases[] = {
      {L"CN=Имя, O=\"A, \"\"B\"\"\" ; C=RU",            0                           },
      {L"CN=a+OU=b,O=c",                                   0                           },
      {L"CN=a+OU=b,O=c",                                   CERT_NAME_STR_NO_PLUS_FLAG  },
      {L"C=RU, L=x\\, y",                                  CERT_NAME_STR_REVERSE_FLAG  },
      {L"CN=a,b; O=c",                                     CERT_NAME_STR_SEMICOLON_FLAG},
      {L"CN=a,b;c\r\nO = d ",                              CERT_NAME_STR_CRLF_FLAG     },
      {L"E=a@example.org, 2.5.4.11=x, OID.2.5.4.10=#0aFF", 0                           },
  };
  for (const auto& [text, flags] : kCases)
    EXPECT_EQ(Encoded(text, CERT_X500_NAME_STR | flags), EncodedElsewhere(text, CERT_X500_NAME_STR | flags));
}

TEST(NameOfText, TypesComeFromTheTable) {
  EXPECT_EQ(Encoded(L"INN=0012"),
            "301431123010"
            "06082A85030381030101"
            "120430303132");
}

TEST(NameOfText, Faults) {
  const std::pair<const wchar_t*, const char*> kCases[] = {
      {L"",           "invalid string"                      },
      {L"CN",         "invalid string"                      },
      {L"=a",         "invalid string"                      },
      {L"CN=",        "invalid string"                      },
      {L"CN=a,",      "invalid string"                      },
      {L"CN=\"a",     "invalid string"                      },
      {L"CN=\"a\"\v", "invalid string"                      }, // other white space is none
      {L"CN=#",       "invalid string"                      },
      {L"CN=#0",      "invalid string"                      },
      {L"Nonsense=a", "attribute type oid format is invalid"},
      {L"2..5=a",     "attribute type oid format is invalid"},
      {L"2.5.010=a",  "attribute type oid format is invalid"},
      {L"OID.x=a",    "attribute type oid format is invalid"},
      {L"INN=12a",    "8224"                                }, // CRYPT_E_INVALID_NUMERIC_STRING
      {L"C=R*",       "8225"                                },
      {L"E=Имя",   "8226"                                },
      {L"CN=a",       "none"                                },
      {L"cn=a",       "none"                                },
  };
  for (const auto& [text, expected] : kCases)
    EXPECT_EQ(Fault(text), expected) << std::string(text, text + wcslen(text));
  std::wstring text = L"CN=";
  EXPECT_EQ(Fault(text.append(32768, L'a')), "none");
  EXPECT_EQ(Fault(text.append(1, L'a')), "invalid string");
}

TEST(AttributeText, OfEveryStringType) {
  EXPECT_EQ(Text("2.5.4.3", "0C04D098D0BC"), L"Им");
  EXPECT_EQ(Text("2.5.4.3", "1E0404180042"),
            L"\x418"
            L"B");
  EXPECT_EQ(Text("2.5.4.3", "1C0400000418"), L"\x418");
  EXPECT_EQ(Text("2.5.4.3", "130141"), L"A");
  EXPECT_EQ(Text("2.5.4.3", "140141"), L"A");
  EXPECT_EQ(Text("2.5.4.16", "0C0141"), L"A") << "an address as one string";
  EXPECT_EQ(Text("2.5.4.16", "30070C01411E020042"), L"A$B");
  const std::pair<const char*, std::pair<const char*, const char*>> kBad[] = {
      {"2.5.4.3",  {"040141", "Unsupported string type"}                    },
      {"2.5.4.3",  {"", "Unsupported string type"}                          },
      {"2.5.4.3",  {"0C0241", "Unsupported string type"}                    },
      {"2.5.4.3",  {"30030C0141", "Unsupported string type"}                },
      {"2.5.4.16", {"3003020141", "Unsupported string type in PostalAddres"}},
      {"2.5.4.16", {"30040C0141", "Unsupported string type in PostalAddres"}},
  };
  for (const auto& [oid, row] : kBad) {
    try {
      Text(oid, row.first);
      ADD_FAILURE() << row.first;
    } catch (const Asn1Exception& exception) {
      EXPECT_NE(std::string(exception.what()).find(std::string("'") + row.second + "'"), std::string::npos)
          << exception.what();
    }
  }
}

TEST(AttributeText, PostalAddressesComeBack) {
  const auto context = ASN1ContextPtr::Create();
  const auto attribute = TextAttribute(*context, "2.5.4.16", L"A$B");
  EXPECT_EQ(ToHex(attribute.value.encoded.bytes()), "30060C01410C0142");
  EXPECT_EQ(AttributeText(attribute), L"A$B");
}
