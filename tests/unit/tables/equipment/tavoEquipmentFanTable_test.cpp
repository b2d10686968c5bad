#include "tables/equipment/tavoEquipmentFanTable.h"

#include <gmock/gmock.h>

#include <array>
#include <cstring>
#include <numeric>
#include <vector>

#include "core/access_lock.h"
#include "sources/fan_state.h"
#include "tests/fakes/allocation.h"
#include "tests/fakes/sensors.h"
#include "tests/fixtures/fan_table_fixture.h"
#include "tests/harness/golden.h"

namespace tavo {
namespace {

using fakes::counter64;
using fakes::EquipmentFanTableTest;
using fakes::gauge;
using fakes::integer;
using fakes::set_sensor;
using fakes::text;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::array<oid, 12> table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 15, 12};

TEST_F(EquipmentFanTableTest, ServesEveryColumnOfEveryFan) {
  set_sensor(0, {fan_entity, 1, presence_sensor, "FAN1_PRS"});
  set_sensor(1, {supply_entity, 2, presence_sensor, "PSU2_PRS"});
  set_sensor(2, {fan_entity, 1, fan_sensor, "Q410_FAN1_TACH2"});
  set_sensor(3, {fan_entity, 2, fan_sensor, "FAN_TRAY3_SPEED"});
  set_sensor(4, {supply_entity, 2, fan_sensor, "PSU2_FAN_SPEED"});
  fakes::set_threshold_presence(3, 0xE0);
  store_fan(sys_fan_sev, 1, 5);  // of module 1, tachometer 2
  ASSERT_EQ(init_tavoEquipmentFanTable(), 0);

  fakes::expect_table(table, {
                                 {2, 1, text("sys/rack-unit-1/fan-module-1-1/fan-2")},
                                 {3, 1, text("fan-2")},
                                 {4, 1, counter64(0)},
                                 {5, 1, gauge(1)},
                                 {6, 1, integer(0)},
                                 {7, 1, text("Q410_FAN1_TACH2")},
                                 {8, 1, gauge(2)},
                                 {9, 1, integer(3)},
                                 {10, 1, integer(3)},
                                 {11, 1, integer(0)},
                                 {12, 1, integer(0)},
                                 {13, 1, integer(10)},
                                 {14, 1, text("unknown")},
                                 {15, 1, text("unknown")},
                                 {16, 1, integer(0)},
                                 {17, 1, gauge(1)},
                                 {18, 1, text("unknown")},
                                 {19, 1, integer(0)},
                                 {2, 2, text("sys/rack-unit-1/fan-module-1-3/fan-1")},
                                 {3, 2, text("fan-1")},
                                 {4, 2, counter64(0)},
                                 {5, 2, gauge(1)},
                                 {6, 2, integer(0)},
                                 {7, 2, text("FAN_TRAY3_SPEED")},
                                 {8, 2, gauge(3)},
                                 {9, 2, integer(6)},
                                 {10, 2, integer(6)},
                                 {11, 2, integer(0)},
                                 {12, 2, integer(0)},
                                 {13, 2, integer(11)},
                                 {14, 2, text("unknown")},
                                 {15, 2, text("unknown")},
                                 {16, 2, integer(0)},
                                 {17, 2, gauge(1)},
                                 {18, 2, text("unknown")},
                                 {19, 2, integer(0)},
                                 {2, 3, text("sys/rack-unit-1/psu-2/fan-1")},
                                 {3, 3, text("psu-2/fan-1")},
                                 {4, 3, counter64(0)},
                                 {5, 3, gauge(2)},
                                 {6, 3, integer(0)},
                                 {7, 3, text("PSU2_FAN_SPEED")},
                                 {8, 3, gauge(1)},
                                 {9, 3, integer(1)},
                                 {10, 3, integer(1)},
                                 {11, 3, integer(0)},
                                 {12, 3, integer(0)},
                                 {13, 3, integer(10)},
                                 {14, 3, text("unknown")},
                                 {15, 3, text("unknown")},
                                 {16, 3, integer(0)},
                                 {17, 3, gauge(1)},
                                 {18, 3, text("unknown")},
                                 {19, 3, integer(0)},
                             });
}

TEST_F(EquipmentFanTableTest, PresenceFollowsTheCompletionCode) {
  const std::vector<std::pair<int, int>> codes = {{0, 10}, {0xCB, 10}, {0xE0, 11}, {2, 11}, {1, 30},
                                                  {3, 30}, {0xFF, 30}, {0xC1, 30}, {-1, 30}};
  for (const auto &[completion, presence] : codes) {
    fakes::reset_sensors();
    set_sensor(0, {fan_entity, 13, fan_sensor, "FAN1_SPEED"});
    fakes::set_threshold_presence(0, completion);
    const std::vector<Row> rows = rebuilt();
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].presence, presence) << completion;
    EXPECT_EQ(load_fan(sys_fan_prs, 13), presence) << completion;
  }
}

