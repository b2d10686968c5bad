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
  std::uint64_t interval_counter;
  std::uint32_t id;  // from 1
  char model[64];
  std::int32_t operability;  // 1 good, 5 faulty or off, 6 absent
  std::int32_t oper_state;   // 1 good, 3 faulty or off, 6 absent
  std::int32_t column_9;
  std::int32_t power;     // 4 on, 5 faulty or off, 6 absent
  std::int32_t presence;  // 10 present, 11 absent
  char firmware_version[64];
  char serial[64];
  std::int32_t column_14;
  char vendor[64];
  std::int32_t column_16;
  EquipmentPsuRow *next;
};

// Offsets within what is kept of a supply. Nothing is aligned.
inline constexpr std::size_t power_supply_fault = 0;  // 1 octet: 0 good, 1 faulty
inline constexpr std::size_t power_supply_input = 1;  // 2 octets as the daemon wrote them; 0 when unreadable
inline constexpr std::size_t power_supply_max_power =
    5;                                                   // 2 octets as the daemon wrote them; 0xFF each when unreadable
inline constexpr std::size_t power_supply_revision = 9;  // text of 8 octets and a NUL
inline constexpr std::size_t power_supply_name = 18;     // text of at most 63 octets and a NUL
inline constexpr std::size_t power_supply_model = 82;    // text of 32 octets, NUL or not
inline constexpr std::size_t power_supply_size = 178;
inline constexpr std::size_t most_power_supplies = 10;

TAVO_DECLARE_TABLE(tavoEquipmentPsuTable, EquipmentPsuRow)

#pragma GCC visibility push(default)
extern "C" {

// What the last build read of supplies 1 to 10.
extern std::byte m_pwrsupply[most_power_supplies][power_supply_size];
// Builds the rows from the PMBus daemon's files, taking ev lock 56 and sleeping 5 s under it, so that the files can
// settle; with `refresh` 1 it first removes those that stand. 1 on success, and also when the lock cannot be had and
// nothing was done; -1 on failure.
int initialize_psu_table(int refresh);
// The builder's work, under its caller's lock. `scratch` is a row to work on; the second argument is not used.
// 0; -1 when the number of supplies cannot be read; otherwise what the last read brought that was too short: 1 to 3
// octets of the number, or the octets of the last present supply's model, -1 when that could not be opened. In the last
// two cases the rows stand all the same. Reports its progress on standard output.
int InventoryPSUviaPMBUSDaemon(EquipmentPsuRow *scratch, int);
// The same rows from the query tool, for a controller without the PMBus daemon; only supplies that are equipped get
// one, and its index is a running number. 0; -1 when the tool brings nothing three times, 5 s apart.
int InventoryPSUviaMCTools(EquipmentPsuRow *scratch);
// Counts how often a blank, the key and the suffix stand in the query tool's dump, running the tool first unless that
// has been done; writes the number to `out`, 128 octets. 1, or 0 without a dump.
int getPSU(const char *key, const char *suffix, char *out);
// The value behind occurrence `occurrence` in the dump as it stands. `out`: 128 octets. 1, or 0 when it is missing.
int getPSUData(const char *key, const char *suffix, int occurrence, char *out);
}
#pragma GCC visibility pop

}  // namespace tavo
