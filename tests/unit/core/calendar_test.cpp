#include "core/calendar.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <limits>

#include "tests/fakes/clock.h"

namespace tavo {
namespace {

constexpr int year(int number) {
  return number - 1900;
}

class CalendarTest : public testing::Test {
 protected:
  CalendarTest() { use_zone("UTC0"); }

  static void use_zone(const char *zone) {
    setenv("TZ", zone, 1);
    tzset();
  }
};

TEST_F(CalendarTest, TheTimeOfDayDoesNotEndWithThirtyTwoBits) {
  for (const std::int64_t seconds : {0LL, 2'147'483'647LL, 2'147'483'648LL, 4'294'967'296LL}) {
    const fakes::FakeClock clock(seconds);
    EXPECT_EQ(time_of_day(), seconds);
  }
}

TEST_F(CalendarTest, AClockThatFailsTellsNoTime) {
  const fakes::FakeClock clock(-1);
  EXPECT_EQ(time_of_day(), std::nullopt);
}

TEST_F(CalendarTest, LocalTimesAndSecondsAreEachOthersReverse) {
  for (const char *zone : {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "XYZ+11:30"}) {
    use_zone(zone);
    for (const std::int64_t seconds :
         {-2'147'483'649LL, -1LL, 0LL, 1'793'356'447LL, 2'147'483'648LL, 4'294'967'296LL}) {
      const std::optional<std::tm> local = local_time(seconds);
      ASSERT_TRUE(local) << seconds;
      EXPECT_EQ(seconds_since_1970(*local), seconds) << zone;
    }
  }
}

TEST_F(CalendarTest, TheZoneSaysWhetherItIsSummer) {
  use_zone("CET-1CEST,M3.5.0,M10.5.0/3");
  std::tm local = {};
  local.tm_year = year(2039);
  local.tm_mday = 15;
  EXPECT_EQ(seconds_since_1970(local), 2'178'662'400 - 3600);
  local.tm_mon = 6;
  EXPECT_EQ(seconds_since_1970(local), 2'194'300'800 - 7200);
}

TEST_F(CalendarTest, AYearThatIsNoIntIsNoLocalTime) {
  EXPECT_FALSE(local_time(std::numeric_limits<std::int64_t>::max()));
  EXPECT_TRUE(local_time(67'768'036'191'676'799));  // the last second of 2,147,485,547
  EXPECT_FALSE(local_time(67'768'036'191'676'800));
}

TEST_F(CalendarTest, AFailureIsNotTheSecondBeforeTheEpoch) {
  std::tm last = {};
  last.tm_year = year(1969);
  last.tm_mon = 11;
  last.tm_mday = 31;
  last.tm_hour = 23;
  last.tm_min = 59;
  last.tm_sec = 59;
  EXPECT_EQ(seconds_since_1970(last), -1);
  std::tm beyond = {};
  beyond.tm_year = std::numeric_limits<int>::max();
  beyond.tm_mon = 12;
  beyond.tm_mday = 1;
  EXPECT_EQ(seconds_since_1970(beyond), std::nullopt);
}

}  // namespace
}  // namespace tavo
