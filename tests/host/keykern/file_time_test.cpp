// Moments against a calendar that is not ours: Python's for the single values, the C library's for the sweep.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <ctime>
#include <tuple>

namespace {

FILETIME FileTime(uint64_t units) { return {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)}; }
uint64_t Units(const FILETIME& time) { return uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime; }
auto Parts(const SYSTEMTIME& t) {
  return std::tuple(t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds, t.wDayOfWeek);
}

constexpr uint64_t kUnixEpoch = 116444736000000000;
constexpr uint64_t kSecond = 10000000;

struct MomentCase {
  const char* name;
  uint64_t units;
  SYSTEMTIME parts;
};
const MomentCase kMoments[] = {
    {"the first",                     0,                   {1601, 1, 1, 1, 0, 0, 0, 0}        },
    {"the last of 1601",              315359999990000,     {1601, 12, 1, 31, 23, 59, 59, 999} },
    {"1900 has no leap day",          94405823999990000,   {1900, 2, 3, 28, 23, 59, 59, 999}  },
    {"and goes on in March",          94405824000000000,   {1900, 3, 4, 1, 0, 0, 0, 0}        },
    {"the Unix epoch",                kUnixEpoch,          {1970, 1, 4, 1, 0, 0, 0, 0}        },
    {"the last second of 1999",       125911583990000000,  {1999, 12, 5, 31, 23, 59, 59, 0}   },
    {"2000 has a leap day",           125963012967890000,  {2000, 2, 2, 29, 12, 34, 56, 789}  },
    {"the last second of UTCTime",    141690815990000000,  {2049, 12, 5, 31, 23, 59, 59, 0}   },
    {"the first of GeneralizedTime",  141690816000000000,  {2050, 1, 6, 1, 0, 0, 0, 0}        },
    {"a leap day four centuries on",  252190368000000000,  {2400, 2, 2, 29, 0, 0, 0, 0}       },
    {"no well-defined end, RFC 5280", 2650467743990000000, {9999, 12, 5, 31, 23, 59, 59, 0}   },
    {"the last that is taken",        9223149887999990000, {30827, 12, 5, 31, 23, 59, 59, 999}},
};

TEST(FileTime, KnownMomentsGoBothWays) {
  for (const auto& [name, units, parts] : kMoments) {
    SCOPED_TRACE(name);
    const FILETIME moment = FileTime(units);
    SYSTEMTIME taken{};
    ASSERT_TRUE(FileTimeToSystemTime(&moment, &taken));
    EXPECT_EQ(Parts(taken), Parts(parts));
    SYSTEMTIME given = parts;
    given.wDayOfWeek = 77;  // not looked at
    FILETIME put{};
    ASSERT_TRUE(SystemTimeToFileTime(&given, &put));
    EXPECT_EQ(Units(put), units);
  }
}

TEST(FileTime, EveryDayAgreesWithTheCLibrary) {
  // each day of two leap cycles, then strides up to the end that are prime to the week and the year
  for (uint64_t day = 0; day < 10674600; day += day < 2 * 146097 ? 1 : 97) {
    const time_t seconds =
        static_cast<time_t>(day * 86400 + day % 86400) - static_cast<time_t>(kUnixEpoch / kSecond);
    tm expected{};
    ASSERT_NE(gmtime_r(&seconds, &expected), nullptr);
    const FILETIME moment = FileTime(kUnixEpoch + static_cast<uint64_t>(seconds) * kSecond);
    SYSTEMTIME parts{};
    ASSERT_TRUE(FileTimeToSystemTime(&moment, &parts));
    ASSERT_EQ(std::tuple(parts.wYear, parts.wMonth, parts.wDay, parts.wDayOfWeek, parts.wHour, parts.wMinute,
                         parts.wSecond),
              std::tuple(expected.tm_year + 1900, expected.tm_mon + 1, expected.tm_mday, expected.tm_wday,
                         expected.tm_hour, expected.tm_min, expected.tm_sec))
        << "day " << day;
    FILETIME back{};
    ASSERT_TRUE(SystemTimeToFileTime(&parts, &back));
    ASSERT_EQ(Units(back), Units(moment)) << "day " << day;
  }
}

