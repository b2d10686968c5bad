// tavoStorageControllerTable: one row for each RAID controller of the storage snapshot.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstdint>

namespace tavo {

// A field that has no name of its own is called by its type and column.
struct StorageControllerRow {
  std::uint32_t index;  // from 1, in the snapshot's order
  char dn[64];
  char rn[54];
  std::uint32_t id;
  char description[64];
  std::int32_t integer_6;  // 2 when the controller has a fault, else 1; so is the next
  std::int32_t integer_7;
  char text_8[8];
  char location[58];
  std::int32_t integer_10;
  std::int32_t integer_11;
  std::int32_t integer_12;
  char text_13[33];
  char text_14[33];
  std::int32_t integer_15;
  std::int32_t integer_16;
  char text_17[33];
  std::int32_t integer_18;
  char text_19[64];
  StorageControllerRow *next;
};

}  // namespace tavo

#pragma GCC visibility push(default)
extern "C" {

// The rows, newest first; null when there is none. Guarded by subagent lock 2.
extern tavo::StorageControllerRow *tavoStorageControllerTable_head;

// The caller of these three holds subagent lock 2.
int init_tavoStorageControllerTable(void);
// Registers the table and builds its rows. The builder's result.
int initialize_table_tavoStorageControllerTable(void);
// Builds the rows from the snapshot under head_stor_ptr; with `refresh` 1 it first removes those that stand. 1, though
// a row that finds no memory is lacking; -1, and no row added, when there is no snapshot or no memory to begin with.
int initialize_controller_table(int refresh);

Netsnmp_Node_Handler tavoStorageControllerTable_handler;
Netsnmp_First_Data_Point tavoStorageControllerTable_get_first_data_point;
Netsnmp_Next_Data_Point tavoStorageControllerTable_get_next_data_point;

// Copies `filled` into a new row with this index. The caller holds the lock. Null when there is no memory.
tavo::StorageControllerRow *tavoStorageControllerTable_createEntry(uint32_t index,
                                                                   const tavo::StorageControllerRow *filled);
// Takes subagent lock 2. 0, or the lock's error; a null row or one that is not listed is left alone.
int tavoStorageControllerTable_removeEntry(tavo::StorageControllerRow *row);
// The caller holds the lock.
void tavoStorageControllerTable_removeAllEntries(void);
}
#pragma GCC visibility pop
