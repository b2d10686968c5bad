#include <gmock/gmock.h>

#include <utility>

#include "ipmi_fixture.h"

namespace tavo::service {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

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
  IpmiSource source(register_, std::move(busy));
  const Finding finding = read_alone(source);
  EXPECT_THAT(finding.troubles, IsEmpty());
  Inventory inventory;
  finding.enter(inventory);
  EXPECT_TRUE(inventory.supplies.at(0).flag("present")) << "it was there before";
}

TEST_F(IpmiSupply, SuppliesThatNobodySawMayBeTheKernels) {
  controller_.sdr = {fru_record(4, supply_entity, 1)};
  EXPECT_TRUE(source_.read().accounts.at(Topic::Supplies).is_vague);
  auto seeing = make_controller();
  seeing->sdr = {fru_record(4, supply_entity, 1)};
  seeing->frus[4] = controller_.frus[5];
  IpmiSource other(register_, std::move(seeing));
  EXPECT_FALSE(other.read().accounts.at(Topic::Supplies).is_vague);
  controller_.frus.clear();
  EXPECT_FALSE(source_.read().accounts.at(Topic::Supplies).is_vague) << "one was there before";
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

}  // namespace
}  // namespace tavo::service
