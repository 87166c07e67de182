// A time value by its parts. The value is the text; getters read it, setters write it anew into the context's heap, and
// leave it alone when the outcome would be no time. Getters answer the part or a status below 0, setters a status.
#ifndef CERTKERN_ASN1RT_ASN1_TIME_H
#define CERTKERN_ASN1RT_ASN1_TIME_H

#include <string_view>

#include "asn1rt/control.h"
#include "asn1rt/time_parts.h"

namespace certkern {

// The order of the operations is part of the interface.
class ASN1CTime : public ASN1CType {
 public:
  ASN1CTime(ASN1MessageBufferIF& buffer, ASN1Text& value) : ASN1CType(buffer, &value) {}
  ~ASN1CTime() override;

  virtual int GetCentury();
  virtual int GetYear();  // with its century
  virtual int GetMonth();
  virtual int GetDay();
  virtual int GetHour();
  virtual int GetMinute();
  virtual int GetSecond();
  virtual int GetMilliseconds();
  virtual int GetFractionLength();                    // in digits
  virtual int GetFraction(std::string_view& digits);  // as written, until the next call
  virtual int IsUtc();                                // 1: "Z"
  virtual int GetZoneHours(int& hours);
  virtual int GetZoneMinutes(int& minutes);  // those beside the hours, of the same sign
  virtual int GetZone(int& minutes);         // all of it, east of Greenwich
  virtual int GetTime(int64_t& seconds);     // since 1970
  virtual std::string_view GetText() const;
  virtual int SetYear(int year);
  virtual int SetMonth(int month);
  virtual int SetDay(int day);
  virtual int SetHour(int hour);
  virtual int SetMinute(int minute);
  virtual int SetSecond(int second);
  virtual int SetMilliseconds(int milliseconds);
  virtual int SetFraction(std::string_view digits);
  virtual int SetUtc(bool utc);  // false: no zone is stated
  virtual int SetZone(int minutes);
  virtual int SetDate(int year, int month, int day);
  virtual int SetTimeOfDay(int hour, int minute, int second);
  virtual int SetTime(int64_t seconds);  // in UTC
  virtual int SetText(std::string_view text);
  virtual void Clear();
  virtual int Compare(ASN1CTime& other, int& order);  // by the moment: -1, 0, 1
  virtual bool Parse(std::string_view text, TimeParts& parts) const = 0;
  virtual std::string_view Print(const TimeParts& parts, std::span<char, kMaxTimeText> room) const = 0;
  // Whether the kind of time can hold the parts.
  virtual bool CanHold(const TimeParts& parts) const = 0;

 private:
  ASN1Text& text() const { return *static_cast<ASN1Text*>(GetValue()); }
  int load();
  int store(const TimeParts& parts);
  int part(int TimeParts::*field);
  // What the next setter starts from: an empty value is the first moment of 1970.
  int change(TimeParts& parts);
  int setPart(int TimeParts::*field, int value);

  TimeParts parts_;
};

class ASN1CGeneralizedTime : public ASN1CTime {
 public:
  using ASN1CTime::ASN1CTime;
  ~ASN1CGeneralizedTime() override;
  bool Parse(std::string_view text, TimeParts& parts) const override;
  std::string_view Print(const TimeParts& parts, std::span<char, kMaxTimeText> room) const override;
  bool CanHold(const TimeParts& parts) const override;
};

class ASN1CUTCTime : public ASN1CTime {
 public:
  using ASN1CTime::ASN1CTime;
  ~ASN1CUTCTime() override;
  int SetYear(int year) override;  // two digits, too
  bool Parse(std::string_view text, TimeParts& parts) const override;
  std::string_view Print(const TimeParts& parts, std::span<char, kMaxTimeText> room) const override;
  bool CanHold(const TimeParts& parts) const override;
};

}  // namespace certkern

#endif
