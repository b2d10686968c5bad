// tavoStorageRaidBatteryTable: one row for each RAID controller of the storage snapshot that has a battery backup unit.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

// A field that has no name of its own is called by its type and column.
struct StorageRaidBatteryRow {
  std::uint32_t index;  // from 1, counting batteries, not controllers
  char dn[64];
  char rn[64];
  std::uint32_t column_4;
  std::int32_t column_5;
  std::uint32_t present;  // 1
  char type[16];
  std::uint64_t column_8;
  std::int32_t operability;  // 3 when the battery is operable, else 1
  std::int32_t presence;     // 10
  char column_11[8];
  char column_12[8];
  std::uint64_t column_13;
  char column_14[8];
  StorageRaidBatteryRow *next;
};

TAVO_DECLARE_TABLE(tavoStorageRaidBatteryTable, StorageRaidBatteryRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the rows from the snapshot under head_stor_ptr; with `refresh` 1 it first removes those that stand. 1, though
// a row that finds no memory is lacking; -1, and no row added, when there is no snapshot or no memory to begin with.
int initialize_bbu_table(int refresh);
}
#pragma GCC visibility pop

}  // namespace tavo
