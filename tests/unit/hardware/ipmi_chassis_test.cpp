#include <gmock/gmock.h>

#include "hardware/leds.h"
#include "ipmi_fixture.h"

namespace tavo::service {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

TEST_F(Ipmi, TheChassisSaysWhetherItIsOn) {
  Inventory inventory = found();
  EXPECT_EQ(inventory.server.number("power"), 1);
  EXPECT_THAT(inventory.leds, IsEmpty()) << "it does not tell of the LED";
  controller_.chassis = {0, 0, 0x50};
  inventory = found();
  EXPECT_EQ(inventory.server.number("power"), 0);
  ASSERT_THAT(inventory.leds, SizeIs(1));
  EXPECT_EQ(inventory.leds[0].text("state"), "ON");
}

TEST_F(Ipmi, AnLedIsListedOnce) {
  controller_.chassis = {1, 0, 0x50};
  write("class/leds/chassis:blue:identify/brightness", "0\n");
  Inventory inventory = found();
  LedSource(roots()).read().enter(inventory);
  EXPECT_THAT(inventory.leds, SizeIs(1));
}

}  // namespace
}  // namespace tavo::service
