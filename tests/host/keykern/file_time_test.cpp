// Moments as FILETIME and SYSTEMTIME, judged by known moments and by the C library's calendar.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

namespace {

constexpr uint64_t kUnixEpoch = 116444736000000000;

FILETIME FileTime(uint64_t units) { return {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)}; }
uint64_t Units(const FILETIME& time) { return uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime; }

TEST(FileTime, KnownMoments) {
  const struct {
    const char* name;
    uint64_t units;
    SYSTEMTIME parts;  // year, month, day of week, day, hour, minute, second, millisecond
  } kMoments[] = {
      {"the first",                  0,                   {1601, 1, 1, 1, 0, 0, 0, 0}       },
      {"the Unix epoch",             kUnixEpoch,          {1970, 1, 4, 1, 0, 0, 0, 0}       },
      {"a leap day of a century",    125963423990000000,  {2000, 2, 2, 29, 23, 59, 59, 0}   },
      {"no leap day in 1900",        94354847999990000,   {1899, 12, 0, 31, 23, 59, 59, 999}},
      {"RFC 5280's end of all time", 2650467743999990000, {9999, 12, 5, 31, 23, 59, 59, 999}},
      {"the last",                   9223372036854770000, {30828, 9, 4, 14, 2, 48, 5, 477}  },
  };
  for (const auto& [name, units, parts] : kMoments) {
    SCOPED_TRACE(name);
    const FILETIME time = FileTime(units);
    SYSTEMTIME got{};
    ASSERT_TRUE(FileTimeToSystemTime(&time, &got));
    EXPECT_EQ(std::memcmp(&got, &parts, sizeof(parts)), 0)
        << got.wYear << '-' << got.wMonth << '-' << got.wDay << " day " << got.wDayOfWeek << ' ' << got.wHour
        << ':' << got.wMinute << ':' << got.wSecond << '.' << got.wMilliseconds;
    if (parts.wYear > 30827) continue;
    FILETIME back{};
    ASSERT_TRUE(SystemTimeToFileTime(&parts, &back));
    EXPECT_EQ(Units(back), units);
  }
}

// Each day of two leap cycles, from before the C library's epoch on, then strides to the end that are prime to the week.
TEST(FileTime, EveryDayAsTheCLibrary) {
  constexpr uint64_t kDaysTo30828 = 10674942;
  for (uint64_t day = 0; day < kDaysTo30828; day += day < 2 * 146097 ? 1 : 97) {
    const uint64_t ofDay = day * 7919 % 86400;
    const FILETIME time = FileTime((day * 86400 + ofDay) * 10000000);
    SYSTEMTIME got{};
    ASSERT_TRUE(FileTimeToSystemTime(&time, &got));
    const time_t moment =
        static_cast<time_t>(day * 86400 + ofDay) - static_cast<time_t>(kUnixEpoch / 10000000);
    tm expected{};
    ASSERT_NE(gmtime_r(&moment, &expected), nullptr);
    ASSERT_EQ(got.wYear, expected.tm_year + 1900) << day;
    ASSERT_EQ(got.wMonth, expected.tm_mon + 1) << day;
    ASSERT_EQ(got.wDay, expected.tm_mday) << day;
    ASSERT_EQ(got.wDayOfWeek, expected.tm_wday) << day;
    ASSERT_EQ(got.wHour, expected.tm_hour) << day;
    ASSERT_EQ(got.wMinute, expected.tm_min) << day;
    ASSERT_EQ(got.wSecond, expected.tm_sec) << day;
    got.wDayOfWeek = 77;  // not looked at
    FILETIME back{};
    ASSERT_TRUE(SystemTimeToFileTime(&got, &back));
    ASSERT_EQ(Units(back), Units(time)) << day;
  }
}

TEST(FileTime, RefusesWhatIsNoMoment) {
  const struct {
    const char* name;
    SYSTEMTIME parts;
  } kBad[] = {
      {"before the first year",   {1600, 12, 0, 31, 0, 0, 0, 0}   },
      {"behind the last year",    {30828, 1, 0, 1, 0, 0, 0, 0}    },
      {"month 0",                 {2000, 0, 0, 1, 0, 0, 0, 0}     },
      {"month 13",                {2000, 13, 0, 1, 0, 0, 0, 0}    },
      {"day 0",                   {2000, 1, 0, 0, 0, 0, 0, 0}     },
      {"29 February 2100",        {2100, 2, 0, 29, 0, 0, 0, 0}    },
      {"31 April",                {2000, 4, 0, 31, 0, 0, 0, 0}    },
      {"hour 24",                 {2000, 1, 0, 1, 24, 0, 0, 0}    },
      {"a leap second",           {2016, 12, 0, 31, 23, 59, 60, 0}},
      {"a thousand milliseconds", {2000, 1, 0, 1, 0, 0, 0, 1000}  },
  };
  for (const auto& [name, parts] : kBad) {
    SCOPED_TRACE(name);
    FILETIME time = FileTime(42);
    SetLastError(0);
    EXPECT_FALSE(SystemTimeToFileTime(&parts, &time));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(Units(time), 42u);
  }
  const FILETIME beyond = FileTime(uint64_t{1} << 63);
  SYSTEMTIME parts{};
  EXPECT_FALSE(FileTimeToSystemTime(&beyond, &parts));
  EXPECT_FALSE(FileTimeToSystemTime(nullptr, &parts));
}

TEST(FileTime, NowAndOrder) {
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  EXPECT_NEAR(static_cast<double>((Units(now) - kUnixEpoch) / 10000000), static_cast<double>(time(nullptr)),
              2);
  SYSTEMTIME parts{};
  GetSystemTime(&parts);
  FILETIME later{};
  ASSERT_TRUE(SystemTimeToFileTime(&parts, &later));
  EXPECT_LT(Units(later) - Units(now) + 10000, uint64_t{50000000}) << "the same clock, but for a millisecond";

  const FILETIME low = FileTime(0xFFFFFFFF);
  const FILETIME high = FileTime(0x100000000);  // the halves disagree on which is later
  EXPECT_EQ(CompareFileTime(&low, &high), -1);
  EXPECT_EQ(CompareFileTime(&high, &low), 1);
  EXPECT_EQ(CompareFileTime(&low, &low), 0);
}

}  // namespace
