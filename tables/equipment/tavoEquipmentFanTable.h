// tavoEquipmentFanTable: one row for each fan of the chassis and of its power supplies, read from the IPMI sensors.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

struct EquipmentFanRow {
  std::uint32_t index;  // from 1, in sensor order; a fan sensor of a foreign entity shares the index of the row before
  char dn[64];
  char rn[68];
  std::uint64_t interval_counter;
  std::uint32_t id;
  std::int32_t column_6;
  char sensor[64];
  std::uint32_t module;
  std::int32_t oper_state;   // 1 good, 3 faulty, 6 not present
  std::int32_t operability;  // the same
  std::int32_t column_11;
  std::int32_t column_12;
  std::int32_t presence;  // 10 present, 11 absent, 30 undetermined
  char model[64];
  char revision[64];
  std::int32_t column_16;
  std::uint32_t tray;
  char serial[64];
  std::int32_t column_19;
  EquipmentFanRow *next;
};

TAVO_DECLARE_TABLE(tavoEquipmentFanTable, EquipmentFanRow)

#pragma GCC visibility push(default)
extern "C" {

// By IPMI entity instance: 1 when the fan entity, or the power-supply entity, of that instance was present at the last
// build, else 0.
extern std::uint8_t FAN_PRSNT_ARR[256];
extern std::uint8_t PSU_FAN_PRSNT_ARR[256];
// Builds the rows from the sensors, taking ev lock 12, and writes sys_fan_prs; with `refresh` 1 it first removes those
// that stand. Without the lock nothing is done; the first sensor that cannot be read ends the table.
void initialize_fan_table(int refresh);
}
#pragma GCC visibility pop

}  // namespace tavo
