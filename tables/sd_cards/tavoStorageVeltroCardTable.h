// tavoStorageVeltroCardTable: one row for each SD card in the server.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

struct StorageVeltroCardRow {
  std::uint32_t index;  // from 1, counting the cards that are present
  char dn[64];
  char rn[64];
  std::uint32_t column_4;
  std::int32_t column_5;
  std::int32_t column_6;
  char column_7[33];
  std::int32_t column_8;  // always 0
  std::uint32_t column_9;
  std::uint32_t column_10;
  char column_11[33];
  char column_12[33];
  char column_13[73];
  std::uint64_t column_14;  // always 0
  char column_15[33];
  char column_16[1];         // always empty
  std::int32_t operability;  // always 1
  std::int32_t presence;     // always 10
  std::uint32_t column_19;
  char column_20[33];
  char column_21[33];
  std::uint64_t column_22;
  std::uint32_t column_23;
  char column_24[41];
  std::int32_t column_25;
  std::uint32_t column_26;
  std::int32_t column_27;
  std::int32_t column_28;
  char column_29[33];
  std::uint32_t column_30;
  std::uint32_t column_31;
  char column_32[65];
  std::uint32_t column_33;
  StorageVeltroCardRow *next;
};

// The caller of init_tavoStorageVeltroCardTable, initialize_table_tavoStorageVeltroCardTable and
// initialize_velt_card_table holds the storage lock.
TAVO_DECLARE_TABLE(tavoStorageVeltroCardTable, StorageVeltroCardRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the rows from velt_pd_info. With `refresh` 1, it first removes the old rows. Always 1.
int initialize_velt_card_table(int refresh);
}
#pragma GCC visibility pop

}  // namespace tavo
