// Headers, identifiers, times, integers and name values.
#include "ber/fields.h"
#include "ber/name_value.h"
#include "ber/oid_text.h"
#include "ber/struct_types.h"
#include "ber/time_text.h"
#include "support/hex.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>

using namespace certkern;

namespace {

struct HeaderCase {
  const char* name;
  const char* hex;
  bool ok;
  DWORD code;
  size_t contentSize;
};

std::string OidToHex(LPCSTR dotted) {
  size_t count = 0;
  if (!BerEncodeOid(dotted, nullptr, count)) return "refused";
  std::vector<BYTE> content(count);
  EXPECT_TRUE(BerEncodeOid(dotted, content.data(), count));
  EXPECT_EQ(count, content.size());
  return ToHex(content);
}

std::string HexToOid(const char* hex) {
  const std::vector<BYTE> content = FromHex(hex);
  size_t size = 0;
  if (!BerDecodeOid(content, nullptr, size)) return "refused";
  std::vector<char> text(size, '#');
  EXPECT_TRUE(BerDecodeOid(content, text.data(), size));
  EXPECT_EQ(size, text.size());
  std::vector<char> roomy(OidTextBound(content.size()), '#');
  EXPECT_TRUE(BerDecodeOidRoomy(content, roomy.data(), size));
  EXPECT_STREQ(roomy.data(), text.data());
  return text.data();
}

// One encoding through the table; the last error where it fails.
template <typename Record>
std::string Encoded(uintptr_t type, const Record& record) {
  BYTE out[256];
  DWORD size = sizeof(out);
  SetLastError(0);
  if (BerEncodeByType(type, &record, out, &size)) return ToHex({out, size});
  char code[16];
  std::snprintf(code, sizeof(code), "%08X", GetLastError());
  return code;
}

std::string EncodedInteger(uintptr_t type, const char* littleEndian) {
  std::vector<BYTE> bytes = FromHex(littleEndian);
  bytes.reserve(1);  // an empty blob has an address, too
  return Encoded(type, CRYPT_INTEGER_BLOB{static_cast<DWORD>(bytes.size()), bytes.data()});
}

CERT_NAME_VALUE Wide(DWORD type, std::wstring& text) {
  return {
      type, {static_cast<DWORD>(text.size() * sizeof(wchar_t)), reinterpret_cast<BYTE*>(text.data())}
  };
}

std::string EncodedWide(DWORD type, std::wstring text, uintptr_t structType = 24) {
  return Encoded(structType, Wide(type, text));
}

FILETIME Moment(WORD year, WORD month, WORD day, WORD hour = 0, WORD minute = 0, WORD second = 0,
                WORD milli = 0) {
  const SYSTEMTIME parts = {year, month, 0, day, hour, minute, second, milli};
  FILETIME time{};
  EXPECT_TRUE(SystemTimeToFileTime(&parts, &time));
  return time;
}

bool operator==(const FILETIME& a, const FILETIME& b) { return CompareFileTime(&a, &b) == 0; }

}  // namespace

TEST(BerReadCursor, Headers) {
  const HeaderCase kHeaders[] = {
      {"short length",                      "30 02 05 00",             true,  0,                2},
      {"a longer length form than needed",  "30 81 02 05 00",          true,  0,                2},
      {"four length octets",                "30 84 00 00 00 02 05 00", true,  0,                2},
      {"0x80 is empty, the next follows",   "30 80 05 00",             true,  0,                0},
      {"nothing behind the identifier",     "30",                      false, CRYPT_E_ASN1_EOD, 0},
      {"length bytes run off the end",      "30 84 00 00",             false, CRYPT_E_ASN1_EOD, 0},
      {"five length octets",                "30 85 00 00 00 00 00",    false, CRYPT_E_ASN1_EOD, 0},
      {"content runs off the end, no code", "30 03 05 00",             false, 0,                0},
      {"the largest length",                "30 84 FF FF FF FF 00",    false, 0,                0},
  };
  for (const auto& [name, hex, ok, code, contentSize] : kHeaders) {
    SCOPED_TRACE(name);
    const std::vector<BYTE> input = FromHex(hex);
    BerReadCursor in(input), content;
    BYTE tag = 0;
    SetLastError(0);
    ASSERT_EQ(in.readElement(tag, content), ok);
    EXPECT_EQ(GetLastError(), code);
    EXPECT_EQ(content.size(), contentSize);
    if (!ok) {
      EXPECT_EQ(in.size(), input.size()) << "a failed read moves on";
    }
  }
}

