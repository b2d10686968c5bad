// tavoAdaptorUnitTable: one row for each add-in card.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

// Columns without a name are never filled, unless a constant is given: 0 or empty.
struct AdaptorUnitRow {
  std::uint32_t index;  // the slot number
  char dn[64];
  char rn[64];
  std::uint32_t column_4;
  std::uint32_t column_5;
  char column_6[64];
  char column_7[64];
  FourOctetCounter64 counter;  // always 0
  std::uint32_t slot;
  std::int32_t column_10;
  char product_id[64];
  std::int32_t oper_state;   // 1, or 8 if too hot
  std::int32_t operability;  // 1, or 8 if too hot
  char bus[64];              // the logical I2C bus
  char slot_text[64];        // as the dump has it; need not be a number
  std::int32_t perf;         // always 100
  std::int32_t power;        // always 1
  std::int32_t presence;     // always 10
  char revision[64];         // never filled
  char firmware_version[64];
  char serial[64];
  std::int32_t overtemperature;  // 0, or 3 if too hot
  char vendor[64];               // always "Tavolo Systems Inc"
  std::int32_t voltage;          // never filled
  std::int32_t column_25;
  char part_number[64];
  AdaptorUnitRow *next;
};

TAVO_DECLARE_TABLE(tavoAdaptorUnitTable, AdaptorUnitRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the rows, taking the table's lock. With `refresh` 1, it first removes the old rows. 0, even if the lock cannot
// be had and nothing is done; -1 if memory is short. Waits up to 25 seconds for a card's slot number, without which the
// card is left out, and up to 50 for its firmware version.
int initialize_adaptorunit_table(int refresh);
// Takes the table's lock. 0, or the lock's error.
int de_register_adaptor_table_handler(void);

// The number of cards that the adapter utility lists; 0 if it cannot be run or lists none.
int GetNumOfAdaptors(void);

// Lookups. Each writes a text and a NUL to `out`, which holds 128 octets, and returns 1, or returns 0 and leaves `out`
// alone.
//
// The value of a key's occurrence in "/var/adapterInventory", which the query tool writes first unless it has since the
// last build began or its last try failed. The caller holds the table's lock.
int GetValuefromCache(const char *key, const char *separator, int occurrence, char *out);
// The version of the firmware that the card in this slot runs, in up to 10 tries, 5 seconds apart.
int GetAdaptorFirmwareRevision(int slot, char *out);
}
#pragma GCC visibility pop

}  // namespace tavo
