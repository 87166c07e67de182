// The times of generated types in full syntax, as parts: fractions, and zones with offsets.
#ifndef CERTKERN_ASN1RT_TIME_PARTS_H
#define CERTKERN_ASN1RT_TIME_PARTS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/limits.h"

namespace certkern {

enum class TimeZone { Unstated, Utc, Offset };

struct TimeParts {
  int year = 1970;
  int month = 1;
  int day = 1;
  int hour = 0;
  int minute = 0;
  int second = 0;
  std::array<char, kMaxAsn1FractionDigits> digits{};  // of the fraction of a second
  size_t digitCount = 0;
  TimeZone zone = TimeZone::Utc;
  int offsetMinutes = 0;  // east of Greenwich; the other parts are local to it

  std::string_view fraction() const { return {digits.data(), digitCount}; }
  bool setFraction(std::string_view text);  // at most that many digits
  int milliseconds() const;
};

// Two digits of a year mean one from 1950 to 2049.
int YearOfTwoDigits(int digits);
inline constexpr int kFirstUtcYear = 1950;
inline constexpr int kLastUtcYear = 2049;

// A day that the calendar has, and parts in their ranges.
bool IsTime(const TimeParts& parts);

// YYYYMMDDHH[MM[SS]][(.|,)digits][Z|(+|-)HH[MM]]
bool ParseGeneralizedTime(std::string_view text, TimeParts& parts);
// YYMMDDHHMM[SS][Z|(+|-)HHMM]
bool ParseUtcTime(std::string_view text, TimeParts& parts);
// Long enough for either text.
inline constexpr size_t kMaxTimeText = 14 + 1 + kMaxAsn1FractionDigits + 5 + 1;
// What was put into the room.
std::string_view PrintGeneralizedTime(const TimeParts& parts, std::span<char, kMaxTimeText> room);
std::string_view PrintUtcTime(const TimeParts& parts, std::span<char, kMaxTimeText> room);

// Seconds since 1970, fractions cut. A time without a zone is taken as UTC.
int64_t ToCalendarTime(const TimeParts& parts);
// In UTC. False: before the year 0 or behind 9999.
bool FromCalendarTime(int64_t seconds, TimeParts& parts);

}  // namespace certkern

#endif
