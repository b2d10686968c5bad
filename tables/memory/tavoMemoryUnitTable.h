// tavoMemoryUnitTable: one row for each memory module that the platform inventory reports.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

struct MemoryUnitRow {
  std::uint32_t index;  // from 1, in the inventory's order
  char dn[64];
  char rn[32];
  std::uint32_t array_id;
  std::uint32_t bank;
  std::uint32_t capacity;  // MB
  std::uint32_t clock;
  std::int32_t column_8;
  std::uint32_t id;  // the number in the module's name, or the index
  std::int32_t column_10;
  char location[64];
  char model[64];
  std::int32_t oper_state;
  std::int32_t operability;
  std::int32_t column_15;
  std::int32_t column_16;
  std::int32_t presence;
  char revision[64];
  char serial[64];
  std::uint32_t column_20;
  std::uint32_t speed;  // MHz, of an operable module
  std::int32_t column_22;
  std::int32_t type;
  char vendor[64];
  std::int32_t visibility;
  std::int32_t column_26;
  std::uint32_t width;  // bits
  std::int32_t error_correction;
  char status[32];
  MemoryUnitRow *next;
};

TAVO_DECLARE_TABLE(tavoMemoryUnitTable, MemoryUnitRow)

#pragma GCC visibility push(default)
extern "C" {

// The number of memory modules that the inventory reported last.
extern int iDIMMItems;
// Builds the rows from the platform inventory, taking ev lock 30; with `mode` 1 it first removes those that stand.
// 0; the lock's error, and nothing done; -1 when the inventory fails or reports no module, or memory is short: then no
// row is added.
int initialize_memory_table(int mode);
// Takes ev lock 30. 0, or the lock's error.
int de_register_mem_table_handler(void);
}
#pragma GCC visibility pop

}  // namespace tavo
