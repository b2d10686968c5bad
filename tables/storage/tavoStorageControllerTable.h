// tavoStorageControllerTable: one row for each RAID controller in the storage snapshot.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

struct StorageControllerRow {
  std::uint32_t index;  // from 1, in the snapshot's order
  char dn[64];
  char rn[54];
  std::uint32_t id;
  char description[64];
  std::int32_t oper_state;   // 2 if the controller has a fault, otherwise 1
  std::int32_t operability;  // the same
  char column_8[8];          // always "unknown"
  char location[58];
  std::int32_t perf;      // always 0
  std::int32_t power;     // always 0
  std::int32_t presence;  // always 10
  char revision[33];
  char serial[33];
  std::int32_t thermal;    // always 0
  std::int32_t column_16;  // always 1
  char vendor[33];
  std::int32_t voltage;  // always 0
  char type[64];
  StorageControllerRow *next;
};

// The caller of init_tavoStorageControllerTable, initialize_table_tavoStorageControllerTable and
// initialize_controller_table holds the storage lock.
TAVO_DECLARE_TABLE(tavoStorageControllerTable, StorageControllerRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the rows from the snapshot under head_stor_ptr. With `refresh` 1, it first removes the old rows. 1, even if
// rows that cannot be allocated are skipped; -1, with no row added, if there is no snapshot or no memory to begin with.
int initialize_controller_table(int refresh);
}
#pragma GCC visibility pop

}  // namespace tavo
