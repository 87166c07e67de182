#include "asn1rt/time_parts.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace certkern {
namespace {

constexpr int kSecondsOfDay = 86400;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Reads what the grammar wants next, or stays.
class TimeReader {
 public:
  explicit TimeReader(std::string_view text) : rest_(text) {}
  bool atEnd() const { return rest_.empty(); }
  bool atDigit() const { return !rest_.empty() && IsDigit(rest_.front()); }
  bool number(size_t digits, int& value) {
    if (rest_.size() < digits || !std::all_of(rest_.begin(), rest_.begin() + digits, IsDigit)) return false;
    value = 0;
    for (const char c : rest_.substr(0, digits)) value = value * 10 + (c - '0');
    rest_.remove_prefix(digits);
    return true;
  }
  bool oneOf(std::string_view set, char& which) {
    if (rest_.empty() || set.find(rest_.front()) == set.npos) return false;
    which = rest_.front();
    rest_.remove_prefix(1);
    return true;
  }
  std::string_view digits() {
    const auto end = std::find_if_not(rest_.begin(), rest_.end(), IsDigit);
    const std::string_view run = rest_.substr(0, static_cast<size_t>(end - rest_.begin()));
    rest_.remove_prefix(run.size());
    return run;
  }

 private:
  std::string_view rest_;
};

enum class OffsetMinutes { Required, Optional };

// The zone is the last of every time.
bool ReadZone(TimeReader& in, OffsetMinutes minutes, TimeParts& parts) {
  char mark = 0;
  parts.zone = TimeZone::Unstated;
  parts.offsetMinutes = 0;
  if (!in.oneOf("Z+-", mark)) return in.atEnd();
  parts.zone = TimeZone::Utc;
  if (mark == 'Z') return in.atEnd();
  int hour = 0, minute = 0;
  if (!in.number(2, hour)) return false;
  if ((minutes == OffsetMinutes::Required || !in.atEnd()) && !in.number(2, minute)) return false;
  if (hour > 23 || minute > 59) return false;
  parts.zone = TimeZone::Offset;
  parts.offsetMinutes = (mark == '-' ? -1 : 1) * (hour * 60 + minute);
  return in.atEnd();
}

uint64_t NumberOf(std::string_view digits) {
  uint64_t number = 0;
  for (const char c : digits) number = number * 10 + static_cast<uint64_t>(c - '0');
  return number;
}

uint64_t PowerOfTen(size_t exponent) {
  uint64_t power = 1;
  while (exponent--) power *= 10;
  return power;
}

// A fraction of the hour or the minute, when those are the last parts that are given, becomes minutes and seconds.
bool SpreadFraction(std::string_view digits, unsigned secondsOfUnit, TimeParts& parts) {
  if (digits.empty() || digits.size() > kMaxAsn1FractionDigits) return false;
  const uint64_t scale = PowerOfTen(digits.size());
  const uint64_t scaled = NumberOf(digits) * secondsOfUnit;
  const auto seconds = static_cast<int>(scaled / scale);
  parts.minute += seconds / 60;
  parts.second += seconds % 60;
  char rest[kMaxAsn1FractionDigits + 1];
  for (size_t i = digits.size(), value = scaled % scale; i-- > 0; value /= 10)
    rest[i] = static_cast<char>('0' + value % 10);
  std::string_view fraction(rest, digits.size());
  if (secondsOfUnit > 1) {  // as many digits as it takes
    while (!fraction.empty() && fraction.back() == '0') fraction.remove_suffix(1);
  }
  return parts.setFraction(fraction);
}

std::string_view PrintZone(const TimeParts& parts, std::span<char> room) {
  int length = 0;
  if (parts.zone == TimeZone::Utc) length = std::snprintf(room.data(), room.size(), "Z");
  if (parts.zone == TimeZone::Offset) {
    const int minutes = std::abs(parts.offsetMinutes) % (24 * 60);
    length = std::snprintf(room.data(), room.size(), "%c%02d%02d", parts.offsetMinutes < 0 ? '-' : '+',
                           minutes / 60, minutes % 60);
  }
  return {room.data(), static_cast<size_t>(length)};
}

}  // namespace

bool TimeParts::setFraction(std::string_view text) {
  if (text.size() > digits.size() || !std::ranges::all_of(text, IsDigit)) return false;
  std::ranges::copy(text, digits.begin());
  digitCount = text.size();
  return true;
}

int TimeParts::milliseconds() const {
  int value = 0;
  for (size_t i = 0; i < 3; ++i) value = value * 10 + (i < digitCount ? digits[i] - '0' : 0);
  return value;
}

