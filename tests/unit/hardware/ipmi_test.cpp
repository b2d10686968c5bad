#include "hardware/ipmi.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <utility>

#include "controller.h"
#include "hardware/ipmi_sdr.h"
#include "hardware/ipmi_storage.h"
#include "hardware/leds.h"
#include "tree.h"

namespace tavo::service {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::uint8_t fan_type = 4;
constexpr std::uint8_t fan_entity = 0x1d;
constexpr std::uint8_t turns = 18;
constexpr std::uint8_t presence_type = 0x25;
constexpr std::uint8_t specific = 0x6f;

// It turns at a hundred times what it reads, and is slow at 500.
MadeUpSensor fan(std::uint8_t number, const std::string &name) {
  return {.number = number,
          .type = fan_type,
          .entity = fan_entity,
          .instance = number,
          .name = name,
          .unit = turns,
          .multiplier = 100,
          .lower_critical = 5,
          .hysteresis = 2};
}

MadeUpSensor temperature(std::uint8_t number, const std::string &name) {
  return {.number = number,
          .name = name,
          .readable = 0x30,
          .upper_non_recoverable = 90,
          .upper_critical = 80,
          .hysteresis = 5};
}

std::vector<IpmiOctets> all_records(IpmiDevice &device) {
  SdrRecords found;
  read_sdr(device, found, std::chrono::steady_clock::time_point::max());
  return found.records;
}

class Ipmi : public Tree {
 protected:
  static std::unique_ptr<MadeUpController> make_controller() { return std::make_unique<MadeUpController>(); }

  // One reading of the sensors: they are read every sixth time.
  Finding read() {
    for (int i = 0; i < 5; ++i) {
      source_.read();
    }
    return source_.read();
  }

  Inventory found() {
    Inventory inventory;
    read().enter(inventory);
    return inventory;
  }

  std::vector<std::string> descriptions() {
    std::vector<std::string> all;
    for (const Trouble &trouble : read().troubles) {
      all.push_back(trouble.severity + ": " + trouble.description);
    }
    return all;
  }

