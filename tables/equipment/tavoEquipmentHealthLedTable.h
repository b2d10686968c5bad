// tavoEquipmentHealthLedTable: the server's health LED.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

struct HealthLedRow {
  std::uint32_t index;  // from 1, in the order of the dump
  char dn[64];
  char rn[64];
  std::int32_t color;       // 1 green, 2 amber, 3 red, 0 unknown
  std::int32_t color_code;  // 0 green or unknown, 1 steady amber, 2 blinking amber or red
  char column_6[64];        // always empty
  std::uint32_t id;         // the LED's number in the dump
  char name[64];            // always "LED_HLTH_STATUS"
  std::int32_t state;       // 0 not in the dump, 1 on, 2 any other, 3 blinking
  HealthLedRow *next;
};

// The table cannot be de-registered.
TAVO_DECLARE_TABLE(tavoEquipmentHealthLedTable, HealthLedRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the rows from the dump of the external LEDs, taking the table's lock. With `refresh` 1, it first removes the
// old rows. 0, even if the lock cannot be had or the dump cannot be read; -1 if memory is short.
int initialize_health_led_table(int refresh);

// Lookups in "/var/LedInv". Each writes a text and a NUL to `out`, which holds 128 octets, and returns 1, or returns 0
// and leaves `out` alone.
//
// Has the tool write the dump, then counts the occurrences of a key.
int getValueFromGDSforHLED(const char *key, const char *separator, char *out);
// Reads the value of occurrence n + 1, not n. The table's rows depend on that, and managers know them as they are.
int getValueFromGDSforHLEDVal(const char *key, const char *separator, char *out, int n);
}
#pragma GCC visibility pop

}  // namespace tavo
