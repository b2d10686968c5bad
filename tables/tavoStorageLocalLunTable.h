// tavoStorageLocalLunTable: one row for each virtual drive of the storage snapshot.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstdint>

namespace tavo {

// A field that has no name of its own is called by its type and column.
struct StorageLocalLunRow {
  std::uint32_t index;  // from 1, over all controllers
  char dn[64];
  char rn[64];
  std::uint32_t gauge_4;
  std::int32_t integer_5;
  std::uint32_t number;  // from 0, within its controller
  char text_7[8];
  std::uint64_t counter_8;
  std::int32_t operability;
  std::int32_t presence;
  char text_11[8];
  char text_12[8];
  std::uint64_t counter_13;
  std::int32_t type;
  char text_15[8];
  StorageLocalLunRow *next;
};

}  // namespace tavo

#pragma GCC visibility push(default)
extern "C" {

// The rows, newest first; null when there is none. Guarded by subagent lock 2.
extern tavo::StorageLocalLunRow *tavoStorageLocalLunTable_head;

// The caller of these three holds subagent lock 2.
int init_tavoStorageLocalLunTable(void);
// Registers the table and builds its rows. The builder's result.
int initialize_table_tavoStorageLocalLunTable(void);
// Builds the rows from the snapshot under head_stor_ptr; with `refresh` 1 it first removes those that stand. 1, though
// a row that finds no memory is lacking; -1, and no row added, when there is no snapshot or no memory to begin with.
int initialize_local_lun_table(int refresh);

Netsnmp_Node_Handler tavoStorageLocalLunTable_handler;
Netsnmp_First_Data_Point tavoStorageLocalLunTable_get_first_data_point;
Netsnmp_Next_Data_Point tavoStorageLocalLunTable_get_next_data_point;

// Copies `filled` into a new row with this index. The caller holds the lock. Null when there is no memory.
tavo::StorageLocalLunRow *tavoStorageLocalLunTable_createEntry(uint32_t index, const tavo::StorageLocalLunRow *filled);
// Takes subagent lock 2. 0, or the lock's error; a null row or one that is not listed is left alone.
int tavoStorageLocalLunTable_removeEntry(tavo::StorageLocalLunRow *row);
// The caller holds the lock.
void tavoStorageLocalLunTable_removeAllEntries(void);
}
#pragma GCC visibility pop
