#include "hardware/chip_place.h"

#include <gmock/gmock.h>
#include <sys/fsuid.h>

#include "tree.h"

namespace tavo::service {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uid_t nobody = 65'534;

class ChipPlace : public Tree {
 protected:
  void add_chip(const std::string &chip, const std::string &device) {
    link("class/hwmon/" + chip + "/device", "devices/" + device);
  }

  // A bus behind a multiplexer on bus 2, with the links that the kernel makes.
  void add_channel(const std::string &multiplexer, int channel, const std::string &bus) {
    const std::string parent = "devices/0000:00:1f.4/i2c-2/";
    link(parent + "i2c-" + bus + "/mux_device", parent + multiplexer);
    link(parent + multiplexer + "/channel-" + std::to_string(channel), parent + "i2c-" + bus);
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

TEST_F(ChipPlace, ABusBehindAMultiplexerIsItsChannel) {
  const auto places_with = [&](const std::string &first, const std::string &second) {
    std::filesystem::remove_all(sys());
    add_channel("2-0070", 1, first);
    add_channel("2-0071", 0, second);
    add_chip("hwmon1", "0000:00:1f.4/i2c-2/i2c-" + first + '/' + first + "-0058");
    add_chip("hwmon2", "0000:00:1f.4/i2c-2/i2c-" + second + '/' + second + "-0058");
    return places();
  };
  const auto expected =
      ElementsAre("hwmon1: 0000:00:1f.4/i2c #1/0070 channel-1/0058", "hwmon2: 0000:00:1f.4/i2c #1/0071 channel-0/0058");
  EXPECT_THAT(places_with("4", "5"), expected);
  EXPECT_THAT(places_with("5", "4"), expected);
}

TEST_F(ChipPlace, AChannelWithoutItsLinksHasNoneYet) {
  add_chip("hwmon1", "0000:00:1f.4/i2c-2/i2c-5/5-0058");
  EXPECT_THAT(places(), IsEmpty());
  link("devices/0000:00:1f.4/i2c-2/i2c-5/mux_device", "devices/0000:00:1f.4/i2c-2/2-0070");
  EXPECT_THAT(places(), IsEmpty());
}

TEST_F(ChipPlace, ABusThatIsNotInTheListHasNone) {
  using std::filesystem::perms;
  add_chip("hwmon1", "0000:00:1f.4/i2c-2/2-0058");
  add_chip("hwmon2", "platform/board.656");
  const std::filesystem::path controller = sys() / "devices/0000:00:1f.4";
  std::filesystem::permissions(directory_, perms::owner_all | perms::group_exec | perms::others_exec);
  std::filesystem::permissions(controller, perms::owner_exec | perms::group_exec | perms::others_exec);
  const int user = setfsuid(nobody);  // root would read the list
  EXPECT_THAT(places(), ElementsAre("hwmon2: platform/board.656"));
  setfsuid(static_cast<uid_t>(user));
  std::filesystem::permissions(controller, perms::owner_all);
}

TEST_F(ChipPlace, ADeviceThatTheFirmwareNamesKeepsItsName) {
  add_chip("hwmon1", "0000:00:1f.4/i2c-2/i2c-FIRM0001:00");
  EXPECT_THAT(places(), ElementsAre("hwmon1: 0000:00:1f.4/i2c #1/i2c-FIRM0001:00"));
}

}  // namespace
}  // namespace tavo::service
