#include "sources/readings.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <string>

namespace tavo {
namespace {

TEST(WholeReadingTest, HalvesGoUp) {
  EXPECT_EQ(whole_reading("36.5"), 37);
  EXPECT_EQ(whole_reading("36.4"), 36);
  EXPECT_EQ(whole_reading("41.6"), 42);
  EXPECT_EQ(whole_reading("40.5"), 41);
  EXPECT_EQ(whole_reading("187.5"), 188);
  EXPECT_EQ(whole_reading("12.2"), 12);
  EXPECT_EQ(whole_reading("0"), 0);
}

TEST(WholeReadingTest, BelowZeroTheFractionIsDroppedTowardsIt) {
  EXPECT_EQ(whole_reading("-2.7"), -2);
  EXPECT_EQ(whole_reading("-0.2"), 0);
  EXPECT_EQ(whole_reading("-1.5"), -1);
}

TEST(WholeReadingTest, ReadsANumberAtTheBeginningOfTheText) {
  EXPECT_EQ(whole_reading("  21.9 C"), 22);
  EXPECT_EQ(whole_reading("1e2"), 100);
}

TEST(WholeReadingTest, WhatIsNoNumberIsZero) {
  EXPECT_EQ(whole_reading(""), 0);
  EXPECT_EQ(whole_reading("n/a"), 0);
  EXPECT_EQ(whole_reading("nan"), 0);
}

TEST(WholeReadingTest, StaysWithinThirtyTwoBits) {
  EXPECT_EQ(whole_reading("1e20"), std::numeric_limits<std::int32_t>::max());
  EXPECT_EQ(whole_reading("-inf"), std::numeric_limits<std::int32_t>::min());
}

class CollectionTimeTest : public testing::Test {
 protected:
  CollectionTimeTest() { set_zone("UTC"); }

  static void set_zone(const char *zone) {
    setenv("TZ", zone, 1);
    tzset();
  }

  // The part of the time that a table's column serves.
  static std::string carried(const char *text) {
    CollectionTime collected = {};
    take_collection_time(text, collected);
    return collected;
  }
};

TEST_F(CollectionTimeTest, HasSevenOctetsWhenNoneIsZero) {
  EXPECT_EQ(carried("2026-11-15T12:34:07"), "\x07\xEA\x0B\x0F\x0C\x22\x07");
}

TEST_F(CollectionTimeTest, EndsAtTheFirstZeroOctet) {
  EXPECT_EQ(carried("2026-11-15T12:00:07"), "\x07\xEA\x0B\x0F\x0C") << "no minutes";
  EXPECT_EQ(carried("2026-11-15T10:00:15"), "\x07\xEA\x0B\x0F\x0A") << "no minutes";
  EXPECT_EQ(carried("2026-11-15T00:00:00"), "\x07\xEA\x0B\x0F") << "midnight";
  EXPECT_EQ(carried("2026-11-15T12:34:00"), "\x07\xEA\x0B\x0F\x0C\x22") << "no seconds";
}

TEST_F(CollectionTimeTest, IsTheLocalTimeThatTheTextGives) {
  set_zone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(carried("2026-01-15T12:34:07"), "\x07\xEA\x01\x0F\x0C\x22\x07") << "winter";
  EXPECT_EQ(carried("2026-07-15T12:34:07"), "\x07\xEA\x07\x0F\x0C\x22\x07") << "summer";
}

TEST_F(CollectionTimeTest, DoesNotEndWithThirtyTwoBits) {
  EXPECT_EQ(carried("2038-01-19T03:14:07"), "\x07\xF6\x01\x13\x03\x0E\x07");
  EXPECT_EQ(carried("2038-01-19T03:14:08"), "\x07\xF6\x01\x13\x03\x0E\x08");
  EXPECT_EQ(carried("2106-02-07T06:28:16"), "\x08\x3A\x02\x07\x06\x1C\x10");
}

TEST_F(CollectionTimeTest, MayBeTheSecondBeforeTheEpoch) {
  EXPECT_EQ(carried("1969-12-31T23:59:59"), "\x07\xB1\x0C\x1F\x17\x3B\x3B");
}

TEST_F(CollectionTimeTest, IsLeftAloneByATextThatIsNoTime) {
  for (const char *text : {"", "yesterday", "2026-11-15 12:34:07", "2026-13-15T12:34:07", "2026-11-15T12:34"}) {
    EXPECT_EQ(carried(text), "") << text;
  }
}

}  // namespace
}  // namespace tavo
