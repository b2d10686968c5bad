// tavoComputeBoardTable: the motherboard. One row, built once.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

struct ComputeBoardRow {
  std::uint32_t index;  // always 1
  char dn[64];
  char rn[64];
  std::int32_t column_4;  // always 100
  std::uint32_t id;       // always 1
  char model[64];
  std::int32_t column_7;     // always 1
  std::int32_t oper_state;   // always 1
  std::int32_t operability;  // always 1
  std::int32_t perf;         // always 100
  std::int32_t power;        // always 1
  std::int32_t presence;     // always 10
  char revision[64];         // always empty
  char serial[64];
  std::int32_t thermal;  // always 100
  char vendor[64];
  std::int32_t voltage;  // always 100
  ComputeBoardRow *next;
};

// tavoComputeBoardTable_removeAllEntries takes the lock itself, unlike most tables' functions of that name.
TAVO_DECLARE_TABLE_WITH_OWN_ROWS(tavoComputeBoardTable, ComputeBoardRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the row from the board's FRU area, in up to 5 tries, 5 seconds apart; what cannot be read stays empty. Takes
// the table's lock only to link the row. 0, even if the lock cannot be had and there is no row; -1 if memory is short.
int initialize_board_table(void);
// Takes the table's lock. 0, or the lock's error.
int de_register_ComputeBoard_table_handler(void);

// Puts `row`, which was allocated with calloc, in front of the list, taking the table's lock. If the lock cannot be
// had, it frees the row and returns null; null, too, for a null row.
ComputeBoardRow *tavoComputeBoardTable_createEntry(ComputeBoardRow *row);

// Lookups for the daemon; nothing in the module calls them. Each writes a text and a NUL to `out`, which holds 128
// octets, and returns 1, or returns 0 and leaves `out` alone.
//
// From what the query tool prints for `key`: the text behind the separator in the first line that holds the key.
int GetValueFromGDS(const char *key, const char *separator, char *out);
// The first line that a shell command prints.
int PipetoOutput(const char *command, char *out);
}
#pragma GCC visibility pop

}  // namespace tavo
