// The fixture of the fan table's tests: no sensor, and no fan at fault.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tables/fan_state.h"
#include "tables/tavoEquipmentFanTable.h"
#include "tests/unit/fakes/module_test.h"
#include "tests/unit/fakes/sensors.h"

namespace fakes {

class EquipmentFanTableTest : public ModuleTest {
 protected:
  using Row = tavo::EquipmentFanRow;

  static constexpr std::uint32_t fan_entity = 0x1D;
  static constexpr std::uint32_t supply_entity = 0x0A;
  static constexpr std::uint32_t fan_sensor = 0x04;
  static constexpr std::uint32_t presence_sensor = 0x25;

  EquipmentFanTableTest() {
    for (std::uint32_t fan = 0; fan < 14; ++fan) {
      tavo::store_fan(sys_fan_prs, fan, 0);
      tavo::store_fan(sys_fan_sev, fan, 0);
      tavo::store_fan(ps_fan_sev, fan, 0);
    }
  }
  ~EquipmentFanTableTest() override { tavoEquipmentFanTable_removeAllEntries(); }

  // The rows in the order in which they were made.
  static std::vector<Row> rebuilt() {
    initialize_fan_table(1);
    std::vector<Row> rows;
    for (const Row *row = tavoEquipmentFanTable_head; row != nullptr; row = row->next) {
      rows.insert(rows.begin(), *row);
    }
    return rows;
  }

  // The row of one fan of the chassis, number `instance`, that is present.
  static Row system_fan(const std::string &name, std::uint32_t instance = 1) {
    reset_sensors();
    set_sensor(0, {fan_entity, instance, presence_sensor, "FAN_PRS"});
    set_sensor(1, {fan_entity, instance, fan_sensor, name});
    const std::vector<Row> rows = rebuilt();
    EXPECT_EQ(rows.size(), 1U) << name;
    return rows.empty() ? Row{} : rows[0];
  }

  static Row supply_fan(const std::string &name, std::uint32_t instance = 1) {
    reset_sensors();
    set_sensor(0, {supply_entity, instance, presence_sensor, "PSU_PRS"});
    set_sensor(1, {supply_entity, instance, fan_sensor, name});
    const std::vector<Row> rows = rebuilt();
    EXPECT_EQ(rows.size(), 1U) << name;
    return rows.empty() ? Row{} : rows[0];
  }
};

}  // namespace fakes
