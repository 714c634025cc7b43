#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <tuple>

#include "yinet/yinet.h"

namespace {

class DateAndTime : public testing::Test {
 protected:
  DateAndTime() {  // the rules written out, so that no zone files are needed
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
  }
  YDateAndTime value;
};

TEST_F(DateAndTime, LocalTimesAndDateNumbersBecomeInstants) {
  // A time that the clock skips shows as if it had not been moved; of one that comes twice the earlier counts.
  const std::tuple<YDate, YTime, const char*> local[] = {{{2026, 7, 1}, {0, 0, 0, 7}, "2026-07-01T00:00:00.007+02:00"},
                                                         {{2026, 3, 29}, {2, 30, 0}, "2026-03-29T03:30:00+02:00"},
                                                         {{2026, 10, 25}, {2, 0, 0}, "2026-10-25T02:00:00+02:00"}};
  for (const auto& [date, time, iso] : local) EXPECT_EQ((value.Set(date, time), value.toIso()), iso);
  const std::pair<double, const char*> days_since_1899[] = {{-1.25, "1899-12-29T06:00:00+01:00"},
                                                            {46346.999999999, "2026-11-21T00:00:00+01:00"},
                                                            {-693594, ""},
                                                            {HUGE_VAL, ""}};
  for (const auto& [number, iso] : days_since_1899) EXPECT_EQ((value.Set(number), value.toIso()), iso) << number;
  value.Set(YDateAndTime::kNow);
  EXPECT_NEAR(static_cast<double>(value.EpochMilliseconds()) / 1000, static_cast<double>(std::time(nullptr)), 2);
  YDate date(2024, 2, 28);
  date.AddDays(2);
  EXPECT_EQ(date, YDate(2024, 3, 1));
  date.AddDays(INT32_MAX);
  EXPECT_FALSE(date.IsSet() || date.Set(1900, 2, 29) || date.Set(2026, 257, 1) || date.Set(2026, 1, 257));
}

// The fuzzer proves that what is taken comes back as the same instant.
TEST_F(DateAndTime, ReadsIsoTexts) {
  for (const char* good : {"1969-12-31t19:00:00.5-05:00", "1970-01-01T01:00:00.5", "1970-01-01T00:00:00.500999999z"})
    EXPECT_TRUE(value.SetIso(good) && value.EpochMilliseconds() == 500) << good;
  for (const char* bad :
       {"1970-01-01T00:00:00.Z", "1970-1-01T00:00:00Z", "1970-02-30T00:00:00Z", "1970-01-01T24:00:00Z",
        "1970-01-01T00:00:00ZZ", "1970-01-01T00:00:00+24:00", "0001-01-01T00:00:00+23:59"})
    EXPECT_TRUE(!value.SetIso(bad) && value.EpochMilliseconds() == 500) << bad;
}

}  // namespace
