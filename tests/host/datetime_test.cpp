#include "yinet/host/ydatetime.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

namespace {

// Puts the process into a zone for one test.
class Zone {
 public:
  explicit Zone(const char* name) {
    if (const char* old = std::getenv("TZ")) old_ = old;
    use(name);
  }
  Zone(const Zone&) = delete;
  Zone& operator=(const Zone&) = delete;
  ~Zone() { use(old_.empty() ? nullptr : old_.c_str()); }

 private:
  static void use(const char* name) {
    if (name != nullptr) {
      setenv("TZ", name, 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }
  std::string old_;
};

// Rules written out, so that no zone files are needed.
constexpr const char* kBerlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* kNewYork = "EST5EDT,M3.2.0,M11.1.0";
constexpr const char* kKathmandu = "<+0545>-5:45";
constexpr const char* kUtc = "UTC0";

std::string shown(const YDateAndTime& value) {
  if (!value.IsSet()) return "not set";
  const YDate date = value.Date();
  return std::to_string(date.Year()) + "-" + std::to_string(date.Month()) + "-" + std::to_string(date.Day()) + " " +
         value.Time().toString(3).str();
}

TEST(Date, TakesOnlyDatesOfTheCalendar) {
  const struct {
    int year, month, day;
    bool valid;
  } rows[] = {
      {2026, 11, 21, true}, {2024, 2, 29, true},  {2000, 2, 29, true},   {1, 1, 1, true},      {9999, 12, 31, true},
      {2023, 2, 29, false}, {1900, 2, 29, false}, {2026, 4, 31, false},  {2026, 13, 1, false}, {2026, 257, 1, false},
      {2026, 0, 1, false},  {2026, 1, 0, false},  {2026, 1, 257, false}, {0, 1, 1, false},     {10000, 1, 1, false},
      {-1, 1, 1, false},    {67562, 1, 1, false}, {2026, -1, 1, false},
  };
  for (const auto& row : rows) {
    YDate date(2020, 5, 5);
    EXPECT_EQ(date.Set(row.year, row.month, row.day), row.valid) << row.year << '-' << row.month << '-' << row.day;
    EXPECT_EQ(date.IsSet(), row.valid);
    EXPECT_EQ(date.Year(), row.valid ? row.year : 0);
  }
}

TEST(Date, WeekdaysCountFromMonday) {
  EXPECT_EQ(YDate(1970, 1, 1).Weekday(), 3);
  EXPECT_EQ(YDate(2026, 11, 16).Weekday(), 0);
  EXPECT_EQ(YDate(2026, 11, 22).Weekday(), 6);
  EXPECT_EQ(YDate().Weekday(), -1);
}

TEST(Date, AddDaysCrossesMonthsAndLeavesTheCalendarUnset) {
  const struct {
    YDate from;
    int days;
    YDate to;
  } rows[] = {
      {{2024, 2, 28}, 1, {2024, 2, 29}},
      {{2024, 2, 28}, 2, {2024, 3, 1}},
      {{2026, 1, 1}, -1, {2025, 12, 31}},
      {{2026, 1, 1}, 365, {2027, 1, 1}},
      {{9999, 12, 31}, 1, {}},
      {{1, 1, 1}, -1, {}},
      {{2026, 1, 1}, std::numeric_limits<int>::max(), {}},
      {{2026, 1, 1}, std::numeric_limits<int>::min(), {}},
      {{}, 1, {}},
  };
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
  EXPECT_EQ(time.toString(), "07:05:09");
  EXPECT_EQ(time.toString(3), "07:05:09.042");
  EXPECT_EQ(time.toString(99), "07:05:09");
  for (const auto& [hour, minute, second, millisecond] :
       {std::array{24, 0, 0, 0}, {0, 60, 0, 0}, {0, 0, 60, 0}, {0, 0, 0, 1000}, {-1, 0, 0, 0}}) {
    YTime changed(1, 2, 3, 4);
    EXPECT_FALSE(changed.Set(hour, minute, second, millisecond));
    EXPECT_EQ(changed, YTime());
  }
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
      {kBerlin, {2026, 3, 29}, {1, 59, 59, 999}, "2026-03-29T01:59:59.999+01:00"},
      {kBerlin, {2026, 3, 29}, {2, 0, 0}, "2026-03-29T03:00:00+02:00"},
      {kBerlin, {2026, 3, 29}, {2, 30, 0}, "2026-03-29T03:30:00+02:00"},
      {kBerlin, {2026, 3, 29}, {3, 0, 0}, "2026-03-29T03:00:00+02:00"},
      // 25 October 2026: 02:00 to 03:00 comes twice, the earlier one counts.
      {kBerlin, {2026, 10, 25}, {1, 59, 59}, "2026-10-25T01:59:59+02:00"},
      {kBerlin, {2026, 10, 25}, {2, 0, 0}, "2026-10-25T02:00:00+02:00"},
      {kBerlin, {2026, 10, 25}, {2, 59, 59}, "2026-10-25T02:59:59+02:00"},
      {kBerlin, {2026, 10, 25}, {3, 0, 0}, "2026-10-25T03:00:00+01:00"},
      {kNewYork, {2026, 3, 8}, {2, 30, 0}, "2026-03-08T03:30:00-04:00"},
      {kNewYork, {2026, 11, 1}, {1, 30, 0}, "2026-11-01T01:30:00-04:00"},
      {kNewYork, {2026, 11, 1}, {2, 0, 0}, "2026-11-01T02:00:00-05:00"},
      {kKathmandu, {1969, 12, 31}, {23, 59, 59, 999}, "1969-12-31T23:59:59.999+05:45"},
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

TEST(DateAndTime, ADateThatIsNotSetUnsets) {
  YDateAndTime value;
  value.SetEpochMilliseconds(0);
  value.Set(YDate(), YTime(1, 2, 3));
  EXPECT_FALSE(value.IsSet());
  EXPECT_EQ(value.toIso(), "");
  EXPECT_FALSE(value.Date().IsSet());
  EXPECT_EQ(value.Time(), YTime());
  EXPECT_EQ(value.UtcOffsetMinutes(), 0);
}

TEST(DateAndTime, ShowsInstantsInTheZone) {
  const Zone zone(kBerlin);
  YDateAndTime value;
  value.SetEpochMilliseconds(-1);
  EXPECT_EQ(shown(value), "1970-1-1 00:59:59.999");
  EXPECT_EQ(value.UtcOffsetMinutes(), 60);
  value.SetEpochMilliseconds(1'782'864'000'000);  // 2026-07-01T00:00:00Z
  EXPECT_EQ(shown(value), "2026-7-1 02:00:00.000");
  EXPECT_EQ(value.UtcOffsetMinutes(), 120);
}

TEST(DateAndTime, NowIsNow) {
  const auto now = [] {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
  };
  YDateAndTime value;
  const auto before = now();
  value.Set(YDateAndTime::kNow);
  EXPECT_GE(value.EpochMilliseconds(), before);
  EXPECT_LE(value.EpochMilliseconds(), now());
}

TEST(DateAndTime, DateNumbersCountDaysFromTheEndOf1899) {
  const Zone zone(kBerlin);
  const struct {
    double number;
    const char* shown;
  } rows[] = {
      {0, "1899-12-30 00:00:00.000"},
      {1.5, "1899-12-31 12:00:00.000"},
      {-1.25, "1899-12-29 06:00:00.000"},
      {25569, "1970-1-1 00:00:00.000"},
      {46347.0 + 1.0 / 86400, "2026-11-21 00:00:01.000"},
      {46346.999999999, "2026-11-21 00:00:00.000"},  // rounds up into the next day
      {-693593, "1-1-1 00:00:00.000"},
      {2958465.5, "9999-12-31 12:00:00.000"},
      {-693594, "not set"},
      {2958466, "not set"},
      {1e300, "not set"},
      {std::numeric_limits<double>::infinity(), "not set"},
      {std::numeric_limits<double>::quiet_NaN(), "not set"},
  };
  for (const auto& row : rows) {
    YDateAndTime value;
    value.SetEpochMilliseconds(0);
    value.Set(row.number);
    EXPECT_EQ(shown(value), row.shown) << row.number;
  }
}

TEST(DateAndTime, InstantsOutsideTheCalendarUnset) {
  const Zone zone(kUtc);
  for (const std::int64_t instant : {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max(),
                                     std::int64_t{253'402'300'800'000}, std::int64_t{-62'135'596'800'001}}) {
    YDateAndTime value;
    value.SetEpochMilliseconds(0);
    value.SetEpochMilliseconds(instant);
    EXPECT_FALSE(value.IsSet()) << instant;
  }
}

TEST(DateAndTime, ReadsIsoTexts) {
  const Zone zone(kBerlin);
  const struct {
    std::string_view text;
    std::int64_t instant;  // -1: refused
  } rows[] = {
      {"1970-01-01T00:00:00Z", 0},
      {"1970-01-01t00:00:00z", 0},
      {"1970-01-01T01:00:00+01:00", 0},
      {"1969-12-31T19:00:00-05:00", 0},
      {"1970-01-01T05:45:00+05:45", 0},
      {"1970-01-01T01:00:00", 0},  // local
      {"1970-01-01T00:00:00.5Z", 500},
      {"1970-01-01T00:00:00.123456789Z", 123},
      {"1970-01-01T00:00:00.Z", -1},
      {"", -1},
      {"1970-01-01", -1},
      {"1970-01-01T00:00Z", -1},
      {"1970-01-01 00:00:00Z", -1},
      {"1970-1-01T00:00:00Z", -1},
      {"1970-02-30T00:00:00Z", -1},
      {"1970-01-01T24:00:00Z", -1},
      {"1970-01-01T00:00:60Z", -1},
      {"1970-01-01T00:00:00ZZ", -1},
      {"1970-01-01T00:00:00+01", -1},
      {"1970-01-01T00:00:00+0100", -1},
      {"1970-01-01T00:00:00+24:00", -1},
      {"1970-01-01T00:00:00+00:60", -1},
      {" 1970-01-01T00:00:00Z", -1},
      {"19700-01-01T00:00:00Z", -1},
      {"-970-01-01T00:00:00Z", -1},
      {"0001-01-01T00:00:00+23:59", -1},  // before the calendar
      {"9999-12-31T23:59:59-23:59", -1},
      {{"1970-01-01T00:00:00Z\0", 21}, -1},
  };
  for (const auto& row : rows) {
    YDateAndTime value;
    value.SetEpochMilliseconds(77);
    EXPECT_EQ(value.SetIso(row.text), row.instant >= 0) << row.text;
    EXPECT_EQ(value.EpochMilliseconds(), row.instant >= 0 ? row.instant : 77) << row.text;
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