  std::unique_ptr<MadeUpController> made_ = make_controller();
  MadeUpController &controller_ = *made_;
  Register register_{directory_ / "register.json"};
  IpmiSource source_{roots(), register_, std::move(made_)};
};

using IpmiSdr = Ipmi;

TEST_F(IpmiSdr, AFullRecordTellsOfASensor) {
  const IpmiInventory inventory = decode_sdr({full_record(fan(9, "SYS_FAN1"))});
  ASSERT_THAT(inventory.sensors, SizeIs(1));
  const IpmiSensor &sensor = inventory.sensors[0];
  EXPECT_EQ(sensor.number, 9);
  EXPECT_EQ(sensor.name, "SYS_FAN1");
  EXPECT_EQ(sensor.unit, turns);
  EXPECT_EQ(sensor.conversion->value(21), 2100);
  EXPECT_EQ(sensor.thresholds.lower_critical, 500);
  EXPECT_EQ(sensor.thresholds.upper_non_recoverable, std::nullopt);
  EXPECT_EQ(sensor.falling_hysteresis, 200);
}

TEST_F(IpmiSdr, ACompactRecordStandsForSeveralSensors) {
  const IpmiInventory inventory = decode_sdr({compact_record(30, 8, specific, 10, 1, "PS", 3)});
  ASSERT_THAT(inventory.sensors, SizeIs(3));
  EXPECT_EQ(inventory.sensors[2].number, 32);
  EXPECT_EQ(inventory.sensors[2].entity.instance, 3);
  EXPECT_EQ(inventory.sensors[2].name, "PS 2");
}

TEST_F(IpmiSdr, ARecordThatIsCutShortIsLeftOut) {
  for (const IpmiOctets &whole :
       {full_record(fan(9, "SYS_FAN1")), compact_record(30, 8, specific, 10, 1, "PS"), fru_record(3, 10, 1)}) {
    for (std::size_t size = 0; size < whole.size(); ++size) {
      const IpmiInventory inventory = decode_sdr({IpmiOctets(whole.begin(), whole.begin() + static_cast<int>(size))});
      EXPECT_THAT(inventory.sensors, IsEmpty()) << size;
      EXPECT_THAT(inventory.frus, IsEmpty()) << size;
    }
  }
}

TEST_F(IpmiSdr, SensorsOfOthersAreLeftOut) {
  IpmiOctets record = full_record(fan(9, "SYS_FAN1"));
  record[5] = 0x2c;
  EXPECT_THAT(decode_sdr({record}).sensors, IsEmpty());
}

TEST_F(IpmiSdr, AReadingThatIsNoNumberIsNone) {
  IpmiConversion conversion;
  conversion.multiplier = 1;
  conversion.linearization = 1;  // a logarithm
  EXPECT_EQ(conversion.value(0), std::nullopt);
  EXPECT_NE(conversion.value(10), std::nullopt);
}

TEST_F(IpmiSdr, ANameIsOneLine) {
  EXPECT_EQ(ipmi_text("  FAN\n1 \xff "), "FAN?1 ?");
  EXPECT_EQ(ipmi_text("FAN\0X"), "FAN");
  const IpmiInventory inventory = decode_sdr({full_record(fan(9, ""))});
  EXPECT_EQ(inventory.sensors.at(0).name, "Sensor 9");
}

TEST_F(IpmiSdr, ARepositoryThatLoopsEnds) {
  class Loop : public MadeUpController {
    IpmiOctets ask(const IpmiCommand &command) override {
      IpmiOctets answer = MadeUpController::ask(command);
      if (command.command == 0x23 && answer.size() > 1) {
        answer[1] = 1;  // the next one is the first
        answer[2] = 0;
      }
      return answer;
    }
  };
  Loop loop;
  loop.sdr = {full_record(fan(9, "SYS_FAN1")), full_record(fan(10, "SYS_FAN2"))};
  EXPECT_THAT(all_records(loop), SizeIs(2)) << "the first goes by two numbers";
}

TEST_F(IpmiSdr, ARecordLargerThanAnOffsetIsLeftOut) {
  IpmiOctets record = full_record(fan(9, "SYS_FAN1"));
  record[4] = 0xff;
  record.resize(5 + 0xff);
  controller_.sdr = {record};
  EXPECT_THAT(all_records(controller_), SizeIs(1));
  record.resize(100);
  controller_.sdr = {record};
  EXPECT_THAT(all_records(controller_), IsEmpty());
}

TEST_F(IpmiSdr, ARecordThatCannotBeReadIsTriedThreeTimes) {
  IpmiOctets broken = full_record(fan(10, "SYS_FAN2"));
  broken.resize(20);
  controller_.sdr = {full_record(fan(9, "SYS_FAN1")), broken};
  const Finding finding = read();
  EXPECT_THAT(finding.unreadable, ElementsAre("the controller's sensor records could not all be read"));
  read();
  controller_.sdr[1] = full_record(fan(10, "SYS_FAN2"));
  EXPECT_THAT(found().sensors, SizeIs(4));
  controller_.sdr[1] = broken;
  ++controller_.sdr_changes;
  read();
  read();
  read();
  const int before = controller_.asked[{0x0a, 0x23}];
  EXPECT_THAT(found().sensors, SizeIs(4)) << "the complete records stay";
  EXPECT_EQ((controller_.asked[{0x0a, 0x23}]), before);
}

TEST_F(IpmiSdr, SlowRecordsAreReadInSeveralReadings) {
  auto made = make_controller();
  made->sdr = {full_record(fan(9, "SYS_FAN1")), full_record(fan(10, "SYS_FAN2")), full_record(fan(11, "SYS_FAN3"))};
  IpmiSource source(roots(), register_, std::move(made), std::chrono::milliseconds(0));
  const auto sensors_after_reading = [&] { return found_by(source).sensors.size(); };
  EXPECT_EQ(sensors_after_reading(), 0U);
  EXPECT_THAT(source.read().unreadable, ElementsAre("the controller's sensor records have not all been read yet"));
  EXPECT_EQ(sensors_after_reading(), 6U);
  EXPECT_THAT(source.read().unreadable, IsEmpty());
}

TEST_F(IpmiSdr, AreasOfOthersAreLeftOut) {
  IpmiOctets record = fru_record(3, 10, 1);
  EXPECT_THAT(decode_sdr({record}).frus, SizeIs(1));
  record[5] = 0x2c;
  EXPECT_THAT(decode_sdr({record}).frus, IsEmpty());
  record[5] = 0x20;
  record[7] = 0x88;  // another unit of this controller
  EXPECT_THAT(decode_sdr({record}).frus, IsEmpty());
}

TEST_F(Ipmi, AMachineWithoutAControllerSaysSo) {
  controller_.is_there = false;
  EXPECT_THROW(source_.read(), IpmiSilence);
  IpmiSource real(roots(), register_);
  try {
    real.read();
    FAIL();
  } catch (const std::exception &error) {
    EXPECT_EQ(error.what(), (roots().dev / "ipmi0").string() + ": No such file or directory");
  }
}

TEST_F(Ipmi, AControllerThatMayNotBeAskedIsNoTrouble) {
  controller_.is_forbidden = true;
  EXPECT_THROW(source_.read(), IpmiNoPermission);
}

TEST_F(Ipmi, AMissingPermissionIsTold) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can take a permission from itself";
  }
  std::filesystem::create_directories(roots().dev);
  std::ofstream(roots().dev / "ipmi0").close();
  EXPECT_EXIT(
      {
        constexpr uid_t nobody = 65534;
        OpenIpmiDevice device(roots().dev / "ipmi0");
        const bool is_nobody = setresuid(nobody, nobody, nobody) == 0;
        try {
          device.ask({.net_fn = 6, .command = 1});
        } catch (const IpmiNoPermission &) {
          _Exit(is_nobody ? 0 : 1);
        }
        _Exit(1);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(Ipmi, FansHaveRowsInTheOrderOfTheRecords) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1")), full_record(fan(8, "SYS_FAN2"))};
  controller_.reads(9, 30);
  std::vector<std::string> sensors;
  for (const Part &sensor : found().sensors) {
    sensors.push_back(sensor.text("name") + ' ' + sensor.written(*find_field(sensor_kind, "presence")));
  }
  EXPECT_THAT(sensors,
              ElementsAre("FAN1_TACH1 present", "FAN2_TACH1 unknown", "FAN1_PRES present", "FAN2_PRES unknown"));
}

TEST_F(Ipmi, ManyFansAreTwoToAModule) {
  for (std::uint8_t number = 1; number <= 8; ++number) {
    controller_.sdr.push_back(full_record(fan(number, "FAN" + std::to_string(number))));
    controller_.reads(number, 30);
  }
  controller_.reads(8, 3);
  const Finding finding = read();
  Inventory inventory;
  finding.enter(inventory);
  EXPECT_EQ(inventory.sensors.at(7).text("name"), "FAN4_TACH2");
  EXPECT_EQ(finding.troubles.at(0).unit, 7);
}

TEST_F(Ipmi, AFanIsShownOnce) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1"))};
  controller_.reads(9, 0);
  write("class/hwmon/hwmon0/name", "board\n");
  write("class/hwmon/hwmon0/fan1_input", "2400\n");
  EXPECT_THAT(found().sensors, IsEmpty());
  EXPECT_THAT(descriptions(), IsEmpty());
}