TEST_F(EquipmentFanTableTest, AnAbsentFanHasItsRowAndIsNotPresent) {
  set_sensor(0, {fan_entity, 1, presence_sensor, "FAN1_PRS"});
  set_sensor(1, {fan_entity, 1, fan_sensor, "FAN1_SPEED"});
  fakes::set_discrete_presence(0, 1);
  fakes::set_threshold_presence(1, 0xE0);
  const std::vector<Row> rows = rebuilt();
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].oper_state, 6);
  EXPECT_EQ(rows[0].operability, 6);
  EXPECT_EQ(rows[0].presence, 11);
  EXPECT_EQ(FAN_PRSNT_ARR[1], 0);
}

TEST_F(EquipmentFanTableTest, AnAbsentSupplysFanHasNoRow) {
  set_sensor(0, {supply_entity, 1, presence_sensor, "PSU1_PRS"});
  set_sensor(1, {supply_entity, 1, fan_sensor, "PSU1_FAN_SPEED"});
  set_sensor(2, {fan_entity, 1, fan_sensor, "FAN1_SPEED"});
  fakes::set_discrete_presence(0, 1);
  const std::vector<Row> rows = rebuilt();
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].index, 1U);
  EXPECT_STREQ(rows[0].sensor, "FAN1_SPEED");
}

TEST_F(EquipmentFanTableTest, AGapEndsTheRowsButNotThePresences) {
  for (int number = 0; number < 10; ++number) {
    set_sensor(number, {fan_entity, static_cast<std::uint32_t>(number), fan_sensor, "FAN1_SPEED"});
  }
  set_sensor(200, {fan_entity, 3, presence_sensor, "FAN3_PRS"});
  fakes::remove_sensor(7);
  const std::vector<Row> rows = rebuilt();
  EXPECT_EQ(rows.size(), 7U);
  EXPECT_EQ(rows.back().index, 7U);
  EXPECT_EQ(FAN_PRSNT_ARR[3], 1);

  std::vector<int> expected(256);
  std::iota(expected.begin(), expected.end(), 0);
  for (int number = 0; number <= 7; ++number) {
    expected.push_back(number);
  }
  EXPECT_EQ(fakes::sensor_reads(), expected);
  EXPECT_EQ(fakes::unzeroed_sensor_buffers(), 0);
}

TEST_F(EquipmentFanTableTest, AFanOfAForeignEntitySharesTheIndexBeforeIt) {
  set_sensor(0, {0x07, 1, fan_sensor, "FIRST"});
  set_sensor(1, {fan_entity, 1, fan_sensor, "FAN1_SPEED"});
  set_sensor(2, {0x07, 1, fan_sensor, "BOARD_FAN"});
  set_sensor(3, {fan_entity, 2, fan_sensor, "FAN2_SPEED"});
  const std::vector<Row> rows = rebuilt();
  ASSERT_EQ(rows.size(), 4U);
  EXPECT_EQ(rows[0].index, 0U);
  EXPECT_EQ(rows[1].index, 1U);
  EXPECT_EQ(rows[2].index, 1U);
  EXPECT_EQ(rows[3].index, 2U);
  EXPECT_STREQ(rows[2].dn, "");
  EXPECT_STREQ(rows[2].rn, "");
  EXPECT_STREQ(rows[2].sensor, "BOARD_FAN");
  EXPECT_EQ(rows[2].id, 0U);
  EXPECT_EQ(rows[2].module, 0U);
  EXPECT_EQ(rows[2].oper_state, 0);
  EXPECT_EQ(rows[2].presence, 0);
  EXPECT_STREQ(rows[2].model, "unknown");
  EXPECT_STREQ(rows[2].revision, "unknown");
  EXPECT_STREQ(rows[2].serial, "unknown");
  EXPECT_EQ(rows[2].tray, 1U);
}

TEST_F(EquipmentFanTableTest, OfRowsThatShareAnIndexTheLastMadeIsServed) {
  set_sensor(0, {fan_entity, 1, fan_sensor, "FAN1_SPEED"});
  set_sensor(1, {0x07, 1, fan_sensor, "BOARD_FAN"});
  set_sensor(2, {fan_entity, 2, fan_sensor, "FAN2_SPEED"});
  ASSERT_EQ(init_tavoEquipmentFanTable(), 0);
  const auto answers = fakes::get({fakes::cell(table, 7, 1), fakes::cell(table, 7, 2)}).answers;
  ASSERT_EQ(answers.size(), 2U);
  EXPECT_EQ(answers[0].value, text("BOARD_FAN"));
  EXPECT_EQ(answers[1].value, text("FAN2_SPEED"));
  EXPECT_EQ(fakes::walk(table).size(), 2U * 18U);
}

