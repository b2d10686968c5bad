// tavoComputeRackUnitMbTempStatsTable: how warm the server board is. One row.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstdint>

namespace tavo {

// Readings are whole numbers in the dump's own units. Averages, maxima and minima are not sampled and stay 0.
struct MbTempStatsRow {
  std::uint32_t index;  // 1
  char dn[64];
  char rn[64];
  std::int32_t ambient;
  std::int32_t ambient_avg;
  std::int32_t ambient_max;
  std::int32_t ambient_min;
  std::int32_t front;
  std::int32_t front_avg;
  std::int32_t front_max;
  std::int32_t front_min;
  std::uint32_t intervals;
  std::int32_t iohub1;
  std::int32_t iohub1_avg;
  std::int32_t iohub1_max;
  std::int32_t iohub1_min;
  std::int32_t iohub2;
  std::int32_t iohub2_avg;
  std::int32_t iohub2_max;
  std::int32_t iohub2_min;
  std::int32_t rear;
  std::int32_t rear_avg;
  std::int32_t rear_max;
  std::int32_t rear_min;
  std::int32_t suspect;
  char thresholded[64];
  char time_collected[64];
  std::uint32_t update;
  MbTempStatsRow *next;
};

}  // namespace tavo

#pragma GCC visibility push(default)
extern "C" {

// The row; null before it is built. Guarded by ev lock 5.
extern tavo::MbTempStatsRow *tavoComputeRackUnitMbTempStatsTable_head;

int init_tavoComputeRackUnitMbTempStatsTable(void);
// Registers the table and builds its row. The builder's result.
int initialize_table_tavoComputeRackUnitMbTempStatsTable(void);
// Builds the row from the board's dump, taking ev lock 5; with `reload` 1 it first removes the one that stands. 0, also
// when the lock cannot be had; -1 when memory is short.
int initialize_computerackunitmb_tempstats(int reload);
// Takes ev lock 5. 0, or the lock's error.
int de_register_computerackunitmb_tempstats_table_handler(void);

Netsnmp_Node_Handler tavoComputeRackUnitMbTempStatsTable_handler;
Netsnmp_First_Data_Point tavoComputeRackUnitMbTempStatsTable_get_first_data_point;
Netsnmp_Next_Data_Point tavoComputeRackUnitMbTempStatsTable_get_next_data_point;

// Copies `filled` into a new row with this index. The caller holds the lock. Null when there is no memory.
tavo::MbTempStatsRow *tavoComputeRackUnitMbTempStatsTable_createEntry(uint32_t index,
                                                                      const tavo::MbTempStatsRow *filled);
// Takes ev lock 5. 0, or the lock's error; a null row or one that is not listed is left alone.
int tavoComputeRackUnitMbTempStatsTable_removeEntry(tavo::MbTempStatsRow *row);
// The caller holds the lock.
void tavoComputeRackUnitMbTempStatsTable_removeAllEntries(void);
}
#pragma GCC visibility pop