TEST_F(Ipmi, ASlowFanIsATroubleUntilItIsFastEnough) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1"))};
  controller_.reads(9, 6);
  EXPECT_THAT(descriptions(), IsEmpty());
  controller_.reads(9, 5);
  EXPECT_THAT(descriptions(), ElementsAre("major: Fan 1 (SYS_FAN1) has failed"));
  controller_.reads(9, 6);
  EXPECT_THAT(descriptions(), SizeIs(1)) << "within the hysteresis";
  controller_.reads(9, 7);
  EXPECT_THAT(descriptions(), IsEmpty());
}

TEST_F(Ipmi, AFanThatWasTakenOutIsMissing) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1")),
                     compact_record(20, presence_type, specific, fan_entity, 9, "FAN1 Presence")};
  controller_.reads(9, 30);
  controller_.is_in(20, 2);
  EXPECT_THAT(descriptions(), IsEmpty()) << "its place may be meant to be empty";
  controller_.is_in(20, 1);
  EXPECT_THAT(descriptions(), IsEmpty());
  controller_.is_in(20, 2);
  controller_.reads(9, 0);
  const Finding finding = read();
  ASSERT_THAT(finding.troubles, SizeIs(1));
  EXPECT_EQ(finding.troubles[0].description, "Fan 1 (SYS_FAN1) is missing");
  EXPECT_EQ(finding.troubles[0].cause, 238);
  EXPECT_EQ(finding.troubles[0].missing->number, 1);
  Inventory inventory;
  finding.enter(inventory);
  EXPECT_EQ(inventory.sensors.at(0).written(*find_field(sensor_kind, "presence")), "absent");
}

TEST_F(Ipmi, AReadingMayBeMissingNowAndThen) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1"))};
  controller_.reads(9, 3);
  EXPECT_THAT(descriptions(), SizeIs(1));
  controller_.readings[9] = {3, 0x60};  // unavailable
  EXPECT_THAT(descriptions(), SizeIs(1));
  controller_.readings.clear();
  EXPECT_THAT(descriptions(), SizeIs(1));
  EXPECT_THAT(descriptions(), IsEmpty()) << "it is no fan that can be told about";
}

TEST_F(Ipmi, ATemperatureIsATroubleAtItsThreshold) {
  controller_.sdr = {full_record(temperature(1, "DIMM Temp"))};
  controller_.reads(1, 79);
  EXPECT_THAT(descriptions(), IsEmpty());
  controller_.reads(1, 80);
  EXPECT_THAT(descriptions(), ElementsAre("major: DIMM Temp is at its critical temperature"));
  controller_.reads(1, 90);
  EXPECT_THAT(descriptions(), ElementsAre("critical: DIMM Temp is at a temperature that damages hardware"));
  controller_.reads(1, 86);
  EXPECT_THAT(descriptions(), ElementsAre("critical: DIMM Temp is at a temperature that damages hardware"));
  controller_.reads(1, 76);
  EXPECT_THAT(descriptions(), ElementsAre("major: DIMM Temp is at its critical temperature"));
  controller_.reads(1, 75);
  EXPECT_THAT(descriptions(), IsEmpty());
}

