// tavoStorageVeltroDriveTable: one row for each partition of the SD cards.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

// A field that has no name of its own is called by its type and column; a text of one octet is always empty.
struct StorageVeltroDriveRow {
  std::uint32_t index;  // the partition's place among the five, so there can be gaps
  char dn[64];
  char rn[64];
  std::uint32_t column_4;
  std::int32_t column_5;
  std::uint32_t column_6;
  std::int32_t column_7;
  std::int32_t kind;
  std::uint32_t number;
  char name[33];
  char name_again[33];
  std::uint64_t column_12;
  char column_13[1];
  std::int32_t column_14;
  std::int32_t column_15;
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

TAVO_DECLARE_TABLE(tavoStorageVeltroDriveTable, StorageVeltroDriveRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the rows from velt_vd_info, read with the mode word of velt_ctlr_info; with `refresh` 1 it first removes what
// stands. Always 1.
int initialize_velt_drive_table(int refresh);
}
#pragma GCC visibility pop

}  // namespace tavo
