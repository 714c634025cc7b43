#include "yinet/host/ydatetime.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "yinet/host/text.h"

namespace {

namespace chrono = std::chrono;

constexpr int kFirstYear = 1;
constexpr int kLastYear = 9999;
constexpr std::int64_t kMillisecondsPerSecond = 1000;
constexpr std::int64_t kMillisecondsPerMinute = 60 * kMillisecondsPerSecond;
constexpr std::int64_t kSecondsPerDay = std::int64_t{24} * 60 * 60;
constexpr std::int64_t kMillisecondsPerDay = kSecondsPerDay * kMillisecondsPerSecond;

// Days since 1970-01-01 of the day that date numbers count from, 1899-12-30, and of the ends of the calendar.
constexpr std::int64_t days_of(int year, unsigned month, unsigned day) {
  return chrono::sys_days(chrono::year(year) / static_cast<int>(month) / static_cast<int>(day))
      .time_since_epoch()
      .count();
}
constexpr std::int64_t kDateNumberZero = days_of(1899, 12, 30);
constexpr std::int64_t kFirstMillisecond = days_of(kFirstYear, 1, 1) * kMillisecondsPerDay;
constexpr std::int64_t kLastMillisecond = (days_of(kLastYear, 12, 31) + 1) * kMillisecondsPerDay - 1;

constexpr std::int64_t floor_div(std::int64_t value, std::int64_t divisor) {
  return value / divisor - (value % divisor < 0 ? 1 : 0);
}

chrono::sys_days days_of(const YDate& date) { return chrono::year(date.Year()) / date.Month() / date.Day(); }

bool set_days(YDate& date, std::int64_t days) {
  if (days < kFirstMillisecond / kMillisecondsPerDay || days > kLastMillisecond / kMillisecondsPerDay) {
    date = {};
    return false;
  }
  const chrono::year_month_day day{chrono::sys_days(chrono::days(days))};
  return date.Set(static_cast<int>(day.year()), static_cast<int>(static_cast<unsigned>(day.month())),
                  static_cast<int>(static_cast<unsigned>(day.day())));
}

// Seconds that the clocks of the machine's zone are ahead of UTC at an instant.
std::int64_t zone_offset(std::int64_t epoch_seconds) {
  const std::time_t instant = epoch_seconds;
  std::tm local{};
  return localtime_r(&instant, &local) != nullptr ? local.tm_gmtoff : 0;
}

// The instant, in milliseconds, when the zone's clocks show these milliseconds since 1970-01-01T00:00 local. Where they
// show it twice, the earlier; where they skip it, as if they had not been moved yet.
std::int64_t instant_of_local(std::int64_t local_milliseconds) {
  const std::int64_t local = floor_div(local_milliseconds, kMillisecondsPerSecond);
  // No zone is a whole day off, so these two surround a change of offset, whichever it was.
  const std::int64_t before = zone_offset(local - kSecondsPerDay);
  const std::int64_t after = zone_offset(local + kSecondsPerDay);
  std::int64_t offset = before;
  if (zone_offset(local - before) != before && zone_offset(local - after) == after) offset = after;
  return local_milliseconds - offset * kMillisecondsPerSecond;
}

std::int64_t local_of_instant(std::int64_t instant) {
  return instant + zone_offset(floor_div(instant, kMillisecondsPerSecond)) * kMillisecondsPerSecond;
}

YTime time_of_day(std::int64_t milliseconds) {
  const auto of_day =
      static_cast<int>(milliseconds - floor_div(milliseconds, kMillisecondsPerDay) * kMillisecondsPerDay);
  return {of_day / 3'600'000, of_day / 60'000 % 60, of_day / 1000 % 60, of_day % 1000};
}

std::int64_t milliseconds_of(const YTime& time) {
  return ((time.Hour() * 60 + time.Minute()) * 60 + time.Second()) * kMillisecondsPerSecond + time.Millisecond();
}

// Exactly `digits` decimal digits at the front of `text`, which moves behind them; -1, and nothing moves, otherwise.
int take_number(std::string_view& text, std::size_t digits) {
  if (text.size() < digits) return -1;
  int value = 0;
  for (const char c : text.substr(0, digits)) {
    if (!yinet::is_digit(c)) return -1;
    value = value * 10 + (c - '0');
  }
  text.remove_prefix(digits);
  return value;
}

bool take(std::string_view& text, std::string_view choice) {
  if (text.empty() || choice.find(text.front()) == std::string_view::npos) return false;
  text.remove_prefix(1);
  return true;
}

bool take_date(std::string_view& text, YDate& date) {
  const int year = take_number(text, 4);
  if (year < 0 || !take(text, "-")) return false;
  const int month = take_number(text, 2);
  if (month < 0 || !take(text, "-")) return false;
  return date.Set(year, month, take_number(text, 2));
}

// The fraction may have any number of digits; those behind the milliseconds are dropped.
bool take_time(std::string_view& text, YTime& time) {
  const int hour = take_number(text, 2);
  if (hour < 0 || !take(text, ":")) return false;
  const int minute = take_number(text, 2);
  if (minute < 0 || !take(text, ":")) return false;
  const int second = take_number(text, 2);
  if (second < 0) return false;
  int millisecond = 0;
  if (take(text, ".")) {
    if (text.empty() || !yinet::is_digit(text.front())) return false;
    for (int weight = 100; !text.empty() && yinet::is_digit(text.front()); weight /= 10) {
      millisecond += take_number(text, 1) * weight;
    }
  }
  return time.Set(hour, minute, second, millisecond);
}

bool take_offset(std::string_view& text, int& minutes) {
  minutes = 0;
  if (take(text, "Zz")) return true;
  const bool negative = !text.empty() && text.front() == '-';
  if (!take(text, "+-")) return false;
  const int hours = take_number(text, 2);
  if (hours < 0 || hours > 23 || !take(text, ":")) return false;
  const int rest = take_number(text, 2);
  if (rest < 0 || rest > 59) return false;
  minutes = (negative ? -1 : 1) * (hours * 60 + rest);
  return true;
}

}  // namespace

bool YDate::Set(int year, int month, int day) {
  year_ = month_ = day_ = 0;
  if (year < kFirstYear || year > kLastYear || month < 1 || month > 12 || day < 1 || day > 31) return false;
  if (!(chrono::year(year) / month / day).ok()) return false;
  year_ = year;
  month_ = month;
  day_ = day;
  return true;
}

int YDate::Weekday() const {
  if (!IsSet()) return -1;
  return static_cast<int>(chrono::weekday(days_of(*this)).iso_encoding()) - 1;
}

void YDate::AddDays(int days) {
  if (IsSet()) set_days(*this, static_cast<std::int64_t>(days_of(*this).time_since_epoch().count()) + days);
}

bool YTime::Set(int hour, int minute, int second, int millisecond) {
  hour_ = minute_ = second_ = millisecond_ = 0;
  const auto in_range = [](int value, int limit) { return value >= 0 && value < limit; };
  if (!in_range(hour, 24) || !in_range(minute, 60) || !in_range(second, 60) || !in_range(millisecond, 1000))
    return false;
  hour_ = hour;
  minute_ = minute;
  second_ = second;
  millisecond_ = millisecond;
  return true;
}

YString YTime::toString(int format) const {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%03d", hour_, minute_, second_, millisecond_);
  constexpr int kMinutes = 5;
  constexpr int kSeconds = 8;
  constexpr int kMilliseconds = 12;
  return {text.data(), format == 1 ? kMinutes : format == 3 ? kMilliseconds : kSeconds};
}

void YDateAndTime::Set(double value) {
  if (value == kNow) {
    const auto now = chrono::system_clock::now().time_since_epoch();
    return SetEpochMilliseconds(chrono::duration_cast<chrono::milliseconds>(now).count());
  }
  Clear();
  constexpr double kBeyondTheCalendar = 4e6;  // days, either way
  if (!std::isfinite(value) || std::abs(value) > kBeyondTheCalendar) return;
  // Before the first day the whole number goes down while the fraction still counts forward from midnight.
  const double day = std::trunc(value);
  const std::int64_t of_day = std::llround(std::abs(value - day) * static_cast<double>(kMillisecondsPerDay));
  const std::int64_t local = (kDateNumberZero + static_cast<std::int64_t>(day)) * kMillisecondsPerDay + of_day;
  if (local >= kFirstMillisecond && local <= kLastMillisecond) SetEpochMilliseconds(instant_of_local(local));
}

void YDateAndTime::Set(const YDate& date, const YTime& time) {
  Clear();
  if (!date.IsSet()) return;
  const std::int64_t days = days_of(date).time_since_epoch().count();
  SetEpochMilliseconds(instant_of_local(days * kMillisecondsPerDay + milliseconds_of(time)));
}

void YDateAndTime::SetEpochMilliseconds(std::int64_t milliseconds) {
  Clear();
  // A day of margin on either side: it is the local date that has to stay in the calendar.
  if (milliseconds < kFirstMillisecond - kMillisecondsPerDay || milliseconds > kLastMillisecond + kMillisecondsPerDay) {
    return;
  }
  const std::int64_t local = local_of_instant(milliseconds);
  if (local >= kFirstMillisecond && local <= kLastMillisecond) instant_ = milliseconds;
}

YDate YDateAndTime::Date() const {
  YDate date;
  if (instant_) set_days(date, floor_div(local_of_instant(*instant_), kMillisecondsPerDay));
  return date;
}

YTime YDateAndTime::Time() const { return instant_ ? time_of_day(local_of_instant(*instant_)) : YTime(); }

int YDateAndTime::UtcOffsetMinutes() const {
  if (!instant_) return 0;
  return static_cast<int>(zone_offset(floor_div(*instant_, kMillisecondsPerSecond)) / 60);
}

YString YDateAndTime::toIso() const {
  if (!instant_) return {};
  // Local mean time of the 19th century is off by seconds as well. The text can't say so, so its time of day is that of
  // the offset it names: it always stands for this very instant.
  const int offset = UtcOffsetMinutes();
  const std::int64_t local =
      std::clamp(*instant_ + offset * kMillisecondsPerMinute, kFirstMillisecond, kLastMillisecond);
  YDate date;
  set_days(date, floor_div(local, kMillisecondsPerDay));
  const YTime time = time_of_day(local);
  const int distance = offset < 0 ? -offset : offset;
  std::array<char, 64> text{};
  const int length = std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%s%c%02d:%02d", date.Year(), date.Month(),
                                   date.Day(), time.toString(time.Millisecond() != 0 ? 3 : 2).Ptr(),
                                   offset < 0 ? '-' : '+', distance / 60, distance % 60);
  return {text.data(), length};
}

bool YDateAndTime::SetIso(std::string_view text) {
  YDate date;
  YTime time;
  if (!take_date(text, date) || !take(text, "Tt") || !take_time(text, time)) return false;
  YDateAndTime read;
  if (text.empty()) {
    read.Set(date, time);
  } else {
    int offset = 0;
    if (!take_offset(text, offset) || !text.empty()) return false;
    const std::int64_t days = days_of(date).time_since_epoch().count();
    read.SetEpochMilliseconds(days * kMillisecondsPerDay + milliseconds_of(time) - offset * kMillisecondsPerMinute);
  }
  if (!read.IsSet()) return false;
  *this = read;
  return true;
}
