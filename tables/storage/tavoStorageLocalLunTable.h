// tavoStorageLocalLunTable: one row for each virtual drive of the storage snapshot.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

// A field that has no name of its own is called by its type and column.
struct StorageLocalLunRow {
  std::uint32_t index;  // from 1, over all controllers
  char dn[64];
  char rn[64];
  std::uint32_t column_4;
  std::int32_t column_5;
  std::uint32_t number;  // from 0, within its controller
  char column_7[8];
  std::uint64_t column_8;
  std::int32_t operability;
  std::int32_t presence;
  char column_11[8];
  char column_12[8];
  std::uint64_t column_13;
  std::int32_t type;
  char column_15[8];
  StorageLocalLunRow *next;
};

TAVO_DECLARE_TABLE(tavoStorageLocalLunTable, StorageLocalLunRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the rows from the snapshot under head_stor_ptr; with `refresh` 1 it first removes those that stand. 1, though
// a row that finds no memory is lacking; -1, and no row added, when there is no snapshot or no memory to begin with.
int initialize_local_lun_table(int refresh);
}
#pragma GCC visibility pop

}  // namespace tavo
