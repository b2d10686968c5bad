// tavoComputeBoardTable: the motherboard. One row, built once.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

// What is called reserved is never filled: 0 or empty.
struct ComputeBoardRow {
  std::uint32_t index;  // 1
  char dn[64];
  char rn[64];
  std::int32_t column_4;  // 100
  std::uint32_t id;       // 1
  char model[64];
  std::int32_t column_7;   // 1
  std::int32_t column_8;   // 1
  std::int32_t column_9;   // 1
  std::int32_t column_10;  // 100
  std::int32_t column_11;  // 1
  std::int32_t presence;   // 10
  char column_13[64];
  char serial[64];
  std::int32_t column_15;  // 100
  char vendor[64];
  std::int32_t column_17;  // 100
  ComputeBoardRow *next;
};

TAVO_DECLARE_TABLE_WITH_OWN_ROWS(tavoComputeBoardTable, ComputeBoardRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the row from the board's FRU area, trying 5 times, 5 seconds apart; what cannot be read stays empty. 0, or -1
// when memory is short. Takes ev lock 6 only to link the row.
int initialize_board_table(void);
// Takes ev lock 6. 0, or the lock's error.
int de_register_ComputeBoard_table_handler(void);

// Puts `row`, which was allocated with calloc, in front of the list, taking ev lock 6. Null when the lock cannot be
// had: then the row is freed.
ComputeBoardRow *tavoComputeBoardTable_createEntry(ComputeBoardRow *row);

// Lookups for the daemon's own use; nothing in the module calls them. Each writes a text and a NUL to `out`, which
// holds 128 octets, and returns 1; or it returns 0, and `out` is as it was.
//
// What stands behind the separator in the first line of the query tool's output for a key that holds the key.
int GetValueFromGDS(const char *key, const char *separator, char *out);
// The first line that a shell command prints.
int PipetoOutput(const char *command, char *out);
}
#pragma GCC visibility pop

}  // namespace tavo
