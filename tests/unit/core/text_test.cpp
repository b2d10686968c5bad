#include "core/text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace tavo {
namespace {

TEST(LeadingNumber, IsWhatTheTextBeginsWith) {
  EXPECT_EQ(leading_number("12"), 12);
  EXPECT_EQ(leading_number("12 MHz"), 12);
  EXPECT_EQ(leading_number("12MHz"), 12);
  EXPECT_EQ(leading_number("-12"), -12);
  EXPECT_EQ(leading_number("+12"), 12);
  EXPECT_EQ(leading_number("0x10"), 0);
  EXPECT_EQ(leading_number("007"), 7);
}

TEST(LeadingNumber, MayStandBehindBlanks) {
  EXPECT_EQ(leading_number(" \t\n\v\f\r 3"), 3);
}

TEST(LeadingNumber, IsMissingWhereThereIsNone) {
  for (const std::string_view none : {"", " ", "x1", "+", "-", "+-1", "-+1", "+ 1", "- 1", "++1", ".5"}) {
    EXPECT_EQ(leading_number(none), std::nullopt) << none;
  }
}

TEST(LeadingNumber, StaysWithin32Bits) {
  EXPECT_EQ(leading_number("2147483647"), INT32_MAX);
  EXPECT_EQ(leading_number("2147483648"), INT32_MAX);
  EXPECT_EQ(leading_number("+99999999999999999999"), INT32_MAX);
  EXPECT_EQ(leading_number("-2147483649"), INT32_MIN);
}

TEST(LeadingNumber, EndsWithTheTextEvenIfDigitsFollowInMemory) {
  EXPECT_EQ(leading_number(std::string_view("1234").substr(0, 2)), 12);
}

TEST(TakeNumber, LeavesTheRest) {
  std::string_view text = "  99999999999 GB";
  EXPECT_EQ(take_number(text), INT32_MAX);
  EXPECT_EQ(text, " GB");
  EXPECT_EQ(take_number(text), std::nullopt);
  EXPECT_EQ(text, " GB");
}

TEST(TakeWord, EndsAtABlank) {
  std::string_view text = "  GB \t left";
  EXPECT_EQ(take_word(text), "GB");
  EXPECT_EQ(take_word(text), "left");
  EXPECT_EQ(take_word(text), "");
  EXPECT_EQ(text, "");
}

struct Field {
  char text[8];
  char behind = '#';
};

TEST(Text, ACopyEndsWithANul) {
  Field field;
  std::memset(field.text, 'x', sizeof field.text);
  copy_text(field.text, "cpu-1");
  EXPECT_STREQ(field.text, "cpu-1");
}

TEST(Text, ACopyIsCutOffAtItsField) {
  for (const std::string_view whole : {"1234567", "12345678", "123456789012345678901234567890"}) {
    Field field;
    copy_text(field.text, whole);
    EXPECT_STREQ(field.text, "1234567");
    EXPECT_EQ(field.behind, '#');
  }
}

TEST(Text, ACopyMayBeEmpty) {
  Field field;
  field.text[0] = 'x';
  copy_text(field.text, std::string_view());
  EXPECT_STREQ(field.text, "");
  field.text[0] = 'x';
  copy_text(field.text, "");
  EXPECT_STREQ(field.text, "");
}

TEST(Text, AFormattedTextIsCutOffAtItsField) {
  Field field;
  EXPECT_TRUE(format_text(field.text, "cpu-%u", 1U));
  EXPECT_STREQ(field.text, "cpu-1");
  EXPECT_TRUE(format_text(field.text, "%s", "1234567"));
  EXPECT_FALSE(format_text(field.text, "%s", std::string(30, 'x').c_str()));
  EXPECT_STREQ(field.text, "xxxxxxx");
  EXPECT_EQ(field.behind, '#');
}

}  // namespace
}  // namespace tavo
