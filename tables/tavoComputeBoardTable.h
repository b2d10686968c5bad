// tavoComputeBoardTable: the motherboard. One row, built once.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstdint>

namespace tavo {

// What is called reserved is never filled: 0 or empty.
struct ComputeBoardRow {
  std::uint32_t index;  // 1
  char dn[64];
  char rn[64];
  std::int32_t state_4;  // 100
  std::uint32_t id;      // 1
  char model[64];
  std::int32_t state_7;   // 1
  std::int32_t state_8;   // 1
  std::int32_t state_9;   // 1
  std::int32_t state_10;  // 100
  std::int32_t state_11;  // 1
  std::int32_t presence;  // 10
  char reserved_13[64];
  char serial[64];
  std::int32_t state_15;  // 100
  char vendor[64];
  std::int32_t state_17;  // 100
  ComputeBoardRow *next;
};

}  // namespace tavo

#pragma GCC visibility push(default)
extern "C" {

// The row; null before it is built. Guarded by ev lock 6.
extern tavo::ComputeBoardRow *tavoComputeBoardTable_head;

int init_tavoComputeBoardTable(void);
// Registers the table and builds its row. The builder's result.
int initialize_table_tavoComputeBoardTable(void);
// Builds the row from the board's FRU area, trying 5 times, 5 seconds apart; what cannot be read stays empty. 0, or -1
// when memory is short. Takes ev lock 6 only to link the row.
int initialize_board_table(void);
// Takes ev lock 6. 0, or the lock's error.
int de_register_ComputeBoard_table_handler(void);

Netsnmp_Node_Handler tavoComputeBoardTable_handler;
Netsnmp_First_Data_Point tavoComputeBoardTable_get_first_data_point;
Netsnmp_Next_Data_Point tavoComputeBoardTable_get_next_data_point;

// Puts `row`, which was allocated with calloc, in front of the list, taking ev lock 6. Null when the lock cannot be
// had: then the row is freed.
tavo::ComputeBoardRow *tavoComputeBoardTable_createEntry(tavo::ComputeBoardRow *row);
// Takes ev lock 6. 0, or the lock's error; a null row or one that is not listed is left alone.
int tavoComputeBoardTable_removeEntry(tavo::ComputeBoardRow *row);
// Takes ev lock 6.
void tavoComputeBoardTable_removeAllEntries(void);

// Lookups for the daemon's own use; nothing in the module calls them. Each writes a text and a NUL to `out`, which
// holds 128 octets, and returns 1; or it returns 0, and `out` is as it was.
//
// What stands behind the separator in the first line of the query tool's output for a key that holds the key.
int GetValueFromGDS(const char *key, const char *separator, char *out);
// The first line that a shell command prints.
int PipetoOutput(const char *command, char *out);
}
#pragma GCC visibility pop
