#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "yinet/host/export.h"
#include "yinet/host/ystring.h"

// Calendar date of the Gregorian calendar, without a zone. Not set until a valid date was given.
class YINET_API YDate {
 public:
  YDate() = default;
  YDate(int year, int month, int day) { Set(year, month, day); }
  bool Set(int year, int month, int day);  // false, and not set, for a date that does not exist
  [[nodiscard]] bool IsSet() const { return month_ != 0; }
  [[nodiscard]] int Year() const { return year_; }
  [[nodiscard]] int Month() const { return month_; }  // 1 to 12
  [[nodiscard]] int Day() const { return day_; }      // 1 to 31
  [[nodiscard]] int Weekday() const;                  // Monday 0 to Sunday 6; -1 when not set
  void AddDays(int days);                             // a date outside the years 1 to 9999 unsets
  friend bool operator==(const YDate&, const YDate&) = default;
  friend auto operator<=>(const YDate&, const YDate&) = default;

 private:
  int year_ = 0;
  int month_ = 0;
  int day_ = 0;
};

// Time of day with milliseconds.
class YINET_API YTime {
 public:
  YTime() = default;
  YTime(int hour, int minute, int second, int millisecond = 0) { Set(hour, minute, second, millisecond); }
  bool Set(int hour, int minute, int second, int millisecond = 0);  // false, and midnight, for no time of the day
  [[nodiscard]] int Hour() const { return hour_; }
  [[nodiscard]] int Minute() const { return minute_; }
  [[nodiscard]] int Second() const { return second_; }
  [[nodiscard]] int Millisecond() const { return millisecond_; }
  // Format 1 is HH:MM, 2 is HH:MM:SS, 3 is HH:MM:SS.mmm; any other gives format 2.
  [[nodiscard]] YString toString(int format = 2) const;
  friend bool operator==(const YTime&, const YTime&) = default;
  friend auto operator<=>(const YTime&, const YTime&) = default;

 private:
  int hour_ = 0;
  int minute_ = 0;
  int second_ = 0;
  int millisecond_ = 0;
};

// An instant, shown as date and time of the machine's zone. Not set until given a value.
class YINET_API YDateAndTime {
 public:
  // The number that stands for "now" in Set.
  static constexpr double kNow = 99.9999999;

  YDateAndTime() = default;
  // kNow sets the current local date and time. Any other number counts days since 30 December 1899, local time, the
  // fraction being the time of day, in negative numbers too (-1.25 is 06:00 of 29 December); a number that is not
  // finite or out of the years 1 to 9999 unsets.
  void Set(double value);
  // Local: the earlier instant where the clock is set back; a time that it skips counts as if it had not been moved
  // yet. A date that is not set unsets.
  void Set(const YDate& date, const YTime& time);
  // Unsets when the local date lies outside the years 1 to 9999.
  void SetEpochMilliseconds(std::int64_t milliseconds);
  void Clear() { instant_.reset(); }
  [[nodiscard]] bool IsSet() const { return instant_.has_value(); }
  [[nodiscard]] std::int64_t EpochMilliseconds() const { return instant_.value_or(0); }
  [[nodiscard]] YDate Date() const;
  [[nodiscard]] YTime Time() const;
  [[nodiscard]] int UtcOffsetMinutes() const;  // of the machine's zone at this instant

  // "2026-11-21T10:00:00+01:00", with ".mmm" when there are milliseconds; empty when not set.
  [[nodiscard]] YString toIso() const;
  // Reads what toIso writes, "Z" and fractions of any length as well (digits behind the third are dropped); a text
  // without zone is local time. False, and unchanged, otherwise.
  bool SetIso(std::string_view text);

  friend bool operator==(const YDateAndTime&, const YDateAndTime&) = default;
  friend auto operator<=>(const YDateAndTime&, const YDateAndTime&) = default;

 private:
  std::optional<std::int64_t> instant_;  // milliseconds since 1970-01-01T00:00:00Z
};