TEST_F(Ipmi, ThresholdsAreThoseThatAreSet) {
  controller_.sdr = {full_record(temperature(1, "DIMM Temp"))};
  controller_.thresholds[1] = {0x10, 0, 0, 0, 0, 50, 0};
  controller_.reads(1, 60);
  EXPECT_THAT(descriptions(), SizeIs(1));
}

TEST_F(Ipmi, AThresholdOfZeroIsNone) {
  MadeUpSensor sensor = temperature(1, "DIMM Temp");
  sensor.upper_non_recoverable = 0;
  controller_.sdr = {full_record(sensor)};
  controller_.reads(1, 30);
  EXPECT_THAT(descriptions(), IsEmpty());
  controller_.reads(1, 80);
  EXPECT_THAT(descriptions(), SizeIs(1));
}

TEST_F(Ipmi, TemperaturesGoByTheirNames) {
  controller_.sdr = {full_record(temperature(1, "Inlet Temp")), full_record(temperature(2, "Exhaust Temp")),
                     full_record(temperature(3, "PCH Temp")), full_record(temperature(4, "Board Temp"))};
  for (const std::uint8_t sensor : {1, 2, 3, 4}) {
    controller_.reads(sensor, static_cast<std::uint8_t>(20 + sensor));
  }
  const Inventory inventory = found();
  EXPECT_EQ(inventory.environment.text("ambient"), "21.0");
  EXPECT_EQ(inventory.environment.text("front"), "21.0");
  EXPECT_EQ(inventory.environment.text("rear"), "22.0");
  EXPECT_EQ(inventory.environment.text("iohub1"), "23.0");
  EXPECT_EQ(inventory.environment.text("iohub2"), "0") << "there is none";
}

TEST_F(Ipmi, ProcessorsAreCountedFromOneOrNought) {
  for (const std::uint8_t first : {0, 1, 0x60}) {
    controller_.sdr.clear();
    for (std::uint8_t i = 0; i < 2; ++i) {
      MadeUpSensor sensor = temperature(static_cast<std::uint8_t>(i + 1), "CPU Temp");
      sensor.entity = 3;
      sensor.instance = static_cast<std::uint8_t>(first + i);
      controller_.sdr.push_back(full_record(sensor));
    }
    ++controller_.sdr_changes;
    controller_.reads(1, 40);
    controller_.reads(2, 85);
    const Finding finding = read();
    ASSERT_THAT(finding.troubles, SizeIs(1));
    EXPECT_EQ(finding.troubles[0].class_code, 3);
    EXPECT_EQ(finding.troubles[0].unit, 2) << "counted from " << int{first};
    Inventory inventory;
    inventory.processors = {Part(processor_kind), Part(processor_kind)};
    finding.enter(inventory);
    EXPECT_EQ(inventory.processors[1].text("temperature"), "85.0");
  }
}

TEST_F(Ipmi, ProcessorsThatHwmonKnowsAreLeftToIt) {
  MadeUpSensor sensor = temperature(1, "CPU1 Temp");
  sensor.entity = 3;
  controller_.sdr = {full_record(sensor)};
  controller_.reads(1, 85);
  Inventory inventory;
  inventory.processors.emplace_back(processor_kind);
  read().enter(inventory);
  EXPECT_EQ(inventory.processors[0].text("temperature"), "85.0");
  EXPECT_THAT(descriptions(), SizeIs(1));
  write("class/hwmon/hwmon0/name", "k10temp\n");
  write("class/hwmon/hwmon0/temp1_input", "84000\n");
  inventory.processors[0] = Part(processor_kind);
  read().enter(inventory);
  EXPECT_EQ(inventory.processors[0].text("temperature"), "0");
  EXPECT_THAT(descriptions(), IsEmpty());
}

TEST_F(Ipmi, ConsumedPowerIsWhatTheControllerSays) {
  controller_.sdr = {full_record({.number = 1, .type = 0x0b, .name = "System Power", .unit = 6})};
  controller_.reads(1, 210);
  EXPECT_EQ(found().environment.text("power"), "210.0");
  controller_.power = IpmiOctets(18);
  controller_.power[1] = 0x2c;
  controller_.power[2] = 0x01;
  EXPECT_EQ(found().environment.text("power"), "210.0") << "it does not measure";
  controller_.power[17] = 0x40;
  EXPECT_EQ(found().environment.text("power"), "300.0");
}

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

TEST(IpmiFru, AnAreaTellsOfBoardAndProduct) {
  const IpmiFru fru = decode_fru(
      made_up_fru({"Board maker", "Board", "B-1", "BP-1", ""}, {"Maker", "Product", "P-1", "1.2", "S-1", "", ""}, 750));
  EXPECT_EQ(fru.board_manufacturer, "Board maker");
  EXPECT_EQ(fru.board_product, "Board");
  EXPECT_EQ(fru.board_serial, "B-1");
  EXPECT_EQ(fru.product_name, "Product");
  EXPECT_EQ(fru.product_part, "P-1");
  EXPECT_EQ(fru.product_version, "1.2");
  EXPECT_EQ(fru.product_serial, "S-1");
  EXPECT_EQ(fru.supply_capacity, 750U);
}

