#include <gmock/gmock.h>

#include "core/class_number.h"
#include "hardware/edac.h"
#include "hardware/hwmon.h"
#include "hardware/sysfs.h"
#include "structure.h"
#include "tree.h"

namespace tavo::service {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using Sysfs = Tree;

TEST_F(Sysfs, AnAttributeComesWithoutItsLineEnd) {
  write("name", " coretemp \n");
  EXPECT_EQ(read_attribute(sys() / "name"), "coretemp");
  EXPECT_EQ(read_attribute(sys() / "other"), std::nullopt);
  EXPECT_EQ(read_attribute(sys()), std::nullopt);
}

TEST_F(Sysfs, ANumberIsOneOrNothing) {
  write("number", "-40\n");
  write("text", "off\n");
  EXPECT_EQ(read_number(sys() / "number"), -40);
  EXPECT_EQ(read_number(sys() / "text"), std::nullopt);
}

TEST_F(Sysfs, EntriesAreInTheOrderOfTheirNumbers) {
  for (const char *name : {"hwmon10", "hwmon2", "hwmon1", "other"}) {
    write(name, "");
  }
  std::vector<std::string> names;
  for (const auto &entry : entries(sys(), "hwmon")) {
    names.push_back(entry.filename());
  }
  EXPECT_THAT(names, ElementsAre("hwmon1", "hwmon2", "hwmon10"));
}

class Hwmon : public Tree {
 protected:
  Hwmon() {
    write("class/hwmon/hwmon0/name", "coretemp\n");
    write("class/hwmon/hwmon0/temp1_label", "Package id 1\n");
    write("class/hwmon/hwmon0/temp1_input", "52500\n");
    write("class/hwmon/hwmon0/temp1_crit", "100000\n");
    write("class/hwmon/hwmon1/name", "board\n");
    write("class/hwmon/hwmon1/fan1_input", "2400\n");
    write("class/hwmon/hwmon1/fan2_input", "2500\n");
    write("class/hwmon/hwmon1/fan2_min", "300\n");
  }

