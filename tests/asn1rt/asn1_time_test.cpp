// Times by their parts, both kinds. Calendar values are those of `date -u -d ... +%s`.
#include "asn1rt/asn1_time.h"

#include <gtest/gtest.h>

#include <string>

using namespace certkern;

namespace {

ASN1Text Text(std::string_view text) { return {static_cast<uint32_t>(text.size()), text.data()}; }

constexpr int64_t kNoTime = INT64_MIN;

template <class Time>
void Check(std::string_view text, int64_t seconds, const char* printed) {
  SCOPED_TRACE(text);
  ASN1BEREncodeBuffer buffer;
  ASN1Text value = Text(text);
  Time time(buffer, value);
  int64_t read = kNoTime;
  const int status = time.GetTime(read);
  EXPECT_EQ(status, seconds == kNoTime ? int{ASN1_E_BAD_VALUE} : int{ASN1_OK});
  EXPECT_EQ(read, seconds);
  if (status < 0) return;
  EXPECT_EQ(time.SetDay(time.GetDay()), ASN1_OK);  // prints what was parsed
  EXPECT_EQ(time.GetText(), printed);
}

}  // namespace

TEST(Asn1Time, GeneralizedTimes) {
  const struct {
    const char* text;
    int64_t seconds;
    const char* printed;
  } kTimes[] = {
      {"20240229235959Z",                  1709251199,   "20240229235959Z"      },
      {"19700101000000Z",                  0,            "19700101000000Z"      },
      {"00000101000000Z",                  -62167219200, "00000101000000Z"      },
      {"99991231235959Z",                  253402300799, "99991231235959Z"      },
      {"20240229235959.12500Z",            1709251199,   "20240229235959.12500Z"},
      {"20240229235959,5",                 1709251199,   "20240229235959.5"     },
      {"202402292359Z",                    1709251140,   "20240229235900Z"      },
      {"2024022923Z",                      1709247600,   "20240229230000Z"      },
      {"2024022923.5Z",                    1709249400,   "20240229233000Z"      },
      {"2024022923.0001Z",                 1709247600,   "20240229230000.36Z"   },
      {"202402292359.999Z",                1709251199,   "20240229235959.94Z"   },
      {"20240301025959+0300",              1709251199,   "20240301025959+0300"  },
      {"20240301025959+03",                1709251199,   "20240301025959+0300"  },
      {"20240229182959.7-0530",            1709251199,   "20240229182959.7-0530"},
      {"20230229235959Z",                  kNoTime,      ""                     },
      {"20241301000000Z",                  kNoTime,      ""                     },
      {"20240101240000Z",                  kNoTime,      ""                     },
      {"20240101006000Z",                  kNoTime,      ""                     },
      {"20240101000060Z",                  kNoTime,      ""                     },
      {"20240101000000.Z",                 kNoTime,      ""                     },
      {"20240101000000.1234567890123456Z", kNoTime,      ""                     },
      {"20240101000000+2400",              kNoTime,      ""                     },
      {"20240101000000+0060",              kNoTime,      ""                     },
      {"20240101000000+030",               kNoTime,      ""                     },
      {"20240101000000Z0",                 kNoTime,      ""                     },
      {"202401010000 0Z",                  kNoTime,      ""                     },
      {"+0240101000000Z",                  kNoTime,      ""                     },
      {"20240101",                         kNoTime,      ""                     },
      {"",                                 kNoTime,      ""                     },
  };
  for (const auto& [text, seconds, printed] : kTimes) Check<ASN1CGeneralizedTime>(text, seconds, printed);
}

TEST(Asn1Time, UtcTimes) {
  const struct {
    const char* text;
    int64_t seconds;
    const char* printed;
  } kTimes[] = {
      {"500101000000Z",     -631152000, "500101000000Z"    },
      {"491231235959Z",     2524607999, "491231235959Z"    },
      {"2402292359Z",       1709251140, "240229235900Z"    },
      {"240301025959+0300", 1709251199, "240301025959+0300"},
      {"240229235959",      1709251199, "240229235959"     },
      {"240229235959.5Z",   kNoTime,    ""                 },
      {"240229235959+03",   kNoTime,    ""                 },
      {"24022923Z",         kNoTime,    ""                 },
      {"230229235959Z",     kNoTime,    ""                 },
      {"2402292359590Z",    kNoTime,    ""                 },
  };
  for (const auto& [text, seconds, printed] : kTimes) Check<ASN1CUTCTime>(text, seconds, printed);
}

