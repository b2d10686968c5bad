// tavoEquipmentPsuTable: one row for each power supply, read from the files that the controller's PMBus daemon keeps.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

struct EquipmentPsuRow {
  std::uint32_t index;  // the supply's number
  char dn[64];
  char rn[32];
  std::uint64_t interval_counter;  // always 0
  std::uint32_t id;                // the supply's number, from 1
  char model[64];
  std::int32_t operability;  // 1 good, 5 faulty or off, 6 absent
  std::int32_t oper_state;   // 1 good, 3 faulty or off, 6 absent
  std::int32_t perf;         // always 0
  std::int32_t power;        // 4 on, 5 faulty or off, 6 absent
  std::int32_t presence;     // 10 present, 11 absent
  char firmware_version[64];
  char serial[64];
  std::int32_t thermal;  // always 0
  char vendor[64];       // always "unknown"
  std::int32_t voltage;  // always 0
  EquipmentPsuRow *next;
};

// Offsets within the record that is kept of a supply. Nothing is aligned.
inline constexpr std::size_t power_supply_fault = 0;      // 1 octet: 0 good, 1 faulty
inline constexpr std::size_t power_supply_input = 1;      // 2 octets as the daemon wrote them; 0 if unreadable
inline constexpr std::size_t power_supply_max_power = 5;  // 2 octets as the daemon wrote them; 0xFF each if unreadable
inline constexpr std::size_t power_supply_revision = 9;   // text of 8 octets and a NUL
inline constexpr std::size_t power_supply_name = 18;      // text of at most 63 octets and a NUL
inline constexpr std::size_t power_supply_model = 82;     // text of 32 octets, with or without a NUL
inline constexpr std::size_t power_supply_size = 178;
inline constexpr std::size_t most_power_supplies = 10;

// The table cannot be de-registered.
TAVO_DECLARE_TABLE(tavoEquipmentPsuTable, EquipmentPsuRow)

#pragma GCC visibility push(default)
extern "C" {

// What the last build read about supplies 1 to 10. Guarded by the table's lock.
extern std::byte m_pwrsupply[most_power_supplies][power_supply_size];

// Builds the rows from the PMBus daemon's files, taking the table's lock and sleeping 5 s under it so that the files
// can settle. With `refresh` 1, it first removes the old rows. 1 on success, and also if the lock cannot be had and
// nothing is done; -1 on failure.
int initialize_psu_table(int refresh);

// The builder's work; the caller holds the table's lock. `scratch` is a row to work on; the second argument is not
// used. 0; -1 if the number of supplies cannot be read; otherwise the result of the last read that came up short: 1 to
// 3 octets of that number, or the octets of the last present supply's model (-1 if that file could not be opened). A
// short model leaves all rows in the table. Reports progress on standard output.
int InventoryPSUviaPMBUSDaemon(EquipmentPsuRow *scratch, int);

// The same rows from the query tool, for a controller without a PMBus daemon. The caller holds the table's lock. Only
// equipped supplies get a row, and the index counts rows. 0; -1 if the tool writes no dump in three tries, 5 s apart.
int InventoryPSUviaMCTools(EquipmentPsuRow *scratch);

// Counts the occurrences of a blank, the key and the suffix in the query tool's dump and writes the count to `out`, 128
// octets. Runs the tool first unless it has already run. 1, or 0 if there is no dump.
int getPSU(const char *key, const char *suffix, char *out);
// The value after occurrence `occurrence` in the dump as it is. `out`: 128 octets. 1, or 0 if it is missing.
int getPSUData(const char *key, const char *suffix, int occurrence, char *out);
}
#pragma GCC visibility pop

}  // namespace tavo
