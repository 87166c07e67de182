#include "ber/time_text.h"

namespace certkern {
namespace {

constexpr int kFirstUtcYear = 1950;
constexpr int kLastUtcYear = 2049;
constexpr size_t kUtcTimeSize = 13;
constexpr size_t kGeneralizedTimeSize = 15;

bool IsUtcTimeSize(size_t size) { return size == kUtcTimeSize || size == kUtcTimeSize - 2; }

// A decimal number at a place. Characters that are no digits give a number without meaning, never a fault.
[[gnu::always_inline]] inline int Number(std::string_view text, size_t position, size_t digits) {
  int number = 0;
  for (size_t i = 0; i < digits; ++i)
    number = number * 10 + (static_cast<unsigned char>(text[position + i]) - '0');
  return number;
}

// Month, day, hour, minute, in two digits each.
[[gnu::always_inline]] inline void ReadDate(std::string_view text, size_t position, SYSTEMTIME& parts) {
  parts.wMonth = static_cast<WORD>(Number(text, position, 2));
  parts.wDay = static_cast<WORD>(Number(text, position + 2, 2));
  parts.wHour = static_cast<WORD>(Number(text, position + 4, 2));
  parts.wMinute = static_cast<WORD>(Number(text, position + 6, 2));
}

// An impossible date gives the zero time, and leaves no code.
bool ToFileTime(const SYSTEMTIME& parts, FILETIME& time) {
  // a date that is surely real needs no last error to go back to: a long list has one an entry
  const bool surelyReal = parts.wYear > 1601 && parts.wYear <= 9999 && parts.wMonth - 1u < 12
      && parts.wDay - 1u < 28 && parts.wHour < 24 && parts.wMinute < 60 && parts.wSecond < 60
      && parts.wMilliseconds < 1000;
  const DWORD before = surelyReal ? ERROR_SUCCESS : GetLastError();
  if (SystemTimeToFileTime(&parts, &time)) return true;
  SetLastError(before);
  time = {};
  return false;
}

void PutNumber(BYTE* place, int number, int digits) {
  for (int i = digits; i-- > 0; number /= 10) place[i] = static_cast<BYTE>('0' + number % 10);
}

bool EncodeParts(BYTE tag, const SYSTEMTIME& parts, BerWriteCursor& out) {
  const size_t size = tag == kTagUtcTime ? kUtcTimeSize : kGeneralizedTimeSize;
  BYTE* place;
  if (!BerBeginElement(tag, size, out, place)) return false;
  if (!place) return true;
  const int yearDigits = tag == kTagUtcTime ? 2 : 4;
  PutNumber(place, parts.wYear, yearDigits);
  place += yearDigits;
  for (const WORD part : {parts.wMonth, parts.wDay, parts.wHour, parts.wMinute, parts.wSecond}) {
    PutNumber(place, part, 2);
    place += 2;
  }
  *place = 'Z';
  return true;
}

bool IsUtcYear(const SYSTEMTIME& parts) {
  return parts.wYear >= kFirstUtcYear && parts.wYear <= kLastUtcYear;
}

}  // namespace

bool BerParseUtcTime(std::string_view text, FILETIME& time) {
  time = {};
  if (!IsUtcTimeSize(text.size())) return false;
  SYSTEMTIME parts{};
  int year = 1900 + Number(text, 0, 2);
  if (year < kFirstUtcYear) year += 100;
  parts.wYear = static_cast<WORD>(year);
  ReadDate(text, 2, parts);
  if (text.size() == 13) parts.wSecond = static_cast<WORD>(Number(text, 10, 2));
  static_cast<void>(ToFileTime(parts, time));  // an impossible date is no fault here; it reads as "none"
  return true;
}

bool BerParseGeneralizedTime(std::string_view text, FILETIME& time) {
  time = {};
  const size_t size = text.size();
  if (size != 13 && size != 15 && (size < 17 || size > 19)) return false;
  SYSTEMTIME parts{};
  parts.wYear = static_cast<WORD>(Number(text, 0, 4));
  ReadDate(text, 4, parts);
  if (size >= 15) parts.wSecond = static_cast<WORD>(Number(text, 12, 2));
  if (size >= 17) {
    static constexpr int kScale[] = {100, 10, 1};
    const size_t digits = size - 16;
    parts.wMilliseconds = static_cast<WORD>(Number(text, 15, digits) * kScale[digits - 1]);
  }
  return ToFileTime(parts, time);
}

bool BerDecodeTime(BerReadCursor& in, FILETIME& time, const BerDecodeArena& arena) {
  if (!BerNextIsTime(in)) return false;
  BYTE tag;
  BerReadCursor content;
  if (!in.readElement(tag, content)) return false;
  const std::string_view text(reinterpret_cast<const char*>(content.data()), content.size());
  if (tag == kTagGeneralizedTime) return BerParseGeneralizedTime(text, time);
  return arena.sizing() ? IsUtcTimeSize(text.size()) : BerParseUtcTime(text, time);
}

bool BerEncodeUtcTime(const FILETIME& time, BerWriteCursor& out) {
  SYSTEMTIME parts;
  return FileTimeToSystemTime(&time, &parts) && IsUtcYear(parts) && EncodeParts(kTagUtcTime, parts, out);
}

bool BerEncodeGeneralizedTime(const FILETIME& time, BerWriteCursor& out) {
  SYSTEMTIME parts;
  // four digits hold no later year
  return FileTimeToSystemTime(&time, &parts) && parts.wYear <= 9999
      && EncodeParts(kTagGeneralizedTime, parts, out);
}

bool BerEncodeTime(const FILETIME& time, BerWriteCursor& out) {
  SYSTEMTIME parts;
  if (IsZero(time) || !FileTimeToSystemTime(&time, &parts)) return false;
  return IsUtcYear(parts) ? EncodeParts(kTagUtcTime, parts, out) : BerEncodeGeneralizedTime(time, out);
}

}  // namespace certkern
