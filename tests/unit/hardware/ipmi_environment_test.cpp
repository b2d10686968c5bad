#include <gmock/gmock.h>

#include "ipmi_fixture.h"

namespace tavo::service {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

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

}  // namespace
}  // namespace tavo::service
