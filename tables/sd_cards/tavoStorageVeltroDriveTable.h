// tavoStorageVeltroDriveTable: one row for each partition of the SD cards.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

struct StorageVeltroDriveRow {
  std::uint32_t index;  // the partition's position among the five, so there can be gaps
  char dn[64];
  char rn[64];
  std::uint32_t column_4;
  std::int32_t column_5;   // always 0
  std::uint32_t column_6;  // always 1
  std::int32_t column_7;
  std::int32_t kind;
  std::uint32_t number;
  char name[33];
  char name_again[33];
  std::uint64_t column_12;
  char column_13[1];         // always empty
  std::int32_t operability;  // always 1
  std::int32_t presence;     // always 10
  char column_16[33];
  char column_17[33];
  std::uint64_t column_18;
  std::uint32_t number_again;
  char column_20[33];
  std::int32_t column_21;
  std::int32_t column_22;
  std::int32_t column_23;
  std::int32_t column_24;
  std::int32_t column_25;
  StorageVeltroDriveRow *next;
};

// The caller of init_tavoStorageVeltroDriveTable, initialize_table_tavoStorageVeltroDriveTable and
// initialize_velt_drive_table holds the storage lock.
TAVO_DECLARE_TABLE(tavoStorageVeltroDriveTable, StorageVeltroDriveRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the rows from velt_vd_info and the mode word in velt_ctlr_info. With `refresh` 1, it first removes the old
// rows. Always 1.
int initialize_velt_drive_table(int refresh);
}
#pragma GCC visibility pop

}  // namespace tavo
