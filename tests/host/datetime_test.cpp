#include "yinet/host/ydatetime.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <tuple>

namespace {

// Rules written out, so that no zone files are needed.
constexpr const char* kBerlin = "CET-1CEST,M3.5.0,M10.5.0/3";

class DateAndTime : public testing::Test {
 protected:
  DateAndTime() { zone(kBerlin); }
  ~DateAndTime() override {
    unsetenv("TZ");
    tzset();
  }
  static void zone(const char* name) {
    setenv("TZ", name, 1);
    tzset();
  }
};

TEST(Date, StaysInTheCalendar) {
  for (const auto& [year, month, day] :
       {std::array{1900, 2, 29}, {2026, 4, 31}, {2026, 257, 1}, {2026, 0, 1}, {2026, 1, 257}, {0, 1, 1}, {67562, 1, 1}}) {
    YDate date(2024, 2, 29);
    EXPECT_FALSE(date.Set(year, month, day)) << year << '-' << month << '-' << day;
    EXPECT_EQ(date, YDate());
  }
  EXPECT_FALSE(YTime().Set(24, 0, 0));
  EXPECT_EQ(YDate(2026, 11, 16).Weekday(), 0) << "a Monday";
  const std::tuple<YDate, int, YDate> rows[] = {{{2024, 2, 28}, 2, {2024, 3, 1}},
                                                {{2026, 1, 1}, -1, {2025, 12, 31}},
                                                {{9999, 12, 31}, 1, {}},
                                                {{2026, 1, 1}, std::numeric_limits<int>::max(), {}}};
  for (auto [date, days, expected] : rows) {
    date.AddDays(days);
    EXPECT_EQ(date, expected) << days;
  }
}

TEST_F(DateAndTime, LocalTimesBecomeInstants) {
  const std::tuple<YDate, YTime, const char*> rows[] = {
      {{2026, 7, 1}, {0, 0, 0, 7}, "2026-07-01T00:00:00.007+02:00"},
      // 29 March 2026: 02:00 to 03:00 does not exist, and shows as if the clock had not been moved yet.
      {{2026, 3, 29}, {2, 0, 0}, "2026-03-29T03:00:00+02:00"},
      {{2026, 3, 29}, {2, 30, 0}, "2026-03-29T03:30:00+02:00"},
      // 25 October 2026: 02:00 to 03:00 comes twice, the earlier one counts.
      {{2026, 10, 25}, {2, 0, 0}, "2026-10-25T02:00:00+02:00"},
      {{2026, 10, 25}, {3, 0, 0}, "2026-10-25T03:00:00+01:00"}};
  for (const auto& [date, time, iso] : rows) {
    YDateAndTime value;
    value.Set(date, time);
    EXPECT_EQ(value.toIso(), iso);
  }
}

TEST_F(DateAndTime, DateNumbersCountDaysFromTheEndOf1899) {
  const std::pair<double, const char*> rows[] = {{1.5, "1899-12-31T12:00:00+01:00"},
                                                 {-1.25, "1899-12-29T06:00:00+01:00"},
                                                 {46347.0 + 1.0 / 86400, "2026-11-21T00:00:01+01:00"},
                                                 {46346.999999999, "2026-11-21T00:00:00+01:00"},  // rounds up
                                                 {-693594, ""},
                                                 {2958466, ""},
                                                 {std::numeric_limits<double>::infinity(), ""}};
  for (const auto& [number, expected] : rows) {
    YDateAndTime value;
    value.SetEpochMilliseconds(0);
    value.Set(number);
    EXPECT_EQ(value.IsSet() ? value.toIso() : YString(), expected) << number;
  }
  YDateAndTime now;
  now.Set(YDateAndTime::kNow);
  EXPECT_NEAR(static_cast<double>(now.EpochMilliseconds()) / 1000, static_cast<double>(std::time(nullptr)), 2);
}

// The fuzzer proves that what is taken comes back as the same instant.
TEST_F(DateAndTime, ReadsIsoTexts) {
  const std::pair<std::string_view, std::int64_t> good[] = {{"1970-01-01t01:00:00+01:00", 0},
                                                            {"1969-12-31T19:00:00-05:00", 0},
                                                            {"1970-01-01T01:00:00", 0},
                                                            {"1970-01-01T00:00:00.5z", 500},
                                                            {"1970-01-01T00:00:00.123456789Z", 123}};
  YDateAndTime value;
  for (const auto& [text, instant] : good) {
    EXPECT_TRUE(value.SetIso(text)) << text;
    EXPECT_EQ(value.EpochMilliseconds(), instant) << text;
  }
  for (const std::string_view bad :
       {"1970-01-01T00:00:00.Z", "1970-1-01T00:00:00Z", "1970-02-30T00:00:00Z", "1970-01-01T24:00:00Z",
        "1970-01-01T00:00:00ZZ", "1970-01-01T00:00:00+0100", "1970-01-01T00:00:00+24:00", "0001-01-01T00:00:00+23:59",
        "9999-12-31T23:59:59-23:59"}) {
    EXPECT_FALSE(value.SetIso(bad)) << bad;
    EXPECT_EQ(value.EpochMilliseconds(), 123) << bad;
  }
}

// Berlin's clocks were 53 minutes and 28 seconds ahead until 1893; no ISO text can say that.
TEST_F(DateAndTime, IsoKeepsTheInstantUnderAnOffsetWithSeconds) {
  zone("LMT-0:53:28");
  YDateAndTime value;
  value.SetEpochMilliseconds(-3'000'000'000'000);
  YDateAndTime read;
  ASSERT_TRUE(read.SetIso(value.toIso())) << value.toIso().str();
  EXPECT_EQ(read, value);
}

}  // namespace
