// tavoComputeMbPowerStatsTable: what the server board draws. One row.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstdint>

namespace tavo {

// Readings are whole numbers in the dump's own units. Averages, maxima and minima are not sampled and stay 0.
struct MbPowerStatsRow {
  std::uint32_t index;  // 1
  char dn[64];
  char rn[64];
  std::int32_t consumed_power;
  std::int32_t consumed_power_avg;
  std::int32_t consumed_power_max;
  std::int32_t consumed_power_min;
  std::int32_t input_current;
  std::int32_t input_current_avg;
  std::int32_t input_current_max;
  std::int32_t input_current_min;
  std::int32_t input_voltage;
  std::int32_t input_voltage_avg;
  std::int32_t input_voltage_max;
  std::int32_t input_voltage_min;
  std::uint32_t intervals;
  std::int32_t suspect;
  char thresholded[64];
  char time_collected[64];
  std::uint32_t update;
  MbPowerStatsRow *next;
};

}  // namespace tavo

#pragma GCC visibility push(default)
extern "C" {

// The row; null before it is built. Guarded by ev lock 4.
extern tavo::MbPowerStatsRow *tavoComputeMbPowerStatsTable_head;

int init_tavoComputeMbPowerStatsTable(void);
// Registers the table and builds its row. The builder's result.
int initialize_table_tavoComputeMbPowerStatsTable(void);
// Builds the row from the board's dump, taking ev lock 4; with `reload` 1 it first removes the one that stands. 0, also
// when the lock cannot be had; -1 when memory is short.
int initialize_computemb_powerstats(int reload);
// Takes ev lock 4. 0, or the lock's error.
int de_register_computemb_powerstats_table_handler(void);

Netsnmp_Node_Handler tavoComputeMbPowerStatsTable_handler;
Netsnmp_First_Data_Point tavoComputeMbPowerStatsTable_get_first_data_point;
Netsnmp_Next_Data_Point tavoComputeMbPowerStatsTable_get_next_data_point;

// Copies `filled` into a new row with this index. The caller holds the lock. Null when there is no memory.
tavo::MbPowerStatsRow *tavoComputeMbPowerStatsTable_createEntry(uint32_t index, const tavo::MbPowerStatsRow *filled);
// Takes ev lock 4. 0, or the lock's error; a null row or one that is not listed is left alone.
int tavoComputeMbPowerStatsTable_removeEntry(tavo::MbPowerStatsRow *row);
// The caller holds the lock.
void tavoComputeMbPowerStatsTable_removeAllEntries(void);
}
#pragma GCC visibility pop
