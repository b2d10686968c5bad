// tavoStorageVeltroDriveTable: one row for each partition of the SD cards.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstdint>

namespace tavo {

// A field that has no name of its own is called by its type and column; a text of one octet is always empty.
struct StorageVeltroDriveRow {
  std::uint32_t index;  // the partition's place among the five, so there can be gaps
  char dn[64];
  char rn[64];
  std::uint32_t gauge_4;
  std::int32_t integer_5;
  std::uint32_t gauge_6;
  std::int32_t integer_7;
  std::int32_t kind;
  std::uint32_t number;
  char name[33];
  char name_again[33];
  std::uint64_t counter_12;
  char text_13[1];
  std::int32_t integer_14;
  std::int32_t integer_15;
  char text_16[33];
  char text_17[33];
  std::uint64_t counter_18;
  std::uint32_t number_again;
  char text_20[33];
  std::int32_t integer_21;
  std::int32_t integer_22;
  std::int32_t integer_23;
  std::int32_t integer_24;
  std::int32_t integer_25;
  StorageVeltroDriveRow *next;
};

}  // namespace tavo

#pragma GCC visibility push(default)
extern "C" {

// The rows, newest first; null when there is none. Guarded by subagent lock 2.
extern tavo::StorageVeltroDriveRow *tavoStorageVeltroDriveTable_head;

// The caller of these three holds subagent lock 2.
int init_tavoStorageVeltroDriveTable(void);
// Registers the table and builds its rows. The builder's result.
int initialize_table_tavoStorageVeltroDriveTable(void);
// Builds the rows from velt_vd_info, read with the mode word of velt_ctlr_info; with `refresh` 1 it first removes what
// stands. Always 1.
int initialize_velt_drive_table(int refresh);

Netsnmp_Node_Handler tavoStorageVeltroDriveTable_handler;
Netsnmp_First_Data_Point tavoStorageVeltroDriveTable_get_first_data_point;
Netsnmp_Next_Data_Point tavoStorageVeltroDriveTable_get_next_data_point;

// Copies `filled` into a new row with this index. The caller holds the lock. Null when there is no memory.
tavo::StorageVeltroDriveRow *tavoStorageVeltroDriveTable_createEntry(uint32_t index,
                                                                     const tavo::StorageVeltroDriveRow *filled);
// Takes subagent lock 2. 0, or the lock's error; a null row or one that is not listed is left alone.
int tavoStorageVeltroDriveTable_removeEntry(tavo::StorageVeltroDriveRow *row);
// The caller holds the lock.
void tavoStorageVeltroDriveTable_removeAllEntries(void);
}
#pragma GCC visibility pop
