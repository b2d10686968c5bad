// tavoStorageRaidBatteryTable: one row for each RAID controller in the storage snapshot that has a battery backup unit.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

struct StorageRaidBatteryRow {
  std::uint32_t index;  // from 1, counting batteries, not controllers
  char dn[64];
  char rn[64];
  std::uint32_t column_4;  // always 0
  std::int32_t column_5;   // always 0
  std::uint32_t present;   // always 1
  char type[16];
  std::uint64_t column_8;    // always 0
  std::int32_t operability;  // 3 if the battery is operable, otherwise 1
  std::int32_t presence;     // always 10
  char column_11[8];         // always "unknown"
  char column_12[8];         // always "unknown"
  std::uint64_t column_13;   // always 0
  char column_14[8];         // always "unknown"
  StorageRaidBatteryRow *next;
};

// The caller of init_tavoStorageRaidBatteryTable, initialize_table_tavoStorageRaidBatteryTable and
// initialize_bbu_table holds the storage lock.
TAVO_DECLARE_TABLE(tavoStorageRaidBatteryTable, StorageRaidBatteryRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the rows from the snapshot under head_stor_ptr. With `refresh` 1, it first removes the old rows. 1, even if
// rows that cannot be allocated are skipped; -1, with no row added, if there is no snapshot or no memory to begin with.
int initialize_bbu_table(int refresh);
}
#pragma GCC visibility pop

}  // namespace tavo
