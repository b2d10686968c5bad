#include <gmock/gmock.h>

#include "ipmi_fixture.h"

namespace tavo::service {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

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

TEST_F(Ipmi, FansKeepTheirPlacesWhenRecordsMove) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1")), full_record(fan(8, "SYS_FAN2"))};
  controller_.reads(9, 30);
  controller_.reads(8, 3);
  EXPECT_THAT(descriptions(), ElementsAre("major: Fan 2 (SYS_FAN2) has failed"));
  std::swap(controller_.sdr[0], controller_.sdr[1]);
  ++controller_.sdr_changes;
  EXPECT_THAT(descriptions(), ElementsAre("major: Fan 2 (SYS_FAN2) has failed"));
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

}  // namespace
}  // namespace tavo::service
