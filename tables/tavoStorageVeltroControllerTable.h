// tavoStorageVeltroControllerTable: one row, for the SD-card controller, whether or not its service answers.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstdint>

namespace tavo {

// A field that has no name of its own is called by its type and column; a text of one octet is always empty.
struct StorageVeltroControllerRow {
  std::uint32_t index;  // 1
  char dn[64];
  char rn[64];
  std::int32_t integer_4;
  std::int32_t integer_5;
  std::int32_t integer_6;
  std::uint32_t gauge_7;
  char text_8[33];
  char text_9[1];
  std::int32_t integer_10;
  std::int32_t integer_11;
  char text_12[1];
  char text_13[1];
  std::int32_t integer_14;
  std::uint32_t gauge_15;
  std::int32_t integer_16;
  std::int32_t integer_17;
  std::uint32_t gauge_18;
  std::int32_t integer_19;
  std::uint32_t gauge_20;
  char text_21[33];
  char text_22[33];
  std::int32_t integer_23;
  std::int32_t integer_24;
  char text_25[33];
  std::uint32_t gauge_26;
  std::int32_t integer_27;
  std::uint32_t gauge_28;
  std::int32_t integer_29;
  std::int32_t integer_30;
  char text_31[33];
  char text_32[1];
  char text_33[1];
  char text_34[1];
  std::uint32_t gauge_35;
  std::uint32_t gauge_36;
  char text_37[1];
  char text_38[1];
  char text_39[1];
  char text_40[1];
  char text_41[1];
  std::uint32_t gauge_42;
  std::int32_t integer_43;
  char text_44[1];
  std::int32_t mode;
  std::int32_t integer_46;
  StorageVeltroControllerRow *next;
};

}  // namespace tavo

#pragma GCC visibility push(default)
extern "C" {

// The rows, newest first; null when there is none. Guarded by subagent lock 2.
extern tavo::StorageVeltroControllerRow *tavoStorageVeltroControllerTable_head;

// The caller of these three holds subagent lock 2.
int init_tavoStorageVeltroControllerTable(void);
// Registers the table and builds its rows. The builder's result.
int initialize_table_tavoStorageVeltroControllerTable(void);
// Builds the row from velt_ctlr_info; with `refresh` 1 it first removes what stands. Always 1.
int initialize_velt_controller_table(int refresh);

Netsnmp_Node_Handler tavoStorageVeltroControllerTable_handler;
Netsnmp_First_Data_Point tavoStorageVeltroControllerTable_get_first_data_point;
Netsnmp_Next_Data_Point tavoStorageVeltroControllerTable_get_next_data_point;

// Copies `filled` into a new row with this index. The caller holds the lock. Null when there is no memory.
tavo::StorageVeltroControllerRow *tavoStorageVeltroControllerTable_createEntry(
    uint32_t index, const tavo::StorageVeltroControllerRow *filled);
// Takes subagent lock 2. 0, or the lock's error; a null row or one that is not listed is left alone.
int tavoStorageVeltroControllerTable_removeEntry(tavo::StorageVeltroControllerRow *row);
// The caller holds the lock.
void tavoStorageVeltroControllerTable_removeAllEntries(void);
}
#pragma GCC visibility pop
