#include "core/conversions.h"

#include <gmock/gmock.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <span>

#include "tests/fakes/net_snmp.h"
#include "tests/fixtures/module_fixture.h"

namespace tavo {
namespace {

using testing::Each;
using testing::ElementsAre;

constexpr unsigned char untouched = 0xEE;

class DateAndTimeTest : public fakes::ModuleTest {
 protected:
  DateAndTimeTest() { use_zone("UTC0"); }

  static void use_zone(const char *zone) {
    setenv("TZ", zone, 1);
    tzset();
  }

  int convert(time_t time) { return convert_evsd_sel_time_to_snmp_time(&time, buffer_.data(), &length_); }
  int write(std::int64_t seconds) { return write_date_and_time(seconds, buffer_.data(), &length_); }

  std::array<unsigned char, 16> buffer_ = filled();
  size_t length_ = 8;

 private:
  static std::array<unsigned char, 16> filled() {
    std::array<unsigned char, 16> octets;
    octets.fill(untouched);
    return octets;
  }
};

TEST_F(DateAndTimeTest, TheEpochInUtc) {
  EXPECT_EQ(convert(0), 0);
  EXPECT_EQ(length_, 8U);
  EXPECT_THAT(buffer_, ElementsAre(0x07, 0xB2, 1, 1, 0, 0, 0, 0, untouched, untouched, untouched, untouched, untouched,
                                   untouched, untouched, untouched));
}

TEST_F(DateAndTimeTest, ALeapDayToTheSecond) {
  EXPECT_EQ(convert(1709251199), 0);  // 2024-02-29 23:59:59
  EXPECT_THAT(std::span(buffer_).first(8), ElementsAre(0x07, 0xE8, 2, 29, 23, 59, 59, 0));
}

TEST_F(DateAndTimeTest, ATimeBeforeTheEpoch) {
  EXPECT_EQ(convert(-1), 0);
  EXPECT_THAT(std::span(buffer_).first(8), ElementsAre(0x07, 0xB1, 12, 31, 23, 59, 59, 0));
}

TEST_F(DateAndTimeTest, LocalTimeWithoutZoneOctets) {
  use_zone("XYZ-05:30");
  length_ = buffer_.size();
  EXPECT_EQ(convert(0), 0);
  EXPECT_EQ(length_, 8U);
  EXPECT_THAT(std::span(buffer_).first(8), ElementsAre(0x07, 0xB2, 1, 1, 5, 30, 0, 0));
  EXPECT_THAT(std::span(buffer_).subspan(8), Each(untouched));
}

TEST_F(DateAndTimeTest, AShortBufferIsLeftAloneAndCalledSuccess) {
  for (size_t length = 0; length < 8; ++length) {
    length_ = length;
    EXPECT_EQ(convert(0), 0);
    EXPECT_EQ(length_, length);
    EXPECT_THAT(buffer_, Each(untouched));
  }
}

TEST_F(DateAndTimeTest, NullArgumentsAreRefused) {
  const time_t time = 0;
  EXPECT_EQ(convert_evsd_sel_time_to_snmp_time(nullptr, buffer_.data(), &length_), -103);
  EXPECT_EQ(convert_evsd_sel_time_to_snmp_time(&time, nullptr, &length_), -103);
  EXPECT_EQ(convert_evsd_sel_time_to_snmp_time(&time, buffer_.data(), nullptr), -103);
  EXPECT_EQ(length_, 8U);
  EXPECT_THAT(buffer_, Each(untouched));
}

TEST_F(DateAndTimeTest, AFailedConversionStillCopiesWhatItMade) {
  fakes::set_date_and_time_result(1);
  EXPECT_EQ(convert(0), -108);
  EXPECT_EQ(length_, 8U);
  EXPECT_THAT(std::span(buffer_).first(8), ElementsAre(0x07, 0xB2, 1, 1, 0, 0, 0, 0));
}

TEST_F(DateAndTimeTest, AFailedConversionLeavesAShortBufferAlone) {
  fakes::set_date_and_time_result(1);
  length_ = 7;
  EXPECT_EQ(convert(0), -108);
  EXPECT_EQ(length_, 7U);
  EXPECT_THAT(buffer_, Each(untouched));
}

TEST_F(DateAndTimeTest, TheLastSecondOfThirtyTwoBitsAndTheNext) {
  EXPECT_EQ(write(2147483647), 0);
  EXPECT_THAT(std::span(buffer_).first(8), ElementsAre(0x07, 0xF6, 1, 19, 3, 14, 7, 0));
  EXPECT_EQ(write(2147483648), 0);
  EXPECT_THAT(std::span(buffer_).first(8), ElementsAre(0x07, 0xF6, 1, 19, 3, 14, 8, 0));
}

TEST_F(DateAndTimeTest, AYearBeyondTheCalendarFails) {
  EXPECT_EQ(write(std::numeric_limits<std::int64_t>::max()), -108);
  EXPECT_EQ(length_, 8U);
  EXPECT_THAT(buffer_, Each(untouched));
}

TEST_F(DateAndTimeTest, TheLastYearOfTheCalendarDoesNotOverflow) {
  EXPECT_EQ(write(67767976233529199), 0);  // the last day on which tm_year fits an int
  EXPECT_EQ(length_, 8U);
}

TEST(Htonll, IsTheKnownHalfSwap) {
  EXPECT_EQ(htonll(0x0000000100000000), 0x0000000000000010U);
  EXPECT_EQ(htonll(0x12), 0x0000000121000000U);
  EXPECT_EQ(htonll(0x1122334455667788), 0x00000008FF777755U);
  EXPECT_EQ(htonll(0), 0U);
  EXPECT_EQ(htonll(0xFFFFFFFFFFFFFFFF), 0x0000000FFFFFFFFFU);
  EXPECT_EQ(htonll(0x1000000000000000), 0U) << "nothing above bit 35 counts";
}

constexpr auto colours = std::to_array<EnumText>({
    {.text = "red", .value = 1},
    {.text = "green", .value = -2},
    {.text = "also red", .value = 1},
    {.text = nullptr, .value = 7},
});

TEST(EnumValue, GivesTheFirstTextOfTheValue) {
  EXPECT_STREQ(enum_value(1, colours.data()), "1, red");
  EXPECT_STREQ(enum_value(-2, colours.data()), "-2, green");
}

TEST(EnumValue, ShowsAMissingValueAsTheLibraryShowsANullText) {
  EXPECT_STREQ(enum_value(5, colours.data()), "5, (null)");
  EXPECT_STREQ(enum_value(7, colours.data()), "7, (null)") << "the closing pair's value is no entry";
}

TEST(EnumValue, AnEmptyTableHasNoTexts) {
  constexpr EnumText empty = {.text = nullptr, .value = 0};
  EXPECT_STREQ(enum_value(0, &empty), "0, (null)");
}

TEST(EnumValue, KeepsOnlyTheLastText) {
  // LeakSanitizer counts what earlier calls returned.
  for (int i = 0; i < 1000; ++i) {
    enum_value(i, colours.data());
  }
  EXPECT_STREQ(enum_value(1, colours.data()), "1, red");
}

}  // namespace
}  // namespace tavo
