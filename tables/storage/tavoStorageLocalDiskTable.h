// tavoStorageLocalDiskTable: one row for each drive slot of each RAID controller in the storage snapshot; a placeholder
// for an empty slot.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

struct StorageLocalDiskRow {
  std::uint32_t index;  // the slot number, which repeats from controller to controller
  char dn[64];
  char rn[64];
  std::uint32_t column_4;  // always 0
  std::int32_t connection;
  std::uint32_t slot;
  char media[8];
  std::uint64_t capacity;  // octets
  std::int32_t operability;
  std::int32_t presence;  // 10 present, 11 absent
  char model[33];
  char revision[33];
  std::uint64_t blocks;
  char name[33];
  std::int32_t column_15;  // 2 for an empty slot, otherwise 0
  char column_16[1];       // always empty
  std::int32_t column_17;  // always 0
  std::int32_t state;
  std::int32_t link;       // the storage agent's code
  std::int32_t column_20;  // always 0
  StorageLocalDiskRow *next;
};

// The caller of init_tavoStorageLocalDiskTable, initialize_table_tavoStorageLocalDiskTable and
// initialize_local_disk_table holds the storage lock.
TAVO_DECLARE_TABLE(tavoStorageLocalDiskTable, StorageLocalDiskRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the rows from the snapshot under head_stor_ptr. With `refresh` 1, it first removes the old rows. 1, even if
// rows that cannot be allocated are skipped; -1, with no row added, if there is no snapshot or no memory to begin with.
int initialize_local_disk_table(int refresh);

// Runs the platform's query tool for the number of drive slots: the decimal number after `key` and `suffix` in its
// dump. 1; or 0, and `value` left alone, if the dump has no such line.
int getNumOfHDD(const char *key, const char *suffix, int *value);
}
#pragma GCC visibility pop

// Whether the last build had drives to show and showed none because the query tool printed nothing. For any thread.
bool drive_slots_are_unknown();

}  // namespace tavo
