#include "hardware/thermal.h"

#include <gmock/gmock.h>

#include "hardware/hwmon.h"
#include "tree.h"

namespace tavo::service {
namespace {

class Thermal : public Tree {
 protected:
  void add_zone(int number, const std::string &type, const std::string &temperature) {
    const std::string zone = "class/thermal/thermal_zone" + std::to_string(number);
    write(zone + "/type", type + '\n');
    write(zone + "/temp", temperature + '\n');
  }

  // What the processors' temperatures are, of which `present` are in their sockets.
  std::vector<std::string> temperatures(std::vector<bool> present) {
    Inventory inventory;
    for (const bool is_present : present) {
      inventory.processors.emplace_back(processor_kind).set("present", is_present ? "yes" : "no");
    }
    read_alone(source_).enter(inventory);
    std::vector<std::string> all;
    for (const Part &processor : inventory.processors) {
      all.push_back(processor.text("temperature"));
    }
    return all;
  }

  ThermalSource source_{roots()};
};

using testing::ElementsAre;

TEST_F(Thermal, TheHottestZoneIsTheProcessors) {
  add_zone(0, "acpitz", "90000");
  add_zone(1, "x86_pkg_temp", "42500");
  EXPECT_THAT(temperatures({true}), ElementsAre("42.5"));
  add_zone(2, "cpu0-thermal", "43000");
  add_zone(3, "soc_thermal", "41000");
  EXPECT_THAT(temperatures({true}), ElementsAre("43.0"));
  EXPECT_THAT(temperatures({false, true}), ElementsAre("0", "43.0")) << "a socket may be empty";
}

TEST_F(Thermal, WhichProcessorsZoneItIsIsNotGuessed) {
  add_zone(0, "x86_pkg_temp", "42500");
  add_zone(1, "x86_pkg_temp", "44500");
  EXPECT_THAT(temperatures({true, true}), ElementsAre("0", "0"));
  EXPECT_THAT(temperatures({}), ElementsAre());
}

TEST_F(Thermal, AZoneThatReadsNonsenseIsLeftOut) {
  add_zone(0, "cpu-thermal", "-273200");
  add_zone(1, "cpu1-thermal", "");
  add_zone(2, "wifi-thermal", "50000");
  add_zone(3, "cpuidle", "50000");
  EXPECT_THAT(temperatures({true}), ElementsAre("0"));
  EXPECT_TRUE(source_.read().accounts.empty());
}

TEST_F(Thermal, HwmonKnowsAProcessorBetter) {
  add_zone(0, "x86_pkg_temp", "42500");
  write("class/hwmon/hwmon0/name", "k10temp\n");
  write("class/hwmon/hwmon0/temp1_input", "41000\n");
  Register nothing_kept("");
  HwmonSource hwmon(roots(), nothing_kept);
  Inventory inventory;
  inventory.processors.emplace_back(processor_kind);
  enter_all(inventory, {{.source = hwmon.name(), .finding = std::make_shared<Finding>(hwmon.read())},
                        {.source = source_.name(), .finding = std::make_shared<Finding>(source_.read())}});
  EXPECT_EQ(inventory.processors[0].text("temperature"), "41.0");
}

}  // namespace
}  // namespace tavo::service
