#include "yinet/host/ydatetime.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

namespace {

// Puts the process into a zone for one test.
class Zone {
 public:
  explicit Zone(const char* name) {
    setenv("TZ", name, 1);
    tzset();
  }
  Zone(const Zone&) = delete;
  Zone& operator=(const Zone&) = delete;
  ~Zone() {
    unsetenv("TZ");
    tzset();
  }
};

// Rules written out, so that no zone files are needed.
constexpr const char* kBerlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* kNewYork = "EST5EDT,M3.2.0,M11.1.0";
constexpr const char* kUtc = "UTC0";

std::string shown(const YDateAndTime& value) {
  if (!value.IsSet()) return "not set";
  const YDate date = value.Date();
  return std::to_string(date.Year()) + "-" + std::to_string(date.Month()) + "-" + std::to_string(date.Day()) + " " +
         value.Time().toString(3).str();
}

TEST(Date, TakesOnlyDatesOfTheCalendar) {
  for (const auto& [year, month, day] :
       {std::array{2023, 2, 29}, {1900, 2, 29}, {2026, 4, 31}, {2026, 13, 1}, {2026, 257, 1}, {2026, 0, 1}, {2026, 1, 0},
        {2026, 1, 257}, {0, 1, 1}, {10000, 1, 1}, {67562, 1, 1}, {2026, -1, 1}}) {
    YDate date(2024, 2, 29);
    EXPECT_TRUE(date.IsSet());
    EXPECT_FALSE(date.Set(year, month, day)) << year << '-' << month << '-' << day;
    EXPECT_EQ(date, YDate());
  }
}

TEST(Date, WeekdaysCountFromMonday) {
  EXPECT_EQ(YDate(2026, 11, 16).Weekday(), 0);
  EXPECT_EQ(YDate(2026, 11, 22).Weekday(), 6);
  EXPECT_EQ(YDate().Weekday(), -1);
}

TEST(Date, AddDaysCrossesMonthsAndLeavesTheCalendarUnset) {
  const struct {
    YDate from;
    int days;
    YDate to;
  } rows[] = {{{2024, 2, 28}, 2, {2024, 3, 1}}, {{2026, 1, 1}, -1, {2025, 12, 31}}, {{9999, 12, 31}, 1, {}},
              {{2026, 1, 1}, std::numeric_limits<int>::max(), {}}, {{}, 1, {}}};
  for (const auto& row : rows) {
    YDate date = row.from;
    date.AddDays(row.days);
    EXPECT_EQ(date, row.to) << row.from.Year() << '-' << row.from.Month() << '-' << row.from.Day() << " + " << row.days;
  }
}

TEST(Time, FormatsAndLimits) {
  const YTime time(7, 5, 9, 42);
  EXPECT_EQ(time.toString(1), "07:05");
  EXPECT_EQ(time.toString(2), "07:05:09");
  EXPECT_EQ(time.toString(3), "07:05:09.042");
  EXPECT_EQ(time.toString(99), "07:05:09");
  YTime changed(1, 2, 3, 4);
  EXPECT_FALSE(changed.Set(24, 0, 0));
  EXPECT_EQ(changed, YTime());
}

TEST(DateAndTime, LocalTimesBecomeInstants) {
  const struct {
    const char* zone;
    YDate date;
    YTime time;
    const char* iso;
  } rows[] = {
      {kBerlin, {2026, 11, 21}, {10, 0, 0}, "2026-11-21T10:00:00+01:00"},
      {kBerlin, {2026, 7, 1}, {0, 0, 0, 7}, "2026-07-01T00:00:00.007+02:00"},
      // 29 March 2026: 02:00 to 03:00 does not exist, and shows as if the clock had not been moved yet.
      {kBerlin, {2026, 3, 29}, {2, 0, 0}, "2026-03-29T03:00:00+02:00"},
      {kBerlin, {2026, 3, 29}, {2, 30, 0}, "2026-03-29T03:30:00+02:00"},
      // 25 October 2026: 02:00 to 03:00 comes twice, the earlier one counts.
      {kBerlin, {2026, 10, 25}, {2, 0, 0}, "2026-10-25T02:00:00+02:00"},
      {kBerlin, {2026, 10, 25}, {3, 0, 0}, "2026-10-25T03:00:00+01:00"},
      {kNewYork, {2026, 3, 8}, {2, 30, 0}, "2026-03-08T03:30:00-04:00"},
      {kNewYork, {2026, 11, 1}, {1, 30, 0}, "2026-11-01T01:30:00-04:00"},
      {kUtc, {1, 1, 1}, {0, 0, 0}, "0001-01-01T00:00:00+00:00"},
      {kUtc, {9999, 12, 31}, {23, 59, 59}, "9999-12-31T23:59:59+00:00"},
  };
  for (const auto& row : rows) {
    const Zone zone(row.zone);
    YDateAndTime value;
    value.Set(row.date, row.time);
    EXPECT_EQ(value.toIso(), row.iso);
    YDateAndTime read;
    EXPECT_TRUE(read.SetIso(row.iso)) << row.iso;
    EXPECT_EQ(read, value) << row.iso;
  }
}

TEST(DateAndTime, NowIsNow) {
  YDateAndTime value;
  const std::time_t before = std::time(nullptr);
  value.Set(99.9999999);
  EXPECT_GE(value.EpochMilliseconds() / 1000, before);
  EXPECT_LE(value.EpochMilliseconds() / 1000, std::time(nullptr));
}

TEST(DateAndTime, DateNumbersCountDaysFromTheEndOf1899) {
  const Zone zone(kBerlin);
  const std::pair<double, const char*> rows[] = {
      {0, "1899-12-30 00:00:00.000"},
      {1.5, "1899-12-31 12:00:00.000"},
      {-1.25, "1899-12-29 06:00:00.000"},
      {46347.0 + 1.0 / 86400, "2026-11-21 00:00:01.000"},
      {46346.999999999, "2026-11-21 00:00:00.000"},  // rounds up into the next day
      {-693593, "1-1-1 00:00:00.000"},
      {-693594, "not set"},
      {2958466, "not set"},
      {std::numeric_limits<double>::infinity(), "not set"}};
  for (const auto& [number, expected] : rows) {
    YDateAndTime value;
    value.SetEpochMilliseconds(0);
    value.Set(number);
    EXPECT_EQ(shown(value), expected) << number;
  }
}

TEST(DateAndTime, ReadsIsoTexts) {
  const Zone zone(kBerlin);
  const std::pair<std::string_view, std::int64_t> good[] = {
      {"1970-01-01T00:00:00Z", 0},         {"1970-01-01t01:00:00+01:00", 0}, {"1969-12-31T19:00:00-05:00", 0},
      {"1970-01-01T01:00:00", 0},          {"1970-01-01T00:00:00.5z", 500},  {"1970-01-01T00:00:00.123456789Z", 123}};
  for (const auto& [text, instant] : good) {
    YDateAndTime value;
    EXPECT_TRUE(value.SetIso(text)) << text;
    EXPECT_EQ(value.EpochMilliseconds(), instant) << text;
  }
  for (const std::string_view bad :
       {"1970-01-01T00:00:00.Z", "1970-01-01T00:00Z", "1970-1-01T00:00:00Z", "1970-02-30T00:00:00Z", "1970-01-01T24:00:00Z",
        "1970-01-01T00:00:00ZZ", "1970-01-01T00:00:00+0100", "1970-01-01T00:00:00+24:00", "1970-01-01T00:00:00+00:60",
        " 1970-01-01T00:00:00Z", "0001-01-01T00:00:00+23:59", "9999-12-31T23:59:59-23:59"}) {
    YDateAndTime value;
    value.SetEpochMilliseconds(77);
    EXPECT_FALSE(value.SetIso(bad)) << bad;
    EXPECT_EQ(value.EpochMilliseconds(), 77) << bad;
  }
}

// Berlin's clocks were 53 minutes and 28 seconds ahead until 1893; no ISO text can say that.
TEST(DateAndTime, IsoKeepsTheInstantUnderAnOffsetWithSeconds) {
  const Zone zone("LMT-0:53:28");
  YDateAndTime value;
  value.SetEpochMilliseconds(-3'000'000'000'000);
  YDateAndTime read;
  ASSERT_TRUE(read.SetIso(value.toIso())) << value.toIso().str();
  EXPECT_EQ(read, value);
}

}  // namespace