TEST(IpmiFru, AnAreaThatIsCutShortTellsTheRest) {
  const IpmiOctets whole =
      made_up_fru({"Board maker", "Board", "B-1", "BP-1", ""}, {"Maker", "Product", "P-1", "1.2", "S-1", "", ""}, 750);
  bool told_of_board_alone = false;
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const IpmiFru fru = decode_fru({whole.begin(), whole.begin() + static_cast<int>(size)});
    EXPECT_EQ(fru.supply_capacity, std::nullopt) << size;
    told_of_board_alone = told_of_board_alone || (fru.board_product == "Board" && fru.product_name.empty());
  }
  EXPECT_TRUE(told_of_board_alone);
}

TEST(IpmiFru, AnAreaWithAWrongChecksumTellsNothing) {
  IpmiOctets area = made_up_fru({"Board maker", "Board", "B-1", "", ""}, {"Maker", "Product", "", "", "S-1", "", ""});
  ++area[20];
  EXPECT_EQ(decode_fru(area).board_product, "");
  EXPECT_EQ(decode_fru(area).product_name, "Product");
  ++area[3];
  EXPECT_EQ(decode_fru(area), IpmiFru());
}

class IpmiSupply : public Ipmi {
 protected:
  IpmiSupply() {
    controller_.sdr = {compact_record(30, supply_type, specific, supply_entity, 1, "PS1 Status"),
                       compact_record(31, supply_type, specific, supply_entity, 2, "PS2 Status"),
                       fru_record(5, supply_entity, 2)};
    controller_.is_in(30, present);
    controller_.is_in(31, present);
    controller_.frus[5] =
        made_up_fru({"", "", "", "", ""}, {"Maker", "SUPPLY-800", "P-1", "01.02", "S-2", "", ""}, 800);
  }

  static constexpr std::uint8_t supply_type = 8;
  static constexpr std::uint8_t supply_entity = 10;
  static constexpr std::uint16_t present = 1;
};

TEST_F(IpmiSupply, ASupplySaysWhatItIs) {
  const Inventory inventory = found();
  ASSERT_THAT(inventory.supplies, SizeIs(2));
  EXPECT_EQ(inventory.supplies[0].text("model"), "") << "it has no area";
  EXPECT_EQ(inventory.supplies[1].text("model"), "SUPPLY-800");
  EXPECT_EQ(inventory.supplies[1].text("serial"), "S-2");
  EXPECT_EQ(inventory.supplies[1].text("revision"), "01.02");
  EXPECT_EQ(inventory.supplies[1].number("output-power-max"), 800);
  EXPECT_EQ(inventory.supplies[1].number("status"), 0);
}

TEST_F(IpmiSupply, ADefectIsATrouble) {
  EXPECT_THAT(descriptions(), IsEmpty());
  controller_.is_in(31, present | 1 << 3);
  EXPECT_THAT(descriptions(), ElementsAre("major: Power supply 2 has no input"));
  controller_.is_in(31, present | 1 << 3 | 1 << 1);
  const Finding finding = read();
  ASSERT_THAT(finding.troubles, SizeIs(1));
  EXPECT_EQ(finding.troubles[0].description, "Power supply 2 has failed");
  EXPECT_EQ(finding.troubles[0].class_code, 10);
  EXPECT_EQ(finding.troubles[0].unit, 2);
  Inventory inventory;
  finding.enter(inventory);
  EXPECT_NE(inventory.supplies.at(1).number("status"), 0);
  controller_.is_in(31, present | 1 << 2);
  EXPECT_THAT(descriptions(), ElementsAre("minor: Power supply 2 is about to fail"));
}

TEST_F(IpmiSupply, ASupplyThatWasTakenOutIsMissing) {
  controller_.is_in(30, 0);
  EXPECT_THAT(descriptions(), IsEmpty()) << "its bay may be meant to be empty";
  controller_.is_in(31, 0);
  EXPECT_THAT(descriptions(), ElementsAre("warning: Power supply 2 is missing"));
  EXPECT_FALSE(found().supplies.at(1).flag("present"));
  EXPECT_TRUE(register_.forget_part("supply", 2));
  EXPECT_THAT(descriptions(), IsEmpty());
}

TEST_F(IpmiSupply, ASupplyThatIsNotToldOfIsNotMissing) {
  EXPECT_THAT(descriptions(), IsEmpty());
  auto busy = std::make_unique<MadeUpController>();
  busy->sdr = controller_.sdr;
  IpmiSource source(roots(), register_, std::move(busy));
  const Finding finding = source.read();
  EXPECT_THAT(finding.troubles, IsEmpty());
  Inventory inventory;
  finding.enter(inventory);
  EXPECT_TRUE(inventory.supplies.at(0).flag("present")) << "it was there before";
}

