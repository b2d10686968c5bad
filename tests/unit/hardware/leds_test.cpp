#include "hardware/leds.h"

#include <gmock/gmock.h>

#include "tree.h"

namespace tavo::service {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Leds : public Tree {
 protected:
  void add_led(const std::string &name, const std::string &brightness, const std::string &trigger = "[none] timer") {
    write("class/leds/" + name + "/brightness", brightness + "\n");
    write("class/leds/" + name + "/trigger", trigger + "\n");
  }

  std::vector<std::string> found() {
    std::vector<std::string> texts;
    for (const Part &led : found_by(source_).leds) {
      texts.push_back(led.text("name") + '/' + led.text("state") + '/' + led.text("color"));
    }
    return texts;
  }

  LedSource source_{roots()};
};

TEST_F(Leds, TheHealthLedDoesNotComeFirst) {
  add_led("chassis:amber:fault", "1");
  add_led("chassis:blue:identify", "0");
  EXPECT_THAT(found(), ElementsAre("LED_LOCATE/OFF/BLUE", "LED_HLTH_STATUS/ON/AMBER"));
}

TEST_F(Leds, ABlinkingLedIsNotReadAsItIsJustNow) {
  add_led("red:fault", "0", "none [timer]");
  EXPECT_THAT(found(), ElementsAre("LED_HLTH_STATUS/SLOW BLINK/RED"));
  write("class/leds/red:fault/delay_on", "100\n");
  EXPECT_THAT(found(), ElementsAre("LED_HLTH_STATUS/FAST BLINK/RED"));
}

TEST_F(Leds, AColorThatIsNotToldIsNotKnown) {
  add_led("fault", "255");
  EXPECT_THAT(found(), ElementsAre("LED_HLTH_STATUS/ON/"));
}

TEST_F(Leds, WhatIsNotTheServersIsLeftOut) {
  add_led("input3::capslock", "1");
  add_led("mmc0::", "1");
  add_led("fault-net", "1");
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(Leds, AnLedIsListedOnce) {
  add_led("identify", "1");
  Inventory inventory;
  inventory.leds.emplace_back(led_kind).set("name", "LED_LOCATE");
  source_.read().enter(inventory);
  EXPECT_THAT(inventory.leds, testing::SizeIs(1));
}

TEST_F(Leds, OnlyOneLedShowsTheHealth) {
  add_led("back:red:fault", "1");
  add_led("front:red:fault", "0");
  add_led("green:health", "1");
  EXPECT_THAT(found(), ElementsAre("LED_HLTH_STATUS/ON/GREEN"));
}

}  // namespace
}  // namespace tavo::service
