// tavoProcessorUnitTable: one row for each processor that the platform inventory reports.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

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

TAVO_DECLARE_TABLE(tavoProcessorUnitTable, ProcessorUnitRow)

#pragma GCC visibility push(default)
extern "C" {

// The processor count that the inventory reported last.
extern int iCPUItems;
// Builds the rows from the platform inventory, taking ev lock 41; with `refresh` 1 it first removes those that stand.
// 0; the lock's error, and nothing done; -1 when the inventory fails or reports no processor, or memory is short: then
// no row is added.
int initialize_processor_table(int refresh);
// Takes ev lock 41. 0, or the lock's error.
int de_register_Processor_table_handler(void);
}
#pragma GCC visibility pop

}  // namespace tavo