  Register register_{""};
  HwmonSource source_{roots(), register_};
};

TEST_F(Hwmon, AProcessorsTemperatureIsItsPackages) {
  Inventory inventory;
  inventory.processors = {Part(processor_kind), Part(processor_kind)};
  read_alone(source_).enter(inventory);
  EXPECT_EQ(inventory.processors[0].text("temperature"), "0");
  EXPECT_EQ(inventory.processors[1].text("temperature"), "52.5");
}

TEST_F(Hwmon, EachFanHasTwoSensorsWithoutAGap) {
  std::vector<std::string> names;
  for (const Part &sensor : found_by(source_).sensors) {
    EXPECT_EQ(sensor.number("number"), static_cast<std::int64_t>(names.size()));
    names.push_back(sensor.text("name"));
  }
  EXPECT_THAT(names, ElementsAre("FAN1_TACH1", "FAN2_TACH1", "FAN1_PRES", "FAN2_PRES"));
}

TEST_F(Hwmon, AFanThatStandsStillIsATrouble) {
  EXPECT_THAT(read_alone(source_).troubles, IsEmpty());
  write("class/hwmon/hwmon1/fan1_input", "0\n");
  EXPECT_THAT(read_alone(source_).troubles, IsEmpty()) << "without a lowest speed, it may be meant to";
  write("class/hwmon/hwmon1/fan2_input", "0\n");
  const Trouble trouble = only_trouble(source_);
  EXPECT_EQ(trouble.description, "Fan 2 has failed");
  EXPECT_EQ(trouble.unit, 2);
}

TEST_F(Hwmon, AProcessorAtItsLimitIsATrouble) {
  write("class/hwmon/hwmon0/temp1_input", "100000\n");
  EXPECT_EQ(only_trouble(source_).description, "Processor 2 is at its critical temperature");
}

TEST_F(Hwmon, OfTwoReadingsOfAProcessorTheFirstCounts) {
  write("class/hwmon/hwmon0/temp2_label", "Package id 1\n");
  write("class/hwmon/hwmon0/temp2_crit", "100000\n");
  write("class/hwmon/hwmon0/temp2_input", "100000\n");
  EXPECT_THAT(read_alone(source_).troubles, IsEmpty());
  write("class/hwmon/hwmon0/temp1_input", "100000\n");
  EXPECT_EQ(only_trouble(source_).description, "Processor 2 is at its critical temperature");
}

TEST_F(Hwmon, APackageWithoutANumberIsNoProcessor) {
  write("class/hwmon/hwmon0/temp1_label", "Package id -1\n");
  write("class/hwmon/hwmon0/temp1_input", "100000\n");
  const Finding finding = read_alone(source_);
  EXPECT_THAT(finding.troubles, IsEmpty());
  EXPECT_FALSE(source_.read().accounts.contains(Topic::ProcessorTemperatures));
}

TEST_F(Hwmon, AProcessorIsGoodBelowTheHysteresis) {
  const auto troubles_at = [&](const std::string &temperature) {
    write("class/hwmon/hwmon0/temp1_input", temperature + '\n');
    return read_alone(source_).troubles.size();
  };
  EXPECT_EQ(troubles_at("99999"), 0U);
  EXPECT_EQ(troubles_at("100000"), 1U);
  EXPECT_EQ(troubles_at("97001"), 1U) << "3 degrees, if the chip does not say";
  EXPECT_EQ(troubles_at("97000"), 0U);
  write("class/hwmon/hwmon0/temp1_crit_hyst", "90000\n");
  EXPECT_EQ(troubles_at("100000"), 1U);
  EXPECT_EQ(troubles_at("90001"), 1U);
  EXPECT_EQ(troubles_at("90000"), 0U);
}

TEST_F(Hwmon, AProcessorThatCannotBeReadIsLeftOut) {
  std::filesystem::remove(sys() / "class/hwmon/hwmon0/temp1_input");
  EXPECT_FALSE(source_.read().accounts.contains(Topic::ProcessorTemperatures));
}

TEST_F(Hwmon, ASlowFanIsGoodOnceItIsFasterThanItsLimit) {
  const auto troubles_at = [&](const std::string &turns) {
    write("class/hwmon/hwmon1/fan2_input", turns + '\n');
    return read_alone(source_).troubles.size();
  };
  EXPECT_EQ(troubles_at("300"), 0U);
  EXPECT_EQ(troubles_at("299"), 1U);
  EXPECT_EQ(troubles_at("313"), 1U);
  EXPECT_EQ(troubles_at("314"), 0U);
  write("class/hwmon/hwmon1/fan2_alarm", "1\n");
  EXPECT_EQ(troubles_at("2500"), 1U);
  write("class/hwmon/hwmon1/fan2_alarm", "0\n");
  EXPECT_EQ(troubles_at("2500"), 0U);
}

TEST_F(Hwmon, FansKeepTheirOrderWhenChipsAreRenumbered) {
  link("class/hwmon/hwmon1/device", "devices/platform/board.1");
  const auto description_of_failed = [&] {
    const Finding finding = read_alone(source_);
    return finding.troubles.size() == 1 ? finding.troubles[0].description : "";
  };
  write("class/hwmon/hwmon1/fan2_input", "0\n");
  EXPECT_EQ(description_of_failed(), "Fan 2 has failed");
  std::filesystem::rename(sys() / "class/hwmon/hwmon1", sys() / "class/hwmon/hwmon7");
  write("class/hwmon/hwmon1/name", "another");
  write("class/hwmon/hwmon1/fan1_input", "900\n");
  link("class/hwmon/hwmon1/device", "devices/platform/a-board-before.1");
  EXPECT_EQ(description_of_failed(), "Fan 2 has failed");
}

TEST_F(Hwmon, AFanKeepsItsPlaceOnARenumberedBus) {
  const auto fans_with_bus = [&](const std::string &bus) {
    std::filesystem::remove_all(sys());
    write("class/hwmon/hwmon1/fan1_input", "900\n");
    link("class/hwmon/hwmon1/device", "devices/0000:00:1f.4/i2c-" + bus + '/' + bus + "-002e");
    HwmonSource source(roots(), register_);
    return found_by(source).sensors.size();
  };
  EXPECT_EQ(fans_with_bus("3"), 2U);
  EXPECT_EQ(fans_with_bus("10"), 2U) << "there is no second fan";
  EXPECT_THAT(register_.keys("hwmon-fan"), SizeIs(1));
}

TEST_F(Hwmon, AFanThatGoesMovesNoOther) {
  link("class/hwmon/hwmon1/device", "devices/platform/board.1");
  write("class/hwmon/hwmon2/fan1_input", "900\n");
  write("class/hwmon/hwmon2/fan1_alarm", "1\n");
  link("class/hwmon/hwmon2/device", "devices/platform/board.2");
  const Trouble before = only_trouble(source_);
  std::filesystem::remove_all(sys() / "class/hwmon/hwmon1");
  HwmonSource later(roots(), register_);
  for (HwmonSource *source : {&source_, &later}) {
    const Trouble trouble = only_trouble(*source);
    EXPECT_EQ(trouble.description, "Fan 3 has failed");
    EXPECT_EQ(trouble.unit, before.unit);
    const Inventory inventory = found_by(*source);
    ASSERT_THAT(inventory.sensors, SizeIs(6));
    const auto &presence = *find_field(sensor_kind, "presence");
    EXPECT_EQ(inventory.sensors[0].written(presence), "absent");
    EXPECT_EQ(inventory.sensors[2].written(presence), "present");
  }
  std::filesystem::remove_all(sys() / "class/hwmon/hwmon2");
  EXPECT_THAT(found_by(source_).sensors, IsEmpty()) << "the management controller may know fans";
}

TEST_F(Hwmon, ChipsOfOneDeviceShareNoFan) {
  link("class/hwmon/hwmon1/device", "devices/platform/board.1");
  link("class/hwmon/hwmon2/device", "devices/platform/board.1");
  write("class/hwmon/hwmon2/fan1_input", "900\n");
  EXPECT_THAT(found_by(source_).sensors, SizeIs(6));
}

TEST_F(Hwmon, FansOfACardAreNotTheServers) {
  const std::string bridge = "devices/pci0000:00/0000:00:01.0";
  const std::string graphics = bridge + "/0000:01:00.0";
  write(bridge + "/class", "0x060400\n");
  write(graphics + "/class", "0x030000\n");
  write("devices/pci0000:00/0000:00:1f.4/class", "0x0c0500\n");
  const auto add_chip = [&](const std::string &chip, const std::string &device) {
    write("class/hwmon/" + chip + "/fan1_input", "0\n");
    write("class/hwmon/" + chip + "/fan1_min", "300\n");
    link("class/hwmon/" + chip + "/device", device);
  };
  std::filesystem::remove_all(sys() / "class/hwmon/hwmon1");
  add_chip("hwmon2", graphics);
  add_chip("hwmon3", graphics + "/i2c-3/3-002e");
  EXPECT_THAT(read_alone(source_).troubles, IsEmpty());
  EXPECT_THAT(found_by(source_).sensors, IsEmpty());
  add_chip("hwmon4", "devices/pci0000:00/0000:00:1f.4/i2c-0/0-002d");
  EXPECT_THAT(read_alone(source_).troubles, SizeIs(1));
}

TEST_F(Hwmon, FansOfTheControllerAreLeftToIt) {
  for (const char *driver : {"ibmpex\n", "aem2\n"}) {
    write("class/hwmon/hwmon2/name", driver);
    write("class/hwmon/hwmon2/fan1_input", "2400\n");
    EXPECT_THAT(found_by(source_).sensors, SizeIs(4)) << driver;
  }
}

TEST_F(Hwmon, ProcessorsAreInTheOrderOfTheirDevices) {
  link("class/hwmon/hwmon3/device", "devices/pci0000:00/0000:00:18.3");
  link("class/hwmon/hwmon2/device", "devices/pci0000:00/0000:00:19.3");
  for (const char *number : {"2", "3"}) {
    const std::string chip = "class/hwmon/hwmon" + std::string(number);
    write(chip + "/name", "k10temp\n");
    write(chip + "/temp1_input", number + std::string("0000\n"));
  }
  std::filesystem::remove_all(sys() / "class/hwmon/hwmon0");
  Inventory inventory;
  inventory.processors = {Part(processor_kind), Part(processor_kind)};
  read_alone(source_).enter(inventory);
  EXPECT_EQ(inventory.processors[0].text("temperature"), "30.0");
  EXPECT_EQ(inventory.processors[1].text("temperature"), "20.0");
}

class Edac : public Tree {
 protected:
  Edac() {
    write("devices/system/edac/mc/mc0/dimm0/dimm_label", "DIMM_A1\n");
    write("devices/system/edac/mc/mc0/dimm0/dimm_ce_count", "3\n");
    write("devices/system/edac/mc/mc0/dimm0/dimm_ue_count", "0\n");
  }

