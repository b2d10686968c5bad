// tavoStorageVeltroControllerTable: one row, for the SD-card controller, whether or not its service answers.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

struct StorageVeltroControllerRow {
  std::uint32_t index;  // always 1
  char dn[64];
  char rn[64];
  std::int32_t column_4;
  std::int32_t column_5;
  std::int32_t column_6;
  std::uint32_t column_7;  // always 1
  char column_8[33];
  char column_9[1];          // always empty
  std::int32_t oper_state;   // always 1
  std::int32_t operability;  // always 1
  char column_12[1];         // always empty
  char column_13[1];         // always empty
  std::int32_t column_14;    // always 100
  std::uint32_t column_15;
  std::int32_t column_16;  // always 100
  std::int32_t presence;   // always 10
  std::uint32_t column_18;
  std::int32_t column_19;
  std::uint32_t column_20;
  char column_21[33];
  char column_22[33];
  std::int32_t column_23;  // always 100
  std::int32_t column_24;  // always 4
  char column_25[33];
  std::uint32_t column_26;
  std::int32_t column_27;  // always 100
  std::uint32_t column_28;
  std::int32_t column_29;  // always 0
  std::int32_t column_30;
  char column_31[33];
  char column_32[1];        // always empty
  char column_33[1];        // always empty
  char column_34[1];        // always empty
  std::uint32_t column_35;  // always 0
  std::uint32_t column_36;  // always 0
  char column_37[1];        // always empty
  char column_38[1];        // always empty
  char column_39[1];        // always empty
  char column_40[1];        // always empty
  char column_41[1];        // always empty
  std::uint32_t column_42;  // always 0
  std::int32_t column_43;
  char column_44[1];  // always empty
  std::int32_t mode;
  std::int32_t column_46;  // always 0
  StorageVeltroControllerRow *next;
};

// The caller of init_tavoStorageVeltroControllerTable, initialize_table_tavoStorageVeltroControllerTable and
// initialize_velt_controller_table holds the storage lock.
TAVO_DECLARE_TABLE(tavoStorageVeltroControllerTable, StorageVeltroControllerRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the row from velt_ctlr_info. With `refresh` 1, it first removes the old row. Always 1.
int initialize_velt_controller_table(int refresh);
}
#pragma GCC visibility pop

}  // namespace tavo
