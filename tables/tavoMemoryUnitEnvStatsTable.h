// tavoMemoryUnitEnvStatsTable: how warm the memory modules are. One row for each module in the dump.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstdint>

namespace tavo {

// Readings are whole numbers in the dump's own units. Other readings, averages, maxima and minima are not sampled and
// stay 0.
struct MemoryUnitEnvStatsRow {
  std::uint32_t index;  // from 1, in the dump's order
  char dn[64];
  char rn[64];
  std::uint32_t intervals;
  std::int32_t suspect;
  std::int32_t temperature;
  std::int32_t temperature_avg;
  std::int32_t temperature_max;
  std::int32_t temperature_min;
  char thresholded[64];
  char time_collected[64];
  std::uint32_t update;
  MemoryUnitEnvStatsRow *next;
};

}  // namespace tavo

#pragma GCC visibility push(default)
extern "C" {

// The rows, newest first; null when there is none. Guarded by ev lock 1.
extern tavo::MemoryUnitEnvStatsRow *tavoMemoryUnitEnvStatsTable_head;

int init_tavoMemoryUnitEnvStatsTable(void);
// Registers the table and builds its rows. The builder's result.
int initialize_table_tavoMemoryUnitEnvStatsTable(void);
// Builds the rows from the dump, taking ev lock 1; with `reload` 1 it first removes those that stand. 0, also for a
// dump without rows and when the lock cannot be had; -1 when the dump cannot be read, after 25 seconds of tries, or
// memory is short.
int initialize_memoryunit_envstats(int reload);
// Takes ev lock 1. 0, or the lock's error.
int de_register_memoryunit_envstats_table_handler(void);

Netsnmp_Node_Handler tavoMemoryUnitEnvStatsTable_handler;
Netsnmp_First_Data_Point tavoMemoryUnitEnvStatsTable_get_first_data_point;
Netsnmp_Next_Data_Point tavoMemoryUnitEnvStatsTable_get_next_data_point;

// Copies `filled` into a new row with this index. The caller holds the lock. Null when there is no memory.
tavo::MemoryUnitEnvStatsRow *tavoMemoryUnitEnvStatsTable_createEntry(uint32_t index,
                                                                     const tavo::MemoryUnitEnvStatsRow *filled);
// Takes ev lock 1. 0, or the lock's error; a null row or one that is not listed is left alone.
int tavoMemoryUnitEnvStatsTable_removeEntry(tavo::MemoryUnitEnvStatsRow *row);
// The caller holds the lock.
void tavoMemoryUnitEnvStatsTable_removeAllEntries(void);
}
#pragma GCC visibility pop
