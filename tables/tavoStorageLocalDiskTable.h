// tavoStorageLocalDiskTable: one row for each drive slot of each RAID controller of the storage snapshot, a placeholder
// where the slot is empty.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstdint>

namespace tavo {

// A field that has no name of its own is called by its type and column.
struct StorageLocalDiskRow {
  std::uint32_t index;  // the slot number, which repeats from controller to controller
  char dn[64];
  char rn[64];
  std::uint32_t gauge_4;
  std::int32_t connection;
  std::uint32_t slot;
  char media[8];
  std::uint64_t capacity;
  std::int32_t operability;
  std::int32_t presence;
  char text_11[33];
  char text_12[33];
  std::uint64_t counter_13;
  char name[33];
  std::int32_t integer_15;
  char text_16[1];  // always empty
  std::int32_t integer_17;
  std::int32_t state;
  std::int32_t integer_19;
  std::int32_t integer_20;
  StorageLocalDiskRow *next;
};

}  // namespace tavo

#pragma GCC visibility push(default)
extern "C" {

// The rows, newest first; null when there is none. Guarded by subagent lock 2.
extern tavo::StorageLocalDiskRow *tavoStorageLocalDiskTable_head;

// The caller of these three holds subagent lock 2.
int init_tavoStorageLocalDiskTable(void);
// Registers the table and builds its rows. The builder's result.
int initialize_table_tavoStorageLocalDiskTable(void);
// Builds the rows from the snapshot under head_stor_ptr; with `refresh` 1 it first removes those that stand. 1, though
// a row that finds no memory is lacking; -1, and no row added, when there is no snapshot or no memory to begin with.
int initialize_local_disk_table(int refresh);

// The platform's number of drive slots: asks the platform's query tool, and reads what stands behind `key` and `suffix`
// in its answer as a decimal number into `value`. 1; 0, and `value` left alone, when the answer has no such line.
int getNumOfHDD(const char *key, const char *suffix, int *value);

Netsnmp_Node_Handler tavoStorageLocalDiskTable_handler;
Netsnmp_First_Data_Point tavoStorageLocalDiskTable_get_first_data_point;
Netsnmp_Next_Data_Point tavoStorageLocalDiskTable_get_next_data_point;

// Copies `filled` into a new row with this index. The caller holds the lock. Null when there is no memory.
tavo::StorageLocalDiskRow *tavoStorageLocalDiskTable_createEntry(uint32_t index,
                                                                 const tavo::StorageLocalDiskRow *filled);
// Takes subagent lock 2. 0, or the lock's error; a null row or one that is not listed is left alone.
int tavoStorageLocalDiskTable_removeEntry(tavo::StorageLocalDiskRow *row);
// The caller holds the lock.
void tavoStorageLocalDiskTable_removeAllEntries(void);
}
#pragma GCC visibility pop
