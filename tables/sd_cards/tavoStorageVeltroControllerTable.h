// tavoStorageVeltroControllerTable: one row, for the SD-card controller, whether or not its service answers.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

// A field that has no name of its own is called by its type and column; a text of one octet is always empty.
struct StorageVeltroControllerRow {
  std::uint32_t index;  // 1
  char dn[64];
  char rn[64];
  std::int32_t column_4;
  std::int32_t column_5;
  std::int32_t column_6;
  std::uint32_t column_7;
  char column_8[33];
  char column_9[1];
  std::int32_t column_10;
  std::int32_t column_11;
  char column_12[1];
  char column_13[1];
  std::int32_t column_14;
  std::uint32_t column_15;
  std::int32_t column_16;
  std::int32_t column_17;
  std::uint32_t column_18;
  std::int32_t column_19;
  std::uint32_t column_20;
  char column_21[33];
  char column_22[33];
  std::int32_t column_23;
  std::int32_t column_24;
  char column_25[33];
  std::uint32_t column_26;
  std::int32_t column_27;
  std::uint32_t column_28;
  std::int32_t column_29;
  std::int32_t column_30;
  char column_31[33];
  char column_32[1];
  char column_33[1];
  char column_34[1];
  std::uint32_t column_35;
  std::uint32_t column_36;
  char column_37[1];
  char column_38[1];
  char column_39[1];
  char column_40[1];
  char column_41[1];
  std::uint32_t column_42;
  std::int32_t column_43;
  char column_44[1];
  std::int32_t mode;
  std::int32_t column_46;
  StorageVeltroControllerRow *next;
};

TAVO_DECLARE_TABLE(tavoStorageVeltroControllerTable, StorageVeltroControllerRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the row from velt_ctlr_info; with `refresh` 1 it first removes what stands. Always 1.
int initialize_velt_controller_table(int refresh);
}
#pragma GCC visibility pop

}  // namespace tavo