TEST(Asn1Time, PartsAreReadAndSet) {
  ASN1BEREncodeBuffer buffer;
  ASN1Text value = Text("20240229182959.7-0530");
  ASN1CGeneralizedTime time(buffer, value);
  int hours = 0, minutes = 0, zone = 0;
  std::string_view fraction;
  EXPECT_EQ(time.GetCentury(), 20);
  EXPECT_EQ(time.GetYear() * 10000 + time.GetMonth() * 100 + time.GetDay(), 20240229);
  EXPECT_EQ(time.GetHour() * 10000 + time.GetMinute() * 100 + time.GetSecond(), 182959);
  EXPECT_TRUE(time.GetMilliseconds() == 700 && time.GetFractionLength() == 1);
  EXPECT_TRUE(time.GetFraction(fraction) == ASN1_OK && fraction == "7");
  EXPECT_TRUE(time.GetZoneHours(hours) == ASN1_OK && time.GetZoneMinutes(minutes) == ASN1_OK);
  EXPECT_TRUE(time.GetZone(zone) == ASN1_OK && hours == -5 && minutes == -30 && zone == -330);
  EXPECT_EQ(time.IsUtc(), 0);

  EXPECT_EQ(time.SetYear(2023), ASN1_E_BAD_VALUE) << "no 29th of February";
  EXPECT_EQ(time.GetText(), "20240229182959.7-0530");
  EXPECT_TRUE(time.SetDay(28) == ASN1_OK && time.SetYear(2023) == ASN1_OK && time.SetMonth(12) == ASN1_OK);
  EXPECT_TRUE(time.SetHour(1) == ASN1_OK && time.SetMinute(2) == ASN1_OK && time.SetSecond(3) == ASN1_OK);
  EXPECT_TRUE(time.SetMilliseconds(40) == ASN1_OK && time.SetZone(95) == ASN1_OK);
  EXPECT_EQ(time.GetText(), "20231228010203.04+0135");
  EXPECT_TRUE(time.SetUtc(false) == ASN1_OK && time.SetFraction("") == ASN1_OK);
  EXPECT_EQ(time.GetText(), "20231228010203");
  for (const int bad : {-1, 60, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(time.SetMinute(bad), ASN1_E_BAD_VALUE);
    EXPECT_EQ(time.SetDay(bad), ASN1_E_BAD_VALUE);
    EXPECT_EQ(time.SetZone(bad), bad == -1 || bad == 60 ? int{ASN1_OK} : int{ASN1_E_BAD_VALUE});
  }
  time.Clear();
  EXPECT_LT(time.GetYear(), 0);
  EXPECT_EQ(time.SetDate(2024, 2, 29), ASN1_OK);
  EXPECT_EQ(time.SetTimeOfDay(23, 59, 59), ASN1_OK);
  EXPECT_EQ(time.GetText(), "20240229235959Z");
  EXPECT_EQ(time.SetTime(253402300800), ASN1_E_BAD_VALUE);
  EXPECT_EQ(time.SetText("2024"), ASN1_E_BAD_VALUE);
}

TEST(Asn1Time, UtcTimeHoldsAHundredYears) {
  ASN1BEREncodeBuffer buffer;
  ASN1Text value{};
  ASN1CUTCTime time(buffer, value);
  EXPECT_EQ(time.SetTime(2524607999), ASN1_OK);
  EXPECT_EQ(time.GetText(), "491231235959Z");
  EXPECT_EQ(time.SetTime(2524608000), ASN1_E_BAD_VALUE);
  EXPECT_EQ(time.SetYear(50), ASN1_OK);
  EXPECT_EQ(time.GetYear(), 1950);
  EXPECT_EQ(time.SetYear(2050), ASN1_E_BAD_VALUE);
  EXPECT_EQ(time.SetMilliseconds(1), ASN1_E_BAD_VALUE);
}

TEST(Asn1Time, ComparesMoments) {
  ASN1BEREncodeBuffer buffer;
  ASN1Text a = Text("20240301025959.10+0300"), b = Text("240229235959Z"), c = Text("20240229235959.1Z");
  ASN1CGeneralizedTime early(buffer, c), zoned(buffer, a);
  ASN1CUTCTime utc(buffer, b);
  int order = 9;
  EXPECT_TRUE(zoned.Compare(early, order) == ASN1_OK && order == 0);
  EXPECT_TRUE(zoned.Compare(utc, order) == ASN1_OK && order == 1);
  EXPECT_TRUE(utc.Compare(zoned, order) == ASN1_OK && order == -1);
}
