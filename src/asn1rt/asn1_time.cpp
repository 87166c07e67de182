#include "asn1rt/asn1_time.h"

#include <cstdio>

namespace certkern {

ASN1CTime::~ASN1CTime() = default;
ASN1CGeneralizedTime::~ASN1CGeneralizedTime() = default;
ASN1CUTCTime::~ASN1CUTCTime() = default;

// Each time, because the value is the caller's to change.
int ASN1CTime::load() {
  if (text().numocts && !text().data) return context().fail(ASN1_E_BAD_VALUE);
  return Parse(GetText(), parts_) ? ASN1_OK : context().fail(ASN1_E_BAD_VALUE);
}

int ASN1CTime::store(const TimeParts& parts) {
  if (!IsTime(parts) || !CanHold(parts)) return context().fail(ASN1_E_BAD_VALUE);
  char room[kMaxTimeText];
  return SetText(Print(parts, room));
}

int ASN1CTime::part(int TimeParts::*field) {
  const int status = load();
  return status < 0 ? status : parts_.*field;
}

int ASN1CTime::change(TimeParts& parts) {
  parts = {};
  if (text().numocts == 0) return ASN1_OK;
  const int status = load();
  parts = parts_;
  return status;
}

int ASN1CTime::setPart(int TimeParts::*field, int value) {
  TimeParts parts;
  if (const int status = change(parts); status < 0) return status;
  parts.*field = value;
  return store(parts);
}

// --- getters ---

int ASN1CTime::GetCentury() {
  const int year = GetYear();
  return year < 0 ? year : year / 100;
}
int ASN1CTime::GetYear() { return part(&TimeParts::year); }
int ASN1CTime::GetMonth() { return part(&TimeParts::month); }
int ASN1CTime::GetDay() { return part(&TimeParts::day); }
int ASN1CTime::GetHour() { return part(&TimeParts::hour); }
int ASN1CTime::GetMinute() { return part(&TimeParts::minute); }
int ASN1CTime::GetSecond() { return part(&TimeParts::second); }

int ASN1CTime::GetMilliseconds() {
  const int status = load();
  return status < 0 ? status : parts_.milliseconds();
}

int ASN1CTime::GetFractionLength() {
  const int status = load();
  return status < 0 ? status : static_cast<int>(parts_.digitCount);
}

int ASN1CTime::GetFraction(std::string_view& digits) {
  const int status = load();
  if (status >= 0) digits = parts_.fraction();
  return status;
}

int ASN1CTime::IsUtc() {
  const int status = load();
  return status < 0 ? status : parts_.zone == TimeZone::Utc;
}

int ASN1CTime::GetZoneHours(int& hours) {
  const int status = load();
  if (status >= 0) hours = parts_.offsetMinutes / 60;
  return status;
}

int ASN1CTime::GetZoneMinutes(int& minutes) {
  const int status = load();
  if (status >= 0) minutes = parts_.offsetMinutes % 60;
  return status;
}

int ASN1CTime::GetZone(int& minutes) {
  const int status = load();
  if (status >= 0) minutes = parts_.offsetMinutes;
  return status;
}

int ASN1CTime::GetTime(int64_t& seconds) {
  const int status = load();
  if (status >= 0) seconds = ToCalendarTime(parts_);
  return status;
}

std::string_view ASN1CTime::GetText() const { return text().text(); }

// --- setters ---

int ASN1CTime::SetYear(int year) { return setPart(&TimeParts::year, year); }
int ASN1CTime::SetMonth(int month) { return setPart(&TimeParts::month, month); }
int ASN1CTime::SetDay(int day) { return setPart(&TimeParts::day, day); }
int ASN1CTime::SetHour(int hour) { return setPart(&TimeParts::hour, hour); }
int ASN1CTime::SetMinute(int minute) { return setPart(&TimeParts::minute, minute); }
int ASN1CTime::SetSecond(int second) { return setPart(&TimeParts::second, second); }

int ASN1CTime::SetMilliseconds(int milliseconds) {
  if (milliseconds < 0 || milliseconds > 999) return context().fail(ASN1_E_BAD_VALUE);
  char digits[4];
  std::snprintf(digits, sizeof digits, "%.3d", milliseconds);
  std::string_view fraction(digits, 3);
  while (!fraction.empty() && fraction.back() == '0') fraction.remove_suffix(1);  // as DER has it
  return SetFraction(fraction);
}

int ASN1CTime::SetFraction(std::string_view digits) {
  TimeParts parts;
  if (const int status = change(parts); status < 0) return status;
  return parts.setFraction(digits) ? store(parts) : context().fail(ASN1_E_BAD_VALUE);
}

int ASN1CTime::SetUtc(bool utc) {
  TimeParts parts;
  if (const int status = change(parts); status < 0) return status;
  parts.zone = utc ? TimeZone::Utc : TimeZone::Unstated;
  parts.offsetMinutes = 0;
  return store(parts);
}

int ASN1CTime::SetZone(int minutes) {
  TimeParts parts;
  if (const int status = change(parts); status < 0) return status;
  parts.zone = TimeZone::Offset;
  parts.offsetMinutes = minutes;
  return store(parts);
}

int ASN1CTime::SetDate(int year, int month, int day) {
  TimeParts parts;
  if (const int status = change(parts); status < 0) return status;
  parts.year = year;
  parts.month = month;
  parts.day = day;
  return store(parts);
}

int ASN1CTime::SetTimeOfDay(int hour, int minute, int second) {
  TimeParts parts;
  if (const int status = change(parts); status < 0) return status;
  parts.hour = hour;
  parts.minute = minute;
  parts.second = second;
  return store(parts);
}

int ASN1CTime::SetTime(int64_t seconds) {
  TimeParts parts;
  return FromCalendarTime(seconds, parts) ? store(parts) : context().fail(ASN1_E_BAD_VALUE);
}

int ASN1CTime::SetText(std::string_view text) {
  TimeParts parts;
  if (!Parse(text, parts)) return context().fail(ASN1_E_BAD_VALUE);
  const auto* const bytes = reinterpret_cast<const uint8_t*>(text.data());
  const uint8_t* const copy = context().copy({bytes, text.size()});
  if (!copy) return ASN1_E_NO_MEMORY;
  this->text() = {static_cast<uint32_t>(text.size()), reinterpret_cast<const char*>(copy)};
  return ASN1_OK;
}

void ASN1CTime::Clear() { text() = {}; }

int ASN1CTime::Compare(ASN1CTime& other, int& order) {
  int64_t mine = 0, theirs = 0;
  if (const int status = GetTime(mine); status < 0) return status;
  if (const int status = other.GetTime(theirs); status < 0) return status;
  // digits of both from the first on: a shorter fraction is continued by zeros
  order = mine < theirs ? -1 : mine > theirs;
  for (size_t i = 0; order == 0 && i < kMaxAsn1FractionDigits; ++i) {
    const char a = i < parts_.digitCount ? parts_.digits[i] : '0';
    const char b = i < other.parts_.digitCount ? other.parts_.digits[i] : '0';
    order = a < b ? -1 : a > b;
  }
  return ASN1_OK;
}

// --- the two kinds ---

bool ASN1CGeneralizedTime::Parse(std::string_view text, TimeParts& parts) const {
  return ParseGeneralizedTime(text, parts);
}
std::string_view ASN1CGeneralizedTime::Print(const TimeParts& parts,
                                             std::span<char, kMaxTimeText> room) const {
  return PrintGeneralizedTime(parts, room);
}
bool ASN1CGeneralizedTime::CanHold(const TimeParts&) const { return true; }

int ASN1CUTCTime::SetYear(int year) {
  return ASN1CTime::SetYear(year >= 0 && year < 100 ? YearOfTwoDigits(year) : year);
}
bool ASN1CUTCTime::Parse(std::string_view text, TimeParts& parts) const { return ParseUtcTime(text, parts); }
std::string_view ASN1CUTCTime::Print(const TimeParts& parts, std::span<char, kMaxTimeText> room) const {
  return PrintUtcTime(parts, room);
}
bool ASN1CUTCTime::CanHold(const TimeParts& parts) const {
  return parts.year >= kFirstUtcYear && parts.year <= kLastUtcYear && parts.digitCount == 0;
}

}  // namespace certkern