TEST(OidText, ToContent) {
  const std::pair<const char*, const char*> kCases[] = {
      {"1.2.840.113549",         "2A864886F70D"        },
      {"2.999.1",                "883701"              },
      {"2.39.1",                 "7701"                },
      {"2.40.1",                 "7801"                },
      {"1.2.643.7.1.1.1.1",      "2A85030701010101"    },
      {"1 2.643 7",              "2A850307"            }, // blanks separate as well
      {"1.",                     "28"                  },
      {"1.2.",                   "2A"                  },
      {"1..2",                   "2802"                },
      {"1.2..3",                 "2A0003"              },
      {"2.18446744073709551535", "81FFFFFFFFFFFFFFFF7F"},
      {"0.39",                   "27"                  },
      {"1.40",                   "refused"             },
      {"3.1",                    "refused"             },
      {"1",                      "refused"             },
      {"",                       "refused"             },
      {"1.2.x",                  "refused"             },
      {"1.2.-3",                 "refused"             },
      {"12.3",                   "refused"             },
  };
  for (const auto& [dotted, hex] : kCases) EXPECT_EQ(OidToHex(dotted), hex) << dotted;
  EXPECT_EQ(OidToHex(nullptr), "refused");
}

TEST(OidText, FromContent) {
  const std::pair<const char*, const char*> kCases[] = {
      {"2A864886F70D",                  "1.2.840.113549"       },
      {"7701",                          "2.39.1"               },
      {"00",                            "0.0"                  },
      {"7801",                          "refused"              },
      {"883701",                        "refused"              },
      {"2A8503070101",                  "1.2.643.7.1.1"        },
      {"2A FF FF FF FF FF FF FF 7F",    "1.2.72057594037927935"}, // eight octets, the most there may be
      {"2A 81 80 80 80 80 80 80 80 00", "refused"              },
      {"2A 86",                         "refused"              },
      {"",                              "refused"              },
      {"2A 80 01",                      "1.2.1"                },
      {"80 2A",                         "1.2"                  },
  };
  for (const auto& [hex, dotted] : kCases) EXPECT_EQ(HexToOid(hex), dotted) << hex;
}

TEST(Integers, ShortestTwosComplement) {
  const std::pair<DWORD, const char*> kCases[] = {
      {0,          "020100"      },
      {127,        "02017F"      },
      {128,        "02020080"    },
      {255,        "020200FF"    },
      {0xFFFFFFFF, "0201FF"      },
      {0xFFFFFF80, "020180"      },
      {0xFFFFFF7F, "0202FF7F"    },
      {0x7FFFFFFF, "02047FFFFFFF"},
      {0x80000000, "020480000000"},
  };
  for (const auto& [value, hex] : kCases) EXPECT_EQ(Encoded(27, value), hex) << value;
}

TEST(Integers, LongOnesAreReversed) {
  EXPECT_EQ(EncodedInteger(28, "80 00"), "02020080");
  EXPECT_EQ(EncodedInteger(28, "FF FF"), "0201FF");
  EXPECT_EQ(EncodedInteger(28, "00 00"), "020100");
  EXPECT_EQ(EncodedInteger(28, "01 02"), "02020201");
  EXPECT_EQ(EncodedInteger(28, ""), "0200");
  EXPECT_EQ(Encoded(28, CRYPT_INTEGER_BLOB{0, nullptr}), "0200");
  EXPECT_EQ(EncodedInteger(38, "80 00"), "02020080");
  EXPECT_EQ(EncodedInteger(38, "7F 00 00"), "02017F");
  EXPECT_EQ(EncodedInteger(38, "00 00"), "0200");
  EXPECT_EQ(Encoded(38, CRYPT_UINT_BLOB{0, nullptr}), "00000000");
  EXPECT_EQ(Encoded(28, CRYPT_INTEGER_BLOB{4, nullptr}), "00000000") << "a length without bytes";
}

