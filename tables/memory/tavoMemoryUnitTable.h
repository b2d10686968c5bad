// tavoMemoryUnitTable: one row for each memory module that the platform inventory reports.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

struct MemoryUnitRow {
  std::uint32_t index;  // from 1, in the inventory's order
  char dn[64];
  char rn[32];
  std::uint32_t array_id;  // always 1
  std::uint32_t bank;      // always 0
  std::uint32_t capacity;  // MB
  std::uint32_t clock;
  std::int32_t column_8;   // always 0
  std::uint32_t id;        // the number in the module's name, or the index
  std::int32_t column_10;  // always 0
  char location[64];
  char model[64];            // always "unknown"
  std::int32_t oper_state;   // 1 operable, otherwise 0
  std::int32_t operability;  // 1 operable, otherwise 0
  std::int32_t perf;         // always 0
  std::int32_t power;        // always 0
  std::int32_t presence;     // 10 operable, otherwise 11
  char revision[64];         // always "unknown"
  char serial[64];
  std::uint32_t column_20;        // always 0
  std::uint32_t speed;            // MHz; 0 if the module is not operable
  std::int32_t thermal;           // always 0
  std::int32_t type;              // always 24
  char vendor[64];                // always "unknown"
  std::int32_t visibility;        // 1 yes, 2 no, 0 anything else
  std::int32_t voltage;           // always 0
  std::uint32_t width;            // bits
  std::int32_t error_correction;  // always 1
  char status[32];                // in the platform's words
  MemoryUnitRow *next;
};

TAVO_DECLARE_TABLE(tavoMemoryUnitTable, MemoryUnitRow)

#pragma GCC visibility push(default)
extern "C" {

// The number of memory modules that the inventory last reported. Guarded by the table's lock.
extern int iDIMMItems;

// Builds the rows from the platform inventory, taking the table's lock. With `refresh` 1, it first removes the old
// rows. 0; the lock's error, and nothing done; -1, and no row added, if the inventory fails or reports no module, or if
// memory is short at the outset. A single row for which there is no memory is left out.
int initialize_memory_table(int refresh);
// Takes the table's lock. 0, or the lock's error.
int de_register_mem_table_handler(void);
}
#pragma GCC visibility pop

}  // namespace tavo
