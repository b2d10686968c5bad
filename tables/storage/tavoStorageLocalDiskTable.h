// tavoStorageLocalDiskTable: one row for each drive slot of each RAID controller of the storage snapshot, a placeholder
// where the slot is empty.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

// A field that has no name of its own is called by its type and column.
struct StorageLocalDiskRow {
  std::uint32_t index;  // the slot number, which repeats from controller to controller
  char dn[64];
  char rn[64];
  std::uint32_t column_4;
  std::int32_t connection;
  std::uint32_t slot;
  char media[8];
  std::uint64_t capacity;
  std::int32_t operability;
  std::int32_t presence;
  char column_11[33];
  char column_12[33];
  std::uint64_t column_13;
  char name[33];
  std::int32_t column_15;
  char column_16[1];  // always empty
  std::int32_t column_17;
  std::int32_t state;
  std::int32_t column_19;
  std::int32_t column_20;
  StorageLocalDiskRow *next;
};

TAVO_DECLARE_TABLE(tavoStorageLocalDiskTable, StorageLocalDiskRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the rows from the snapshot under head_stor_ptr; with `refresh` 1 it first removes those that stand. 1, though
// a row that finds no memory is lacking; -1, and no row added, when there is no snapshot or no memory to begin with.
int initialize_local_disk_table(int refresh);

// The platform's number of drive slots: asks the platform's query tool, and reads what stands behind `key` and `suffix`
// in its answer as a decimal number into `value`. 1; 0, and `value` left alone, when the answer has no such line.
int getNumOfHDD(const char *key, const char *suffix, int *value);
}
#pragma GCC visibility pop

}  // namespace tavo