TEST(Times, Utc) {
  FILETIME time;
  ASSERT_TRUE(BerParseUtcTime("500101000000Z", time));
  EXPECT_TRUE(time == Moment(1950, 1, 1));
  ASSERT_TRUE(BerParseUtcTime("491231235959Z", time));
  EXPECT_TRUE(time == Moment(2049, 12, 31, 23, 59, 59));
  ASSERT_TRUE(BerParseUtcTime("2601020304Z", time));
  EXPECT_TRUE(time == Moment(2026, 1, 2, 3, 4));
  EXPECT_FALSE(BerParseUtcTime("49123123595Z", time));
  SetLastError(0);
  ASSERT_TRUE(BerParseUtcTime("269931235959Z", time)) << "an impossible date is no fault";
  EXPECT_TRUE(IsZero(time));
  EXPECT_EQ(GetLastError(), 0u);
}

TEST(Times, Generalized) {
  FILETIME time;
  ASSERT_TRUE(BerParseGeneralizedTime("20500102030405Z", time));
  EXPECT_TRUE(time == Moment(2050, 1, 2, 3, 4, 5));
  ASSERT_TRUE(BerParseGeneralizedTime("205001020304Z", time));
  EXPECT_TRUE(time == Moment(2050, 1, 2, 3, 4));
  ASSERT_TRUE(BerParseGeneralizedTime("20500102030405.6Z", time));
  EXPECT_TRUE(time == Moment(2050, 1, 2, 3, 4, 5, 600));
  ASSERT_TRUE(BerParseGeneralizedTime("20500102030405.678Z", time));
  EXPECT_TRUE(time == Moment(2050, 1, 2, 3, 4, 5, 678));
  for (const char* impossible : {"20509902030405Z", "20500102030405.\xFF\xFF\xFFZ",
                                 "\xFF\xFF\xFF\xFF"
                                 "0102030405Z"}) {
    SetLastError(17);
    EXPECT_FALSE(BerParseGeneralizedTime(impossible, time));
    EXPECT_EQ(GetLastError(), 17u) << "a failure without a code";
  }
  EXPECT_FALSE(BerParseGeneralizedTime("20500102030405.Z", time)) << "16 characters are of neither form";
}

TEST(Times, EncodingChoosesByTheYear) {
  EXPECT_EQ(Encoded(30, Moment(2049, 12, 31, 23, 59, 59)),
            "170D" + ToHex(FromHex("3439313233313233353935395A")));
  EXPECT_EQ(Encoded(30, Moment(2050, 1, 1)), "180F32303530303130313030303030305A");
  EXPECT_EQ(Encoded(30, Moment(1949, 12, 31)), "180F31393439313233313030303030305A");
  EXPECT_EQ(Encoded(17, Moment(2050, 1, 1)), "00000000");
  EXPECT_EQ(Encoded(30, FILETIME{}), "00000000");
}

TEST(NameValues, CheckedText) {
  EXPECT_EQ(EncodedWide(CERT_RDN_PRINTABLE_STRING, L"Ab (+)"), "1306416220282B29");
  EXPECT_EQ(EncodedWide(CERT_RDN_PRINTABLE_STRING, L"A1"), "80092021");
  EXPECT_EQ(EncodedWide(CERT_RDN_PRINTABLE_STRING | CERT_RDN_DISABLE_CHECK_TYPE_FLAG, L"A1"), "13024131");
  EXPECT_EQ(EncodedWide(CERT_RDN_PRINTABLE_STRING, L"\x0141"), "80092021") << "0x141 is no A";
  EXPECT_EQ(EncodedWide(CERT_RDN_NUMERIC_STRING, L"1 2"), "1203312032");
  EXPECT_EQ(EncodedWide(CERT_RDN_NUMERIC_STRING, L"1a"), "80092020");
  EXPECT_EQ(EncodedWide(CERT_RDN_IA5_STRING, L"\x7F"), "16017F");
  EXPECT_EQ(EncodedWide(CERT_RDN_IA5_STRING, L"\x80"), "80092022");
  EXPECT_EQ(EncodedWide(CERT_RDN_TELETEX_STRING, L"\x0141"), "140141") << "unchecked types keep the low byte";
}