TEST(FileTime, TheLastMomentIsBelowTheTopBit) {
  SYSTEMTIME parts{};
  FILETIME moment = FileTime(0x7FFFFFFFFFFFFFFF);
  ASSERT_TRUE(FileTimeToSystemTime(&moment, &parts));
  EXPECT_EQ(Parts(parts), Parts({30828, 9, 4, 14, 2, 48, 5, 477}));

  for (const uint64_t beyond : {uint64_t{1} << 63, ~uint64_t{0}}) {
    const SYSTEMTIME before = parts;
    moment = FileTime(beyond);
    SetLastError(0);
    EXPECT_FALSE(FileTimeToSystemTime(&moment, &parts));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(Parts(parts), Parts(before)) << "written to on failure";
  }
}

struct UnrealCase {
  const char* name;
  SYSTEMTIME parts;
};
const UnrealCase kUnreal[] = {
    {"before the first year", {1600, 12, 0, 31, 0, 0, 0, 0}   },
    {"after the last year",   {30828, 1, 0, 1, 0, 0, 0, 0}    },
    {"month 0",               {2026, 0, 0, 1, 0, 0, 0, 0}     },
    {"month 13",              {2026, 13, 0, 1, 0, 0, 0, 0}    },
    {"day 0",                 {2026, 1, 0, 0, 0, 0, 0, 0}     },
    {"31 April",              {2026, 4, 0, 31, 0, 0, 0, 0}    },
    {"29 February 2026",      {2026, 2, 0, 29, 0, 0, 0, 0}    },
    {"29 February 1900",      {1900, 2, 0, 29, 0, 0, 0, 0}    },
    {"30 February 2000",      {2000, 2, 0, 30, 0, 0, 0, 0}    },
    {"hour 24",               {2026, 1, 0, 1, 24, 0, 0, 0}    },
    {"minute 60",             {2026, 1, 0, 1, 0, 60, 0, 0}    },
    {"a leap second",         {2016, 12, 0, 31, 23, 59, 60, 0}},
    {"millisecond 1000",      {2026, 1, 0, 1, 0, 0, 0, 1000}  },
};

TEST(FileTime, WhatIsNoMomentIsRefused) {
  for (const auto& [name, parts] : kUnreal) {
    SCOPED_TRACE(name);
    FILETIME moment = FileTime(77);
    SetLastError(0);
    EXPECT_FALSE(SystemTimeToFileTime(&parts, &moment));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(Units(moment), 77u) << "written to on failure";
  }
  SYSTEMTIME parts = kMoments[0].parts;
  FILETIME moment{};
  for (const BOOL answer : {SystemTimeToFileTime(nullptr, &moment), SystemTimeToFileTime(&parts, nullptr),
                            FileTimeToSystemTime(nullptr, &parts), FileTimeToSystemTime(&moment, nullptr)}) {
    EXPECT_FALSE(answer);
  }
}

TEST(FileTime, ComparesBothHalves) {
  const FILETIME early = {0xFFFFFFFF, 1}, late = {0, 2}, beyond = {0, 0x80000000};
  EXPECT_EQ(CompareFileTime(&early, &late), -1);
  EXPECT_EQ(CompareFileTime(&late, &early), 1);
  EXPECT_EQ(CompareFileTime(&late, &late), 0);
  EXPECT_EQ(CompareFileTime(&beyond, &late), 1) << "the count has no sign";
}

TEST(FileTime, NowIsNow) {
  const time_t before = time(nullptr);
  FILETIME moment{}, fromParts{};
  SYSTEMTIME parts{};
  GetSystemTimeAsFileTime(&moment);
  GetSystemTime(&parts);
  ASSERT_TRUE(SystemTimeToFileTime(&parts, &fromParts));
  const time_t after = time(nullptr);
  for (const FILETIME& now : {moment, fromParts}) {
    const uint64_t seconds = (Units(now) - kUnixEpoch) / kSecond;
    EXPECT_GE(seconds + 1, static_cast<uint64_t>(before));  // time() may lag the precise clock by a tick
    EXPECT_LE(seconds, static_cast<uint64_t>(after) + 1);
  }
}

}  // namespace
