// tavoProcessorUnitTable: one row for each processor that the platform inventory reports.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

struct ProcessorUnitRow {
  std::uint32_t index;  // from 1, in the inventory's order
  char dn[64];
  char rn[64];
  std::int32_t arch;  // 179 Xeon, 178 Pentium 4, otherwise 0
  std::uint32_t cores;
  std::uint32_t cores_enabled;  // the same as cores
  std::uint32_t id;             // from 0
  char model[64];
  std::int32_t oper_state;   // 1 enabled, otherwise 2
  std::int32_t operability;  // 1 enabled, otherwise 2
  std::int32_t power;        // 1 enabled, otherwise 0
  std::int32_t perf;         // always 0
  std::int32_t presence;     // 10 enabled, otherwise 11
  char revision[64];         // always "unknown"
  char serial[64];
  char socket[64];
  std::int32_t speed;      // MHz
  std::uint32_t stepping;  // always 0
  std::int32_t thermal;    // always 0
  std::uint32_t threads;
  char vendor[64];
  std::int32_t voltage;  // always 0
  ProcessorUnitRow *next;
};

TAVO_DECLARE_TABLE(tavoProcessorUnitTable, ProcessorUnitRow)

#pragma GCC visibility push(default)
extern "C" {

// The number of processors that the inventory last reported. No lock guards it: start-up writes it, and then the
// inventory refresh thread.
extern int iCPUItems;

// Builds the rows from the platform inventory, taking the table's lock. With `refresh` 1, it first removes the old
// rows. 0; the lock's error, and no row touched; -1, and no row added, if the inventory fails or reports no processor,
// or if memory is short at the outset. A single row for which there is no memory is left out.
int initialize_processor_table(int refresh);
// Takes the table's lock. 0, or the lock's error.
int de_register_Processor_table_handler(void);
}
#pragma GCC visibility pop

}  // namespace tavo