TEST(NameValues, WideText) {
  EXPECT_EQ(EncodedWide(CERT_RDN_UTF8_STRING, L"\x042F\x1F600"), "0C06D0AFF09F9880");
  EXPECT_EQ(EncodedWide(CERT_RDN_BMP_STRING, L"\x042F"), "1E02042F");
  EXPECT_EQ(EncodedWide(CERT_RDN_UNIVERSAL_STRING, L"\x1F600"), "1C040001F600");
  EXPECT_EQ(EncodedWide(CERT_RDN_UTF8_STRING, L""), "0C00");
  EXPECT_EQ(EncodedWide(CERT_RDN_OCTET_STRING, L"a"), "80092024");
  EXPECT_EQ(EncodedWide(CERT_RDN_ENCODED_BLOB, L"a"), "80092024");
  EXPECT_EQ(EncodedWide(14, L"a"), "00000000");
}

TEST(NameValues, RawText) {
  BYTE bytes[] = {0x05, 0x00};
  const auto encoded = [&](DWORD type, DWORD size) {
    return Encoded(6,
                   CERT_NAME_VALUE{
                       type, {size, bytes}
    });
  };
  EXPECT_EQ(encoded(CERT_RDN_ANY_TYPE, 2), "80070057");
  EXPECT_EQ(encoded(256, 2), "8009310C");
  EXPECT_EQ(encoded(255, 0), "00000000");
  EXPECT_EQ(encoded(16, 0), "00000000") << "no tag is looked up behind the table";
  EXPECT_EQ(encoded(14, 2), "00000000");
  EXPECT_EQ(encoded(14, 0), "");
  EXPECT_EQ(encoded(CERT_RDN_ENCODED_BLOB, 2), "0500");
  EXPECT_EQ(encoded(CERT_RDN_PRINTABLE_STRING, 2), "13020500") << "raw bytes are not checked";
}

struct ValueCase {
  const char* name;
  uintptr_t type;
  const char* hex;
  DWORD valueType;
  const char* bytes;
  size_t behind;  // NUL bytes that the record must have behind the value
};

TEST(NameValues, Decoding) {
  const ValueCase kCases[] = {
      {"printable",                     6,  "13 02 41 42",       4,  "4142",             1},
      {"printable with its own NUL",    6,  "13 02 41 00",       4,  "4100",             0},
      {"octets have no NUL",            6,  "04 02 41 42",       2,  "4142",             0},
      {"empty UTF-8",                   6,  "0C 00",             13, "",                 4},
      {"BMP with an odd tail",          6,  "1E 03 04 2F 41",    12, "2F040000",         4},
      {"BMP whose last unit is NUL",    6,  "1E 04 04 2F 00 00", 12, "2F04000000000000", 0},
      {"BMP whose tail is a zero byte", 6,  "1E 03 04 2F 00",    12, "2F040000",         4},
      {"universal",                     6,  "1C 04 00 01 F6 00", 11, "00F60100",         4},
      {"bit string is taken whole",     6,  "03 02 00 FF",       1,  "030200FF",         0},
      {"printable, wide",               24, "13 02 41 42",       4,  "4100000042000000", 4},
      {"Teletex, wide",                 24, "14 01 E9",          5,  "E9000000",         4},
      {"octets, wide",                  24, "04 02 41 42",       2,  "4142",             0},
      {"class bits, wide",              24, "8C 01 41",          13, "41000000",         4},
  };
  for (const auto& [name, type, hex, valueType, bytes, behind] : kCases) {
    SCOPED_TRACE(name);
    const StructType& row = *FindStructType(type);
    alignas(8) BYTE record[128];
    std::memset(record, 0xEE, sizeof(record));
    DWORD size = sizeof(record);
    ASSERT_TRUE(BerDecodeEntry(SizeKnown::No, row, FromHex(hex), 0, record, &size));
    const auto* value = reinterpret_cast<const CERT_NAME_VALUE*>(record);
    EXPECT_EQ(value->dwValueType, valueType);
    const BYTE* data = value->Value.pbData;
    EXPECT_EQ(ToHex({data, value->Value.cbData}), bytes);
    for (size_t i = 0; i < behind; ++i) EXPECT_EQ(data[value->Value.cbData + i], 0) << i;
    const size_t used = sizeof(CERT_NAME_VALUE) + (value->Value.cbData + behind + 7) / 8 * 8;
    EXPECT_EQ(size, used);
  }
}
