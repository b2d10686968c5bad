#include <gmock/gmock.h>

#include "hardware/hwmon.h"
#include "tree.h"

namespace tavo::service {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class KernelSupplies : public Tree {
 protected:
  void add_mains(const std::string &name, const std::string &online) {
    write("class/power_supply/" + name + "/type", "Mains\n");
    write("class/power_supply/" + name + "/online", online + '\n');
  }

  void add_chip(const std::string &chip, const std::string &device) {
    link("class/hwmon/" + chip + "/device", "devices/" + device);
    write("class/hwmon/" + chip + "/name", "cffps1\n");
    write("class/hwmon/" + chip + "/in1_input", "230000\n");
    write("class/hwmon/" + chip + "/fan1_input", "9000\n");
  }

  std::vector<std::string> descriptions() {
    std::vector<std::string> all;
    for (const Trouble &trouble : read_alone(source_).troubles) {
      all.push_back(trouble.severity + ": " + trouble.description);
    }
    return all;
  }

  Register register_{directory_ / "register.json"};
  HwmonSource source_{roots(), register_};
};

TEST_F(KernelSupplies, AMainsAdapterIsASupply) {
  add_mains("ADP1", "1");
  write("class/power_supply/ADP1/model_name", "SUPPLY-90\n");
  write("class/power_supply/ADP1/serial_number", "S-1\n");
  const Inventory inventory = found_by(source_);
  ASSERT_THAT(inventory.supplies, SizeIs(1));
  EXPECT_EQ(inventory.supplies[0].text("model"), "SUPPLY-90");
  EXPECT_EQ(inventory.supplies[0].text("serial"), "S-1");
  EXPECT_THAT(descriptions(), IsEmpty());
  add_mains("ADP1", "0");
  EXPECT_THAT(descriptions(), ElementsAre("major: Power supply 1 has no input"));
  EXPECT_NE(found_by(source_).supplies.at(0).number("status"), 0);
}

TEST_F(KernelSupplies, WhatFeedsNoServerIsNone) {
  for (const char *type : {"Battery\n", "UPS\n", "USB\n"}) {
    write("class/power_supply/P/type", type);
    write("class/power_supply/P/online", "1\n");
    EXPECT_THAT(found_by(source_).supplies, IsEmpty()) << type;
  }
  add_mains("P", "1");
  write("class/power_supply/P/scope", "Device\n");
  EXPECT_THAT(found_by(source_).supplies, IsEmpty()) << "it feeds something that is plugged in";
}

TEST_F(KernelSupplies, AChipInASupplyIsOne) {
  add_chip("hwmon1", "i2c-1/1-0069");
  add_chip("hwmon2", "i2c-1/1-0068");
  EXPECT_THAT(descriptions(), IsEmpty());
  std::vector<std::string> sensors;
  for (const Part &sensor : found_by(source_).sensors) {
    sensors.push_back(sensor.text("name"));
  }
  EXPECT_THAT(sensors, ElementsAre("PSU1_FAN_SPEED", "PSU2_FAN_SPEED", "PSU1_PRES", "PSU2_PRES"))
      << "its fan is not the server's";
  write("class/hwmon/hwmon2/in1_min_alarm", "1\n");
  write("class/hwmon/hwmon1/fan1_fault", "1\n");
  EXPECT_THAT(descriptions(), ElementsAre("major: Power supply 1 has no input, or one out of range",
                                          "major: Power supply 2: its fan has failed"));
  write("class/hwmon/hwmon2/in1_min_alarm", "0\n");
  write("class/hwmon/hwmon2/temp1_crit_alarm", "1\n");
  write("class/hwmon/hwmon1/fan1_fault", "0\n");
  EXPECT_THAT(descriptions(), ElementsAre("major: Power supply 1 has failed"));
  std::filesystem::rename(sys() / "class/hwmon/hwmon1", sys() / "class/hwmon/hwmon7");
  EXPECT_THAT(descriptions(), ElementsAre("major: Power supply 1 has failed")) << "it keeps its number";
}

TEST_F(KernelSupplies, ASupplyKeepsItsNumberOnARenumberedBus) {
  const auto supply_with_defect = [&](const std::string &left, const std::string &right) {
    std::filesystem::remove_all(sys());
    add_chip("hwmon1", "0000:00:1f.4/i2c-" + left + '/' + left + "-0058");
    add_chip("hwmon2", "0000:00:1f.5/i2c-" + right + '/' + right + "-0058");
    write("class/hwmon/hwmon2/temp1_crit_alarm", "1\n");
    HwmonSource source(roots(), register_);
    return only_trouble(source).description;
  };
  EXPECT_EQ(supply_with_defect("3", "4"), "Power supply 2 has failed");
  EXPECT_EQ(supply_with_defect("4", "3"), "Power supply 2 has failed");
  EXPECT_THAT(register_.keys("kernel-supply"), SizeIs(2));
}

TEST_F(KernelSupplies, ASupplyThatWasPulledIsAbsent) {
  add_chip("hwmon1", "i2c-1/1-0069");
  EXPECT_TRUE(found_by(source_).supplies.at(0).flag("present"));
  std::filesystem::remove(sys() / "class/hwmon/hwmon1/in1_input");
  write("class/hwmon/hwmon1/in1_min_alarm", "1\n");
  EXPECT_FALSE(found_by(source_).supplies.at(0).flag("present"));
  EXPECT_THAT(descriptions(), IsEmpty());
}

TEST_F(KernelSupplies, ASupplyWithoutANumberIsNamed) {
  for (std::size_t i = 0; i <= supply_limit; ++i) {
    add_mains("ADP" + std::to_string(i), "1");
  }
  EXPECT_THAT(found_by(source_).supplies, SizeIs(supply_limit));
  EXPECT_THAT(source_.read().unreadable, testing::Contains(testing::StartsWith("power supply ADP")));
}

TEST_F(KernelSupplies, ANumberIsFreeOnceItsSupplyIsLongGone) {
  const std::time_t long_ago = std::time(nullptr) - Register::kept_for.count() - 1;
  register_.number_of("kernel-supply", "OLD");
  register_.free_absent("kernel-supply", {}, long_ago);
  add_mains("ADP1", "1");
  read_alone(source_);
  EXPECT_THAT(register_.keys("kernel-supply"), ElementsAre("ADP1"));
}

TEST_F(KernelSupplies, ARegulatorIsNone) {
  add_chip("hwmon1", "i2c-1/1-0040");
  write("class/hwmon/hwmon1/name", "isl68137\n");
  std::filesystem::remove(sys() / "class/hwmon/hwmon1/fan1_input");
  EXPECT_THAT(found_by(source_).supplies, IsEmpty());
}

}  // namespace
}  // namespace tavo::service
