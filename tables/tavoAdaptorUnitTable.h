// tavoAdaptorUnitTable: one row for each add-in card.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstdint>

namespace tavo {

// What is called reserved is never filled: 0 or empty.
struct AdaptorUnitRow {
  std::uint32_t index;  // the slot number
  char dn[64];
  char rn[64];
  std::uint32_t reserved_4;
  std::uint32_t reserved_5;
  char reserved_6[64];
  char reserved_7[64];
  std::uint32_t counter;  // a Counter64 on the wire
  std::uint32_t slot;
  std::int32_t reserved_10;
  char product_id[64];
  std::int32_t oper_state;   // 1, or 8 when too hot
  std::int32_t operability;  // 1, or 8 when too hot
  char bus[64];              // the logical I2C bus
  char slot_text[64];
  std::int32_t state_16;  // 100
  std::int32_t state_17;  // 1
  std::int32_t presence;  // 10
  char reserved_19[64];
  char firmware_version[64];
  char serial[64];
  std::int32_t overtemperature;  // 0, or 3 when too hot
  char vendor[64];
  std::int32_t reserved_24;
  std::int32_t reserved_25;
  char part_number[64];
  AdaptorUnitRow *next;
};

}  // namespace tavo

#pragma GCC visibility push(default)
extern "C" {

// The rows, newest first; null when there is none. Guarded by ev lock 3.
extern tavo::AdaptorUnitRow *tavoAdaptorUnitTable_head;

int init_tavoAdaptorUnitTable(void);
// Registers the table and builds its rows. The builder's result.
int initialize_table_tavoAdaptorUnitTable(void);
// Builds the rows, taking ev lock 3; with `reload` 1 it first removes those that stand. 0, also when the lock cannot be
// had; -1 when memory is short. Waits up to 25 seconds for a card's slot number, without which the card is left out,
// and up to 50 for its firmware version.
int initialize_adaptorunit_table(int reload);
// Takes ev lock 3. 0, or the lock's error.
int de_register_adaptor_table_handler(void);

Netsnmp_Node_Handler tavoAdaptorUnitTable_handler;
Netsnmp_First_Data_Point tavoAdaptorUnitTable_get_first_data_point;
Netsnmp_Next_Data_Point tavoAdaptorUnitTable_get_next_data_point;

// Copies `filled` into a new row with this index. The caller holds the lock. Null when there is no memory.
tavo::AdaptorUnitRow *tavoAdaptorUnitTable_createEntry(uint32_t index, const tavo::AdaptorUnitRow *filled);
// Takes ev lock 3. 0, or the lock's error; a null row or one that is not listed is left alone.
int tavoAdaptorUnitTable_removeEntry(tavo::AdaptorUnitRow *row);
// The caller holds the lock.
void tavoAdaptorUnitTable_removeAllEntries(void);

// The number of cards that the adapter utility lists; 0 when it cannot be run or lists none.
int GetNumOfAdaptors(void);
// Lookups. Each writes a text and a NUL to `out`, which holds 128 octets, and returns 1; or it returns 0, and `out` is
// as it was. The caller holds the lock.
//
// The value of a key's occurrence in "/var/adapterInventory", which the tool writes first when it has not since the
// last build began.
int GetValuefromCache(const char *key, const char *separator, int occurrence, char *out);
// The version of the firmware that the card in this slot runs. 10 tries, 5 seconds apart.
int GetAdaptorFirmwareRevision(int slot, char *out);
}
#pragma GCC visibility pop
