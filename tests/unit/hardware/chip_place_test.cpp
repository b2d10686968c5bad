#include "hardware/chip_place.h"

#include <gmock/gmock.h>

#include "tree.h"

namespace tavo::service {
namespace {

using testing::ElementsAre;

class ChipPlace : public Tree {
 protected:
  void add_chip(const std::string &chip, const std::string &device) {
    link("class/hwmon/" + chip + "/device", "devices/" + device);
  }

  // The chips and their places in /sys/devices.
  std::vector<std::string> places() const {
    std::vector<std::string> all;
    for (const auto &[place, chip] : chips_by_place(sys() / "class/hwmon")) {
      all.push_back(chip.filename().string() + ": " + place.substr((sys() / "devices/").string().size()));
    }
    return all;
  }
};

TEST_F(ChipPlace, ADeviceHasItsDirectorys) {
  add_chip("hwmon1", "platform/board.656");
  EXPECT_THAT(places(), ElementsAre("hwmon1: platform/board.656"));
}

TEST_F(ChipPlace, ChipsOfOneDeviceHaveOneEach) {
  add_chip("hwmon10", "platform/board.656");
  add_chip("hwmon9", "platform/board.656");
  EXPECT_THAT(places(), ElementsAre("hwmon9: platform/board.656", "hwmon10: platform/board.656 #2"));
}

TEST_F(ChipPlace, AnI2cBusMayHaveAnyNumber) {
  add_chip("hwmon1", "pci0000:00/0000:00:1f.4/i2c-3/3-0058");
  add_chip("hwmon2", "pci0000:00/0000:00:1f.5/i2c-10/10-0058");
  EXPECT_THAT(places(), ElementsAre("hwmon1: pci0000:00/0000:00:1f.4/i2c #1/0058",
                                    "hwmon2: pci0000:00/0000:00:1f.5/i2c #1/0058"));
}

TEST_F(ChipPlace, BusesOfOneControllerKeepTheirOrder) {
  add_chip("hwmon1", "0000:00:1f.4/i2c-9/9-0058");
  add_chip("hwmon2", "0000:00:1f.4/i2c-10/10-0058");
  write("devices/0000:00:1f.4/i2c-0-of-the-firmware/name", "");
  EXPECT_THAT(places(), ElementsAre("hwmon1: 0000:00:1f.4/i2c #1/0058", "hwmon2: 0000:00:1f.4/i2c #2/0058"));
}

TEST_F(ChipPlace, BusesBehindABusAreCountedThere) {
  add_chip("hwmon1", "0000:00:1f.4/i2c-2/i2c-5/5-0058");
  add_chip("hwmon2", "0000:00:1f.4/i2c-2/i2c-4/4-0058");
  EXPECT_THAT(places(),
              ElementsAre("hwmon2: 0000:00:1f.4/i2c #1/i2c #1/0058", "hwmon1: 0000:00:1f.4/i2c #1/i2c #2/0058"));
}

TEST_F(ChipPlace, ADeviceThatTheFirmwareNamesKeepsItsName) {
  add_chip("hwmon1", "0000:00:1f.4/i2c-2/i2c-FIRM0001:00");
  EXPECT_THAT(places(), ElementsAre("hwmon1: 0000:00:1f.4/i2c #1/i2c-FIRM0001:00"));
}

}  // namespace
}  // namespace tavo::service
