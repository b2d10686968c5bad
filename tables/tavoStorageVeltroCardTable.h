// tavoStorageVeltroCardTable: one row for each SD card in the server.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstdint>

namespace tavo {

// A field that has no name of its own is called by its type and column; a text of one octet is always empty.
struct StorageVeltroCardRow {
  std::uint32_t index;  // from 1, counting the cards that are there
  char dn[64];
  char rn[64];
  std::uint32_t gauge_4;
  std::int32_t integer_5;
  std::int32_t integer_6;
  char text_7[33];
  std::int32_t integer_8;
  std::uint32_t gauge_9;
  std::uint32_t gauge_10;
  char text_11[33];
  char text_12[33];
  char text_13[73];
  std::uint64_t counter_14;
  char text_15[33];
  char text_16[1];
  std::int32_t integer_17;
  std::int32_t integer_18;
  std::uint32_t gauge_19;
  char text_20[33];
  char text_21[33];
  std::uint64_t counter_22;
  std::uint32_t gauge_23;
  char text_24[41];
  std::int32_t integer_25;
  std::uint32_t gauge_26;
  std::int32_t integer_27;
  std::int32_t integer_28;
  char text_29[33];
  std::uint32_t gauge_30;
  std::uint32_t gauge_31;
  char text_32[65];
  std::uint32_t gauge_33;
  StorageVeltroCardRow *next;
};

}  // namespace tavo

#pragma GCC visibility push(default)
extern "C" {

// The rows, newest first; null when there is none. Guarded by subagent lock 2.
extern tavo::StorageVeltroCardRow *tavoStorageVeltroCardTable_head;

// The caller of these three holds subagent lock 2.
int init_tavoStorageVeltroCardTable(void);
// Registers the table and builds its rows. The builder's result.
int initialize_table_tavoStorageVeltroCardTable(void);
// Builds the rows from velt_pd_info; with `refresh` 1 it first removes what stands. Always 1.
int initialize_velt_card_table(int refresh);

Netsnmp_Node_Handler tavoStorageVeltroCardTable_handler;
Netsnmp_First_Data_Point tavoStorageVeltroCardTable_get_first_data_point;
Netsnmp_Next_Data_Point tavoStorageVeltroCardTable_get_next_data_point;

// Copies `filled` into a new row with this index. The caller holds the lock. Null when there is no memory.
tavo::StorageVeltroCardRow *tavoStorageVeltroCardTable_createEntry(uint32_t index,
                                                                   const tavo::StorageVeltroCardRow *filled);
// Takes subagent lock 2. 0, or the lock's error; a null row or one that is not listed is left alone.
int tavoStorageVeltroCardTable_removeEntry(tavo::StorageVeltroCardRow *row);
// The caller holds the lock.
void tavoStorageVeltroCardTable_removeAllEntries(void);
}
#pragma GCC visibility pop