int YearOfTwoDigits(int digits) {
  const int year = 1900 + digits;
  return year < kFirstUtcYear ? year + 100 : year;
}

bool IsTime(const TimeParts& parts) {
  using std::chrono::day, std::chrono::month, std::chrono::year;
  const auto within = [](int value, int last) { return value >= 0 && value <= last; };
  if (!within(parts.year, 9999) || !within(parts.month, 12) || !within(parts.day, 31)) return false;
  const bool isDay = std::chrono::year_month_day(year(parts.year), month(static_cast<unsigned>(parts.month)),
                                                 day(static_cast<unsigned>(parts.day)))
                         .ok();
  return isDay && within(parts.hour, 23) && within(parts.minute, 59) && within(parts.second, 59)
      && parts.offsetMinutes > -24 * 60 && parts.offsetMinutes < 24 * 60;
}

bool ParseGeneralizedTime(std::string_view text, TimeParts& parts) {
  TimeReader in(text);
  TimeParts read;
  if (!in.number(4, read.year) || !in.number(2, read.month) || !in.number(2, read.day)) return false;
  if (!in.number(2, read.hour)) return false;
  unsigned unit = 3600;
  for (int TimeParts::*part : {&TimeParts::minute, &TimeParts::second}) {
    if (!in.atDigit()) break;
    if (!in.number(2, read.*part)) return false;
    unit /= 60;
  }
  char mark = 0;
  if (in.oneOf(".,", mark) && !SpreadFraction(in.digits(), unit, read)) return false;
  if (!ReadZone(in, OffsetMinutes::Optional, read) || !IsTime(read)) return false;
  parts = read;
  return true;
}

bool ParseUtcTime(std::string_view text, TimeParts& parts) {
  TimeReader in(text);
  TimeParts read;
  for (int TimeParts::*part :
       {&TimeParts::year, &TimeParts::month, &TimeParts::day, &TimeParts::hour, &TimeParts::minute}) {
    if (!in.number(2, read.*part)) return false;
  }
  if (in.atDigit() && !in.number(2, read.second)) return false;
  read.year = YearOfTwoDigits(read.year);
  if (!ReadZone(in, OffsetMinutes::Required, read) || !IsTime(read)) return false;
  parts = read;
  return true;
}

std::string_view PrintGeneralizedTime(const TimeParts& parts, std::span<char, kMaxTimeText> room) {
  int length = std::snprintf(room.data(), room.size(), "%.4d%.2d%.2d%.2d%.2d%.2d", parts.year, parts.month,
                             parts.day, parts.hour, parts.minute, parts.second);
  auto at = static_cast<size_t>(length);
  if (parts.digitCount) {
    length = std::snprintf(room.data() + at, room.size() - at, ".%.*s", static_cast<int>(parts.digitCount),
                           parts.digits.data());
    at += static_cast<size_t>(length);
  }
  return {room.data(), at + PrintZone(parts, room.subspan(at)).size()};
}

std::string_view PrintUtcTime(const TimeParts& parts, std::span<char, kMaxTimeText> room) {
  const int length = std::snprintf(room.data(), room.size(), "%.2d%.2d%.2d%.2d%.2d%.2d", parts.year % 100,
                                   parts.month, parts.day, parts.hour, parts.minute, parts.second);
  const auto at = static_cast<size_t>(length);
  return {room.data(), at + PrintZone(parts, room.subspan(at)).size()};
}

int64_t ToCalendarTime(const TimeParts& parts) {
  using std::chrono::day, std::chrono::month, std::chrono::year;
  const std::chrono::sys_days date =
      year(parts.year) / month(static_cast<unsigned>(parts.month)) / day(static_cast<unsigned>(parts.day));
  const int64_t ofDay = (int64_t{parts.hour} * 60 + parts.minute - parts.offsetMinutes) * 60 + parts.second;
  return int64_t{date.time_since_epoch().count()} * kSecondsOfDay + ofDay;
}

bool FromCalendarTime(int64_t seconds, TimeParts& parts) {
  constexpr int64_t kFirst = -62167219200;  // 0000-01-01
  constexpr int64_t kLast = 253402300799;   // 9999-12-31 23:59:59
  if (seconds < kFirst || seconds > kLast) return false;
  const std::chrono::sys_seconds time{std::chrono::seconds(seconds)};
  const auto days = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(days);
  const auto ofDay = static_cast<int>((time - days).count());
  parts = {};
  parts.year = int{date.year()};
  parts.month = static_cast<int>(unsigned{date.month()});
  parts.day = static_cast<int>(unsigned{date.day()});
  parts.hour = ofDay / 3600;
  parts.minute = ofDay / 60 % 60;
  parts.second = ofDay % 60;
  return true;
}

}  // namespace certkern
