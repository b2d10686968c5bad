// tavoAdaptorUnitTable: one row for each add-in card.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

// What is called reserved is never filled: 0 or empty.
struct AdaptorUnitRow {
  std::uint32_t index;  // the slot number
  char dn[64];
  char rn[64];
  std::uint32_t column_4;
  std::uint32_t column_5;
  char column_6[64];
  char column_7[64];
  FourOctetCounter64 counter;
  std::uint32_t slot;
  std::int32_t column_10;
  char product_id[64];
  std::int32_t oper_state;   // 1, or 8 when too hot
  std::int32_t operability;  // 1, or 8 when too hot
  char bus[64];              // the logical I2C bus
  char slot_text[64];
  std::int32_t column_16;  // 100
  std::int32_t column_17;  // 1
  std::int32_t presence;   // 10
  char column_19[64];
  char firmware_version[64];
  char serial[64];
  std::int32_t overtemperature;  // 0, or 3 when too hot
  char vendor[64];
  std::int32_t column_24;
  std::int32_t column_25;
  char part_number[64];
  AdaptorUnitRow *next;
};

TAVO_DECLARE_TABLE(tavoAdaptorUnitTable, AdaptorUnitRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the rows, taking ev lock 3; with `reload` 1 it first removes those that stand. 0, also when the lock cannot be
// had; -1 when memory is short. Waits up to 25 seconds for a card's slot number, without which the card is left out,
// and up to 50 for its firmware version.
int initialize_adaptorunit_table(int reload);
// Takes ev lock 3. 0, or the lock's error.
int de_register_adaptor_table_handler(void);

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

}  // namespace tavo