  EdacSource source_{roots()};
};

TEST_F(Edac, AFewCorrectedErrorsAreNone) {
  EXPECT_THAT(source_.read().troubles, IsEmpty());
}

TEST_F(Edac, ErrorsOfAModuleAreTroubles) {
  write("devices/system/edac/mc/mc0/dimm0/dimm_ce_count", "100\n");
  write("devices/system/edac/mc/mc0/dimm0/dimm_ue_count", "1\n");
  const Finding finding = source_.read();
  ASSERT_THAT(finding.troubles, SizeIs(2));
  EXPECT_EQ(finding.troubles[0].description, "Memory module DIMM_A1 has had errors that cannot be corrected");
  EXPECT_EQ(finding.troubles[0].severity, "critical");
  EXPECT_EQ(finding.troubles[1].description, "Memory module DIMM_A1 has had many corrected errors");
  EXPECT_EQ(finding.troubles[1].severity, "minor");
}

TEST_F(Edac, AModuleIsFoundByWhatTheFirmwareCallsIt) {
  const auto module = [](int size, const std::string &name) {
    return Structure(17, 0x22).word(0x0c, size).text(0x10, name).text(0x11, "NODE 0").octets();
  };
  write("firmware/dmi/tables/DMI", module(8192, "DIMM_A0") + module(0, "DIMM_A9") + module(8192, "DIMM_A1"));
  const auto faulty_part = [&](const std::string &label) {
    write("devices/system/edac/mc/mc0/dimm0/dimm_label", label + '\n');
    const Trouble trouble = source_.read().troubles.at(0);
    return std::vector{trouble.class_code, trouble.unit};
  };
  write("devices/system/edac/mc/mc0/dimm0/dimm_ue_count", "1\n");
  EXPECT_THAT(faulty_part("DIMM_A1"), ElementsAre(class_number::memory, 3)) << "empty slots count";
  EXPECT_THAT(faulty_part("NODE 0 DIMM_A1"), ElementsAre(class_number::memory, 3));
  EXPECT_THAT(faulty_part("mc#0csrow#0channel#0"), ElementsAre(class_number::server, 1));
  EXPECT_THAT(faulty_part(""), ElementsAre(class_number::server, 1));
  std::filesystem::remove(sys() / "firmware/dmi/tables/DMI");
  EXPECT_THAT(faulty_part("DIMM_A1"), ElementsAre(class_number::server, 1)) << "nobody knows its number";
}

}  // namespace
}  // namespace tavo::service
