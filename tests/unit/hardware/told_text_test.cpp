#include "hardware/told_text.h"

#include <gtest/gtest.h>

namespace tavo::service {
namespace {

using namespace std::string_view_literals;

TEST(ToldText, WhatFillsAFieldUpIsCutOff) {
  EXPECT_EQ(told_text(" \t\r\nCard 1 \x7f\xff\xff"), "Card 1");
  EXPECT_EQ(told_text("\0\0Card 1\0\0"sv), "Card 1");
  EXPECT_EQ(told_text("\xff\xff \0\x01"sv), "");
  EXPECT_EQ(told_text(""), "");
}

TEST(ToldText, ANulEndsIt) {
  EXPECT_EQ(told_text("FAN \0X"sv), "FAN");
}

TEST(ToldText, ItIsALine) {
  EXPECT_EQ(told_text("FAN\n1"), "FAN?1");
  EXPECT_EQ(told_text("Gr\xc3\xbc\xc3\x9f"
                      "e\xe9"),
            "Gr????e?");
}

TEST(ToldText, APhraseThatSaysNothingIsNoText) {
  for (const std::string_view phrase :
       {"To Be Filled By O.E.M.", " to be filled by o.e.m. \n", "Not Specified", "N/A", "NONE", "Default string"}) {
    EXPECT_EQ(told_text(phrase), "") << phrase;
  }
  EXPECT_EQ(told_text("None of these"), "None of these");
  EXPECT_EQ(told_text("01234567890"), "01234567890");
}

}  // namespace
}  // namespace tavo::service
