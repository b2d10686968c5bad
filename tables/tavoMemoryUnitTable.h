// tavoMemoryUnitTable: one row for each memory module that the platform inventory reports.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstdint>

namespace tavo {

struct MemoryUnitRow {
  std::uint32_t index;  // from 1, in the inventory's order
  char dn[64];
  char rn[32];
  std::uint32_t array_id;
  std::uint32_t bank;
  std::uint32_t capacity;  // MB
  std::uint32_t clock;
  std::int32_t zero_8;
  std::uint32_t id;  // the number in the module's name, or the index
  std::int32_t zero_10;
  char location[64];
  char model[64];
  std::int32_t oper_state;
  std::int32_t operability;
  std::int32_t zero_15;
  std::int32_t zero_16;
  std::int32_t presence;
  char revision[64];
  char serial[64];
  std::uint32_t zero_20;
  std::uint32_t speed;  // MHz, of an operable module
  std::int32_t zero_22;
  std::int32_t type;
  char vendor[64];
  std::int32_t visibility;
  std::int32_t zero_26;
  std::uint32_t width;  // bits
  std::int32_t error_correction;
  char status[32];
  MemoryUnitRow *next;
};

}  // namespace tavo

#pragma GCC visibility push(default)
extern "C" {

// The rows, newest first; null when there is none. Guarded by ev lock 30.
extern tavo::MemoryUnitRow *tavoMemoryUnitTable_head;
// The number of memory modules that the inventory reported last.
extern int iDIMMItems;

int init_tavoMemoryUnitTable(void);
// Registers the table and builds its rows. The builder's result.
int initialize_table_tavoMemoryUnitTable(void);
// Builds the rows from the platform inventory, taking ev lock 30; with `mode` 1 it first removes those that stand.
// 0; the lock's error, and nothing done; -1 when the inventory fails or reports no module, or memory is short: then no
// row is added.
int initialize_memory_table(int mode);
// Takes ev lock 30. 0, or the lock's error.
int de_register_mem_table_handler(void);

Netsnmp_Node_Handler tavoMemoryUnitTable_handler;
Netsnmp_First_Data_Point tavoMemoryUnitTable_get_first_data_point;
Netsnmp_Next_Data_Point tavoMemoryUnitTable_get_next_data_point;

// Copies `filled` into a new row with this index. The caller holds the lock. Null when there is no memory.
tavo::MemoryUnitRow *tavoMemoryUnitTable_createEntry(uint32_t index, const tavo::MemoryUnitRow *filled);
// Takes ev lock 30. 0, or the lock's error; a null row or one that is not listed is left alone.
int tavoMemoryUnitTable_removeEntry(tavo::MemoryUnitRow *row);
// The caller holds the lock.
void tavoMemoryUnitTable_removeAllEntries(void);
}
#pragma GCC visibility pop