TEST_F(IpmiSupply, TwoSensorsOfASupplyAreOneSupply) {
  controller_.sdr.push_back(compact_record(32, supply_type, specific, supply_entity, 2, "PS2 Input"));
  controller_.is_in(32, 1 << 3);
  EXPECT_THAT(found().supplies, SizeIs(2));
  EXPECT_THAT(descriptions(), ElementsAre("major: Power supply 2 has no input"));
  controller_.is_in(32, 0);
  EXPECT_THAT(descriptions(), IsEmpty());
}

TEST_F(IpmiSupply, SensorsOfTheBoardAreASupplyEach) {
  controller_.sdr = {compact_record(30, supply_type, specific, 7, 1, "PS1 Status"),
                     compact_record(31, supply_type, specific, 7, 1, "PS2 Status")};
  EXPECT_THAT(found().supplies, SizeIs(2));
}

TEST_F(IpmiSupply, ASupplyKeepsItsNumber) {
  EXPECT_THAT(descriptions(), IsEmpty());
  controller_.sdr.erase(controller_.sdr.begin());
  ++controller_.sdr_changes;
  controller_.is_in(31, present | 1 << 1);
  const Finding finding = read();
  ASSERT_THAT(finding.troubles, SizeIs(1));
  EXPECT_EQ(finding.troubles[0].description, "Power supply 2 has failed");
  Inventory inventory;
  finding.enter(inventory);
  ASSERT_THAT(inventory.supplies, SizeIs(2));
  EXPECT_FALSE(inventory.supplies[0].flag("present"));
  EXPECT_EQ(inventory.supplies[1].text("model"), "SUPPLY-800");
}

TEST_F(IpmiSupply, OnlyEmptyAreasAreReadAgain) {
  controller_.sdr.push_back(fru_record(4, supply_entity, 1));
  EXPECT_EQ(found().supplies.at(1).text("model"), "SUPPLY-800");
  controller_.frus[4] = std::exchange(controller_.frus[5], {});
  const Inventory inventory = found();
  EXPECT_EQ(inventory.supplies.at(0).text("model"), "SUPPLY-800") << "it could be read in the end";
  EXPECT_EQ(inventory.supplies.at(1).text("model"), "SUPPLY-800") << "what was read stays";
}

TEST_F(IpmiSupply, AnAreaIsReadAgainWhenASupplyComes) {
  for (int i = 0; i < 5; ++i) {
    read();
  }
  const int before = controller_.asked[{0x0a, 0x11}];
  read();
  EXPECT_EQ((controller_.asked[{0x0a, 0x11}]), before);
  controller_.is_in(31, 0);
  read();
  controller_.is_in(31, present);
  controller_.frus[5] = made_up_fru({"", "", "", "", ""}, {"Maker", "SUPPLY-900", "", "", "", "", ""});
  EXPECT_EQ(found().supplies.at(1).text("model"), "SUPPLY-900");
}

TEST_F(IpmiSupply, ItsFanHasARowOfItsOwn) {
  MadeUpSensor its_fan = fan(40, "PS2 Fan");
  its_fan.entity = supply_entity;
  its_fan.instance = 2;
  controller_.sdr.push_back(full_record(fan(9, "SYS_FAN1")));
  controller_.sdr.push_back(full_record(its_fan));
  controller_.reads(9, 30);
  controller_.reads(40, 3);
  std::vector<std::string> sensors;
  for (const Part &sensor : found().sensors) {
    EXPECT_EQ(sensor.number("number"), static_cast<std::int64_t>(sensors.size()));
    sensors.push_back(sensor.text("name"));
  }
  EXPECT_THAT(sensors, ElementsAre("FAN1_TACH1", "PSU2_FAN_SPEED", "FAN1_PRES", "PSU2_PRES"));
  EXPECT_THAT(descriptions(), ElementsAre("major: Power supply 2: its fan has failed"));
}

TEST_F(IpmiSupply, ThereAreNoMoreThanThePlatformKnows) {
  for (std::uint8_t instance = 3; instance < 40; ++instance) {
    controller_.sdr.push_back(
        compact_record(static_cast<std::uint8_t>(instance + 50), supply_type, specific, supply_entity, instance, "PS"));
  }
  EXPECT_THAT(found().supplies, SizeIs(supply_limit));
}

