// tavoProcessorUnitTable: one row for each processor that the platform inventory reports.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstdint>

namespace tavo {

struct ProcessorUnitRow {
  std::uint32_t index;  // from 1, in the inventory's order
  char dn[64];
  char rn[64];
  std::int32_t arch;
  std::uint32_t cores;
  std::uint32_t cores_enabled;
  std::uint32_t id;  // from 0
  char model[64];
  std::int32_t oper_state;
  std::int32_t operability;
  std::int32_t power;
  std::int32_t perf;
  std::int32_t presence;
  char revision[64];
  char serial[64];
  char socket[64];
  std::int32_t speed;  // MHz
  std::uint32_t stepping;
  std::int32_t thermal;
  std::uint32_t threads;
  char vendor[64];
  std::int32_t voltage;
  ProcessorUnitRow *next;
};

}  // namespace tavo

#pragma GCC visibility push(default)
extern "C" {

// The rows, newest first; null when there is none. Guarded by ev lock 41.
extern tavo::ProcessorUnitRow *tavoProcessorUnitTable_head;
// The processor count that the inventory reported last.
extern int iCPUItems;

int init_tavoProcessorUnitTable(void);
// Registers the table and builds its rows. The builder's result.
int initialize_table_tavoProcessorUnitTable(void);
// Builds the rows from the platform inventory, taking ev lock 41; with `refresh` 1 it first removes those that stand.
// 0; the lock's error, and nothing done; -1 when the inventory fails or reports no processor, or memory is short: then
// no row is added.
int initialize_processor_table(int refresh);
// Takes ev lock 41. 0, or the lock's error.
int de_register_Processor_table_handler(void);

Netsnmp_Node_Handler tavoProcessorUnitTable_handler;
Netsnmp_First_Data_Point tavoProcessorUnitTable_get_first_data_point;
Netsnmp_Next_Data_Point tavoProcessorUnitTable_get_next_data_point;

// Copies `filled` into a new row with this index. The caller holds the lock. Null when there is no memory.
tavo::ProcessorUnitRow *tavoProcessorUnitTable_createEntry(uint32_t index, const tavo::ProcessorUnitRow *filled);
// Takes ev lock 41. 0, or the lock's error; a null row or one that is not listed is left alone.
int tavoProcessorUnitTable_removeEntry(tavo::ProcessorUnitRow *row);
// The caller holds the lock.
void tavoProcessorUnitTable_removeAllEntries(void);
}
#pragma GCC visibility pop