TEST_F(EquipmentFanTableTest, SensorsOfOtherTypesHaveNoRow) {
  set_sensor(0, {fan_entity, 1, 0x01, "FAN1_TEMP"});
  set_sensor(1, {fan_entity, 1, presence_sensor, "FAN1_PRS"});
  EXPECT_THAT(rebuilt(), IsEmpty());
  EXPECT_THAT(fakes::threshold_presence_calls(), IsEmpty());
}

TEST_F(EquipmentFanTableTest, ThePresenceCallsNameSensorEntityAndInstance) {
  set_sensor(0, {fan_entity, 4, presence_sensor, "A"});
  set_sensor(1, {supply_entity, 5, presence_sensor, "B"});
  set_sensor(2, {0x07, 6, presence_sensor, "C"});
  set_sensor(3, {fan_entity, 4, fan_sensor, "FAN4_SPEED"});
  set_sensor(4, {supply_entity, 5, fan_sensor, "PSU5_FAN_SPEED"});
  rebuilt();
  using Address = fakes::SensorAddress;
  EXPECT_THAT(fakes::discrete_presence_calls(), ElementsAre(Address{0, 0x1D, 4}, Address{1, 0x0A, 5}));
  EXPECT_THAT(fakes::threshold_presence_calls(), ElementsAre(Address{3, 0x1D, 4}));
  EXPECT_EQ(FAN_PRSNT_ARR[4], 1);
  EXPECT_EQ(PSU_FAN_PRSNT_ARR[5], 1);
}

TEST_F(EquipmentFanTableTest, EveryBuildClearsThePresencesAndKeepsTheFaultState) {
  std::memset(FAN_PRSNT_ARR, 1, sizeof FAN_PRSNT_ARR);
  std::memset(PSU_FAN_PRSNT_ARR, 1, sizeof PSU_FAN_PRSNT_ARR);
  store_fan(sys_fan_prs, 5, 11);
  store_fan(sys_fan_sev, 5, 4);
  store_fan(ps_fan_sev, 3, 2);
  rebuilt();
  EXPECT_THAT(FAN_PRSNT_ARR, testing::Each(0));
  EXPECT_THAT(PSU_FAN_PRSNT_ARR, testing::Each(0));
  EXPECT_EQ(load_fan(sys_fan_prs, 5), 11);
  EXPECT_EQ(load_fan(sys_fan_sev, 5), 4);
  EXPECT_EQ(load_fan(ps_fan_sev, 3), 2);
}

TEST_F(EquipmentFanTableTest, TheLockIsHeldWhileTheSensorsAreRead) {
  ListLock &lock = ev_lock<12>;
  set_sensor(0, {fan_entity, 1, presence_sensor, "FAN1_PRS"});
  set_sensor(1, {fan_entity, 1, fan_sensor, "FAN1_SPEED"});
  std::vector<int> held;
  fakes::on_sensor_call([&] { held.push_back(lock.hold_count()); });
  EXPECT_EQ(rebuilt().size(), 1U);
  EXPECT_THAT(held, testing::AllOf(testing::SizeIs(256 + 1 + 3 + 1), testing::Each(1)));
  EXPECT_EQ(lock.hold_count(), 0);
}

TEST_F(EquipmentFanTableTest, WithoutMemoryTheTableIsLeftAsTheFirstPassLeftIt) {
  set_sensor(0, {fan_entity, 1, presence_sensor, "FAN1_PRS"});
  set_sensor(1, {fan_entity, 1, fan_sensor, "FAN1_SPEED"});
  rebuilt();
  fakes::fail_allocations(0);
  initialize_fan_table(0);
  EXPECT_NE(tavoEquipmentFanTable_head, nullptr);
  initialize_fan_table(1);
  EXPECT_EQ(tavoEquipmentFanTable_head, nullptr);
  EXPECT_EQ(FAN_PRSNT_ARR[1], 1);
  fakes::reset_allocations();
  EXPECT_EQ(rebuilt().size(), 1U);
}

TEST_F(EquipmentFanTableTest, ARowWithoutMemoryIsLeftOut) {
  set_sensor(0, {fan_entity, 1, fan_sensor, "FAN1_SPEED"});
  set_sensor(1, {fan_entity, 2, fan_sensor, "FAN2_SPEED"});
  fakes::fail_allocations(1, 1);
  const std::vector<Row> rows = rebuilt();
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].index, 2U);
}

}  // namespace
}  // namespace tavo
