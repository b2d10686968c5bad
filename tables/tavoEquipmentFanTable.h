// tavoEquipmentFanTable: one row for each fan of the chassis and of its power supplies, read from the IPMI sensors.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstdint>

namespace tavo {

struct EquipmentFanRow {
  std::uint32_t index;  // from 1, in sensor order; a fan sensor of a foreign entity shares the index of the row before
  char dn[64];
  char rn[68];
  std::uint64_t interval_counter;
  std::uint32_t id;
  std::int32_t zero_6;
  char sensor[64];
  std::uint32_t module;
  std::int32_t oper_state;   // 1 good, 3 faulty, 6 not present
  std::int32_t operability;  // the same
  std::int32_t zero_11;
  std::int32_t zero_12;
  std::int32_t presence;  // 10 present, 11 absent, 30 undetermined
  char model[64];
  char revision[64];
  std::int32_t zero_16;
  std::uint32_t tray;
  char serial[64];
  std::int32_t zero_19;
  EquipmentFanRow *next;
};

}  // namespace tavo

#pragma GCC visibility push(default)
extern "C" {

// The rows, newest first; null when there is none. Guarded by ev lock 12, as are the two arrays.
extern tavo::EquipmentFanRow *tavoEquipmentFanTable_head;
// By IPMI entity instance: 1 when the fan entity, or the power-supply entity, of that instance was present at the last
// build, else 0.
extern std::uint8_t FAN_PRSNT_ARR[256];
extern std::uint8_t PSU_FAN_PRSNT_ARR[256];

int init_tavoEquipmentFanTable(void);
// Registers the table and builds its rows. Always 0. The table cannot be de-registered.
int initialize_table_tavoEquipmentFanTable(void);
// Builds the rows from the sensors, taking ev lock 12, and writes sys_fan_prs; with `mode` 1 it first removes those
// that stand. Without the lock nothing is done; the first sensor that cannot be read ends the table.
void initialize_fan_table(int mode);

Netsnmp_Node_Handler tavoEquipmentFanTable_handler;
Netsnmp_First_Data_Point tavoEquipmentFanTable_get_first_data_point;
Netsnmp_Next_Data_Point tavoEquipmentFanTable_get_next_data_point;

// Copies `filled` into a new row with this index. The caller holds the lock. Null when there is no memory.
tavo::EquipmentFanRow *tavoEquipmentFanTable_createEntry(uint32_t index, const tavo::EquipmentFanRow *filled);
// Takes ev lock 12. 0, or the lock's error; a null row or one that is not listed is left alone.
int tavoEquipmentFanTable_removeEntry(tavo::EquipmentFanRow *row);
// The caller holds the lock.
void tavoEquipmentFanTable_removeAllEntries(void);
}
#pragma GCC visibility pop
