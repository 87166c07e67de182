// Moments: FILETIME counts 100 ns since 1601-01-01 UTC, SYSTEMTIME has them in parts of the Gregorian calendar.
// Integer arithmetic only, no time zone and no lock: two conversions a certificate, one an entry of a revocation list.
#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <time.h>

#include <cstdint>

namespace {

constexpr uint64_t kUnitsPerMillisecond = 10000;
constexpr uint64_t kMillisecondsPerDay = 86400000;
constexpr uint64_t kUnixEpochUnits = 116444736000000000;  // 1601 to 1970
constexpr unsigned kFirstYear = 1601;
constexpr unsigned kLastYear = 30827;  // the last whole year below 2^63

// Days from 0000-03-01, from where leap days end the years, to 1601-01-01.
constexpr uint32_t kEpochDay = 584694;
constexpr uint32_t kDaysPerEra = 146097;  // 400 years

uint64_t UnitsOf(const FILETIME& time) { return uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime; }

FILETIME FileTimeOf(uint64_t units) { return {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)}; }

bool IsLeap(unsigned year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

unsigned DaysInMonth(unsigned year, unsigned month) {
  static constexpr uint8_t kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeap(year) ? 29 : kDays[month - 1];
}

bool IsReal(const SYSTEMTIME& parts) {
  return parts.wYear >= kFirstYear && parts.wYear <= kLastYear && parts.wMonth >= 1 && parts.wMonth <= 12
      && parts.wDay >= 1 && parts.wDay <= DaysInMonth(parts.wYear, parts.wMonth) && parts.wHour <= 23
      && parts.wMinute <= 59 && parts.wSecond <= 59 && parts.wMilliseconds <= 999;
}

// Days since 1601-01-01.
uint32_t DayNumber(unsigned year, unsigned month, unsigned day) {
  const uint32_t y = month > 2 ? year : year - 1;  // years begin in March
  const uint32_t m = month > 2 ? month - 3 : month + 9;
  return y * 365 + y / 4 - y / 100 + y / 400 + (153 * m + 2) / 5 + day - 1 - kEpochDay;
}

void SetDate(uint32_t dayNumber, SYSTEMTIME& parts) {
  const uint32_t days = dayNumber + kEpochDay;
  const uint32_t era = days / kDaysPerEra;
  const uint32_t dayOfEra = days % kDaysPerEra;
  const uint32_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const uint32_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const uint32_t m = (5 * dayOfYear + 2) / 153;
  parts.wDay = static_cast<WORD>(dayOfYear - (153 * m + 2) / 5 + 1);
  parts.wMonth = static_cast<WORD>(m < 10 ? m + 3 : m - 9);
  parts.wYear = static_cast<WORD>(era * 400 + yearOfEra + (parts.wMonth <= 2));
  parts.wDayOfWeek = static_cast<WORD>((dayNumber + 1) % 7);  // 1601 began on a Monday
}

BOOL Refused() {
  SetLastError(ERROR_INVALID_PARAMETER);
  return FALSE;
}

uint64_t UnitsNow() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return kUnixEpochUnits + static_cast<uint64_t>(now.tv_sec) * 10000000
      + static_cast<uint64_t>(now.tv_nsec) / 100;
}

}  // namespace

extern "C" {

LONG CompareFileTime(const FILETIME* lpFileTime1, const FILETIME* lpFileTime2) {
  const uint64_t a = UnitsOf(*lpFileTime1);
  const uint64_t b = UnitsOf(*lpFileTime2);
  return a < b ? -1 : a > b;
}

BOOL FileTimeToSystemTime(const FILETIME* lpFileTime, LPSYSTEMTIME lpSystemTime) {
  if (!lpFileTime || !lpSystemTime || UnitsOf(*lpFileTime) >> 63) return Refused();
  const uint64_t milliseconds = UnitsOf(*lpFileTime) / kUnitsPerMillisecond;
  SetDate(static_cast<uint32_t>(milliseconds / kMillisecondsPerDay), *lpSystemTime);
  const uint32_t ofDay = static_cast<uint32_t>(milliseconds % kMillisecondsPerDay);
  lpSystemTime->wHour = static_cast<WORD>(ofDay / 3600000);
  lpSystemTime->wMinute = static_cast<WORD>(ofDay / 60000 % 60);
  lpSystemTime->wSecond = static_cast<WORD>(ofDay / 1000 % 60);
  lpSystemTime->wMilliseconds = static_cast<WORD>(ofDay % 1000);
  return TRUE;
}

BOOL SystemTimeToFileTime(const SYSTEMTIME* lpSystemTime, LPFILETIME lpFileTime) {
  if (!lpSystemTime || !lpFileTime || !IsReal(*lpSystemTime)) return Refused();
  const SYSTEMTIME& parts = *lpSystemTime;
  const uint32_t ofDay =
      ((parts.wHour * 60u + parts.wMinute) * 60u + parts.wSecond) * 1000u + parts.wMilliseconds;
  const uint64_t milliseconds =
      DayNumber(parts.wYear, parts.wMonth, parts.wDay) * kMillisecondsPerDay + ofDay;
  *lpFileTime = FileTimeOf(milliseconds * kUnitsPerMillisecond);
  return TRUE;
}

void GetSystemTimeAsFileTime(LPFILETIME lpSystemTimeAsFileTime) {
  *lpSystemTimeAsFileTime = FileTimeOf(UnitsNow());
}

void GetSystemTime(LPSYSTEMTIME lpSystemTime) {
  const FILETIME now = FileTimeOf(UnitsNow());
  FileTimeToSystemTime(&now, lpSystemTime);
}

}  // extern "C"