TEST_F(Ipmi, TheServersFruFillsWhatSmbiosLacks) {
  controller_.sdr = {full_record(temperature(1, "Temp"))};
  controller_.frus[0] =
      made_up_fru({"Board maker", "Board", "B-1", "", ""}, {"Maker", "Server", "P-1", "", "S-1", "", ""});
  Inventory inventory;
  inventory.server.set("serial", "");
  inventory.server.set("product-name", "From SMBIOS");
  inventory.server.set("board-readable", "no");
  read().enter(inventory);
  EXPECT_EQ(inventory.server.text("serial"), "S-1");
  EXPECT_EQ(inventory.server.text("product-name"), "From SMBIOS");
  EXPECT_TRUE(inventory.server.flag("board-readable"));
  EXPECT_EQ(inventory.server.text("board-serial"), "B-1");
}

TEST_F(Ipmi, AControllerThatFallsSilentIsATrouble) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1"))};
  controller_.reads(9, 3);
  EXPECT_THAT(descriptions(), SizeIs(1));
  controller_.is_silent = true;
  const Finding finding = read();
  EXPECT_THAT(finding.unreadable, ElementsAre("/dev/ipmi0: the driver timed out"));
  EXPECT_THAT(finding.troubles, SizeIs(2)) << "what was known stays";
}

TEST_F(Ipmi, SilenceFromTheStartDecidesNothing) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1"))};
  controller_.is_silent = true;
  EXPECT_THAT(read().undecided, ElementsAre(""));
  controller_.is_silent = false;
  EXPECT_THAT(read().undecided, IsEmpty());
}

TEST_F(Ipmi, AControllerThatIsStuckIsATrouble) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1"))};
  controller_.reads(9, 3);
  EXPECT_THAT(descriptions(), SizeIs(1));
  controller_.is_stuck = true;
  read();
  read();
  const Finding finding = read();
  EXPECT_THAT(finding.unreadable, ElementsAre("the controller does not answer"));
  EXPECT_THAT(finding.troubles, SizeIs(2)) << "what was known stays";
}

TEST_F(Ipmi, RecordsAreReadAgainWhenTheyChange) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1"))};
  EXPECT_THAT(found().sensors, SizeIs(2));
  controller_.sdr.push_back(full_record(fan(10, "SYS_FAN2")));
  ++controller_.sdr_changes;
  EXPECT_THAT(found().sensors, SizeIs(4));
  const int before = controller_.asked[{0x0a, 0x23}];
  read();
  EXPECT_EQ((controller_.asked[{0x0a, 0x23}]), before);
}

constexpr std::uint8_t processor_type = 7;
constexpr std::uint8_t memory_type = 12;
constexpr std::uint8_t drive_type = 13;

class IpmiSel : public Ipmi {
 protected:
  // An event that the controller logs: the sensor enters the state or leaves it.
  void log(std::uint8_t type, std::uint8_t sensor, std::uint8_t state, bool entered = true) {
    const auto number = static_cast<std::uint8_t>(controller_.sel.size() + 1);
    controller_.sel.push_back({number, 0, 2, 0, 0, 0, 0, 0x20, 0, 4, type, sensor,
                               static_cast<std::uint8_t>(entered ? specific : specific | 0x80), state, 0xff, 0xff});
    ++controller_.sel_changes;
  }

  int entries_read() { return controller_.asked[{0x0a, 0x43}]; }
};

TEST_F(IpmiSel, AStateThatLastsIsATroubleUntilItIsLeft) {
  controller_.sdr = {compact_record(6, processor_type, specific, 3, 1, "CPU1 Status"),
                     compact_record(7, processor_type, specific, 3, 2, "CPU2 Status")};
  EXPECT_THAT(descriptions(), IsEmpty());
  log(processor_type, 7, 0);
  const Finding finding = source_.read();
  ASSERT_THAT(finding.troubles, SizeIs(1));
  EXPECT_EQ(finding.troubles[0].severity, "critical");
  EXPECT_EQ(finding.troubles[0].class_code, 3);
  EXPECT_EQ(finding.troubles[0].unit, 2);
  EXPECT_EQ(finding.troubles[0].description,
            "CPU2 Status: the processor has had an internal error, as the event log says");
  log(processor_type, 7, 0, false);
  EXPECT_THAT(source_.read().troubles, IsEmpty());
}

TEST_F(IpmiSel, EachLastingStateHasASeverity) {
  log(memory_type, 1, 1);
  log(memory_type, 1, 5);
  log(drive_type, 2, 1);
  log(drive_type, 2, 0);   // present
  log(memory_type, 1, 0);  // corrected
  EXPECT_THAT(descriptions(),
              ElementsAre("critical: Sensor 1: memory has had an error that cannot be corrected, as the event log says",
                          "minor: Sensor 1: memory has had many corrected errors, as the event log says",
                          "major: Sensor 2: the drive has failed, as the event log says"));
}

