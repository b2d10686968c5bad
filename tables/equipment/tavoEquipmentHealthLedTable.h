// tavoEquipmentHealthLedTable: the server's health LED.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

struct HealthLedRow {
  std::uint32_t index;  // from 1, in the dump's order
  char dn[64];
  char rn[64];
  std::int32_t color;       // 1 green, 2 amber, 3 red, 0 unknown
  std::int32_t color_code;  // second code of the colour: a steady amber LED has another than a blinking one
  char column_6[64];        // never filled
  std::uint32_t id;         // the LED's number in the dump
  char name[64];
  std::int32_t state;  // 0 missing, 1 on, 2 any other, 3 blinking
  HealthLedRow *next;
};

TAVO_DECLARE_TABLE(tavoEquipmentHealthLedTable, HealthLedRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the rows from the external LEDs' dump, taking ev lock 105; with `refresh` 1 it first removes those that stand.
// 0, also when the lock cannot be had or the dump cannot be read; -1 when memory is short.
int initialize_health_led_table(int refresh);

// Lookups in "/var/LedInv". Each writes a text and a NUL to `out`, which holds 128 octets, and returns 1; or it returns
// 0, and `out` is as it was.
//
// Has the tool write the dump, then counts a key's occurrences.
int getValueFromGDSforHLED(const char *key, const char *separator, char *out);
// The value of occurrence n + 1, one further than asked for: the table is built on that, and its users know its rows
// so.
int getValueFromGDSforHLEDVal(const char *key, const char *separator, char *out, int n);
}
#pragma GCC visibility pop

}  // namespace tavo
