// tavoStorageControllerTable: one row for each RAID controller of the storage snapshot.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

// A field that has no name of its own is called by its type and column.
struct StorageControllerRow {
  std::uint32_t index;  // from 1, in the snapshot's order
  char dn[64];
  char rn[54];
  std::uint32_t id;
  char description[64];
  std::int32_t column_6;  // 2 when the controller has a fault, else 1; so is the next
  std::int32_t column_7;
  char column_8[8];
  char location[58];
  std::int32_t column_10;
  std::int32_t column_11;
  std::int32_t column_12;
  char column_13[33];
  char column_14[33];
  std::int32_t column_15;
  std::int32_t column_16;
  char column_17[33];
  std::int32_t column_18;
  char column_19[64];
  StorageControllerRow *next;
};

TAVO_DECLARE_TABLE(tavoStorageControllerTable, StorageControllerRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the rows from the snapshot under head_stor_ptr; with `refresh` 1 it first removes those that stand. 1, though
// a row that finds no memory is lacking; -1, and no row added, when there is no snapshot or no memory to begin with.
int initialize_controller_table(int refresh);
}
#pragma GCC visibility pop

}  // namespace tavo