TEST_F(IpmiSel, MemoryAndOddProcessorsAreTheServers) {
  controller_.sdr = {compact_record(1, memory_type, specific, 32, 1, "DIMM ECC"),
                     compact_record(7, processor_type, specific, 3, 2, "CPU Status")};
  log(memory_type, 1, 1);
  log(processor_type, 7, 0);
  const Finding finding = source_.read();
  ASSERT_THAT(finding.troubles, SizeIs(2));
  for (const Trouble &trouble : finding.troubles) {
    EXPECT_EQ(trouble.class_code, server_class) << trouble.description;
    EXPECT_EQ(trouble.unit, 1);
  }
}

TEST_F(IpmiSel, AClearedLogEndsItsTroubles) {
  log(memory_type, 1, 1);
  EXPECT_THAT(descriptions(), SizeIs(1));
  controller_.sel.clear();
  ++controller_.sel_clearings;
  EXPECT_THAT(descriptions(), IsEmpty());
  log(drive_type, 1, 1);
  EXPECT_THAT(descriptions(), SizeIs(1));
}

TEST_F(IpmiSel, AnEntryIsReadOnce) {
  for (int i = 0; i < 100; ++i) {
    log(memory_type, 1, 0);
  }
  source_.read();
  EXPECT_EQ(entries_read(), 100);
  source_.read();
  EXPECT_EQ(entries_read(), 100);
  log(memory_type, 1, 1);
  EXPECT_THAT(source_.read().troubles, SizeIs(1));
  EXPECT_EQ(entries_read(), 102) << "the last known one, and the new one";
}

TEST_F(IpmiSel, SilenceLosesNoEntry) {
  source_.read();
  log(memory_type, 1, 1);
  log(memory_type, 1, 5);
  controller_.silent_at = 0x43;
  controller_.answers_left = 1;
  source_.read();
  controller_.silent_at = 0xff;
  EXPECT_THAT(source_.read().troubles, SizeIs(2));
}

TEST_F(IpmiSel, ABusyControllerHasNotClearedItsLog) {
  log(memory_type, 1, 1);
  EXPECT_THAT(source_.read().troubles, SizeIs(1));
  controller_.sel.erase(controller_.sel.begin());  // the entry is no longer in the log, which was not cleared
  controller_.sel.insert(controller_.sel.begin(), IpmiOctets(16));
  log(memory_type, 1, 5);
  controller_.refused_at = 0x43;
  controller_.refusals_left = 100;
  EXPECT_THAT(source_.read().troubles, SizeIs(1));
  EXPECT_THAT(source_.read().troubles, SizeIs(1));
  controller_.refusals_left = 0;
  EXPECT_EQ(source_.read().troubles.at(0).severity, "minor") << "it was written over";
}

TEST_F(IpmiSel, ARefusalLosesNoEntry) {
  source_.read();
  log(memory_type, 1, 1);
  log(memory_type, 1, 5);
  controller_.refused_at = 0x43;
  controller_.answers_left = 1;
  controller_.refusals_left = 100;
  EXPECT_THAT(source_.read().troubles, SizeIs(1));
  controller_.refusals_left = 0;
  EXPECT_THAT(source_.read().troubles, SizeIs(2));
  controller_.refusals_left = 1;
  controller_.answers_left = 1;
  log(drive_type, 1, 1);
  EXPECT_THAT(source_.read().troubles, SizeIs(3)) << "it is asked a second time at once";
}

TEST_F(IpmiSel, ALogThatWasWrittenOverIsReadAnew) {
  log(memory_type, 1, 1);
  log(memory_type, 1, 0);
  EXPECT_THAT(source_.read().troubles, SizeIs(1));
  controller_.sel.clear();
  log(drive_type, 1, 1);
  log(drive_type, 1, 2);
  EXPECT_THAT(descriptions(), ElementsAre("major: Sensor 1: the drive has failed, as the event log says",
                                          "minor: Sensor 1: the drive is about to fail, as the event log says"));
}

TEST_F(IpmiSel, AnEventMakesTheSensorsBeReadAtOnce) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1"))};
  controller_.reads(9, 30);
  EXPECT_THAT(source_.read().troubles, IsEmpty());
  controller_.reads(9, 3);
  EXPECT_THAT(source_.read().troubles, IsEmpty());
  log(fan_type, 9, 2);
  EXPECT_THAT(source_.read().troubles, SizeIs(1));
}

TEST_F(IpmiSel, WhatIsNoEventOfAStateSaysNothing) {
  const IpmiOctets whole{1, 0, 2, 0, 0, 0, 0, 0x20, 0, 4, processor_type, 7, specific, 0, 0xff, 0xff};
  EXPECT_NE(decode_sel(whole), std::nullopt);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_EQ(decode_sel({whole.begin(), whole.begin() + static_cast<int>(size)}), std::nullopt) << size;
  }
  IpmiOctets other = whole;
  other[2] = 0xc0;  // the maker's own
  EXPECT_EQ(decode_sel(other), std::nullopt);
  other = whole;
  other[12] = 1;  // of a threshold
  EXPECT_EQ(decode_sel(other), std::nullopt);
}

}  // namespace
}  // namespace tavo::service
