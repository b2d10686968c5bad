// tavoEquipmentFanTable: one row for each fan of the chassis and of its power supplies, read from the IPMI sensors.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

struct EquipmentFanRow {
  // From 1, in the order of the sensors. A fan sensor of any other entity repeats the index of the row before it, or
  // has index 0 if it comes first.
  std::uint32_t index;
  char dn[64];
  char rn[68];
  std::uint64_t interval_counter;  // always 0
  std::uint32_t id;
  std::int32_t column_6;  // always 0
  char sensor[64];
  std::uint32_t module;
  std::int32_t oper_state;   // 1 good, 3 faulty, 6 not present
  std::int32_t operability;  // the same
  std::int32_t perf;         // always 0
  std::int32_t power;        // always 0
  std::int32_t presence;     // 10 present, 11 absent, 30 undetermined
  char model[64];            // always "unknown"
  char revision[64];         // always "unknown"
  std::int32_t thermal;      // always 0
  std::uint32_t tray;        // always 1
  char serial[64];           // always "unknown"
  std::int32_t voltage;      // always 0
  EquipmentFanRow *next;
};

// The table cannot be de-registered.
TAVO_DECLARE_TABLE(tavoEquipmentFanTable, EquipmentFanRow)

#pragma GCC visibility push(default)
extern "C" {

// By IPMI entity instance: 1 if the fan entity, or the power-supply entity, of that instance was present at the last
// build, otherwise 0. Guarded by the table's lock.
extern std::uint8_t FAN_PRSNT_ARR[256];
extern std::uint8_t PSU_FAN_PRSNT_ARR[256];

// Builds the rows from the sensors, taking the table's lock, and writes sys_fan_prs. With `refresh` 1, it first removes
// the old rows. Does nothing if the lock cannot be had. The first sensor that cannot be read ends the table.
void initialize_fan_table(int refresh);
}
#pragma GCC visibility pop

}  // namespace tavo
