// tavoStorageLocalLunTable: one row for each virtual drive in the storage snapshot.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

struct StorageLocalLunRow {
  std::uint32_t index;  // from 1, over all controllers
  char dn[64];
  char rn[64];
  std::uint32_t column_4;  // always 0
  std::int32_t column_5;   // always 0
  std::uint32_t number;    // from 0, within its controller
  char column_7[8];        // always "unknown"
  std::uint64_t capacity;  // octets
  std::int32_t operability;
  std::int32_t presence;  // 10 present, 0 unknown
  char column_11[8];      // always "unknown"
  char column_12[8];      // always "unknown"
  std::uint64_t blocks;
  std::int32_t type;
  char column_15[8];  // always "unknown"
  StorageLocalLunRow *next;
};

// The caller of init_tavoStorageLocalLunTable, initialize_table_tavoStorageLocalLunTable and
// initialize_local_lun_table holds the storage lock.
TAVO_DECLARE_TABLE(tavoStorageLocalLunTable, StorageLocalLunRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the rows from the snapshot under head_stor_ptr. With `refresh` 1, it first removes the old rows. 1, even if
// rows that cannot be allocated are skipped; -1, with no row added, if there is no snapshot or no memory to begin with.
int initialize_local_lun_table(int refresh);
}
#pragma GCC visibility pop

}  // namespace tavo
