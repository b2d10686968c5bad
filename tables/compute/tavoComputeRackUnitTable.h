// tavoComputeRackUnitTable: the rack server itself. One row.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

// Columns without a name are never filled, unless a constant is given: 0 or empty.
struct RackUnitRow {
  std::uint32_t index;  // always 1
  char dn[64];
  char rn[64];
  std::int32_t power_state_a;
  std::int32_t power_known;  // 1; 2 if the platform reports a state other than 0 and 1
  char column_6[64];
  std::int32_t column_7;
  std::int32_t column_8;           // always 1
  std::uint32_t effective_memory;  // MB
  std::int32_t column_10;
  char column_11[64];
  char column_12[64];
  char description[64];
  std::int32_t column_14;
  FourOctetCounter64 counter;  // always 0
  char column_16[64];
  char column_17[64];
  char column_18[64];
  std::uint32_t column_19;
  std::uint32_t column_20;
  char column_21[64];
  char column_22[64];
  char column_23[64];
  char column_24[64];
  char column_25[64];
  std::uint32_t column_26;
  std::uint32_t column_27;
  char column_28[64];
  std::int32_t column_29;
  char column_30[64];
  std::int32_t column_31;
  char product_id[64];
  char product_name[64];
  std::uint32_t adaptors;
  std::uint32_t cores;
  std::uint32_t processors;
  std::uint32_t column_37;
  std::uint32_t column_38;
  std::uint32_t threads;
  std::int32_t power_state_b;
  char column_41[64];
  std::int32_t power_state_c;
  std::int32_t power_state_d;
  char column_44[64];
  std::int32_t presence;  // always 10
  char revision[64];      // never filled
  char serial[64];
  char column_48[64];
  std::uint32_t total_memory;  // MB
  char uuid[64];
  char vendor[64];         // always "Tavolo Systems Inc"
  std::int32_t column_52;  // always 1
  std::uint32_t cores_enabled;
  std::int32_t memory_voltage;  // a code: 1 or 2
  std::uint32_t memory_speed;   // MHz
  char column_56[64];
  RackUnitRow *next;
};

TAVO_DECLARE_TABLE_WITH_OWN_ROWS(tavoComputeRackUnitTable, RackUnitRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the row, taking the table's lock. With `refresh` 1, it first removes the old row. 0, even if the lock cannot
// be had and nothing is done; -1 if memory is short. The number of adaptors, the identity, the totals of processors,
// cores and threads, and the memory speed are read once in the life of the process. Waits up to 25 seconds for the
// enabled cores, and the first time up to 25 more for the memory speed.
int initialize_rackunit_table(int refresh);
// Takes the table's lock. 0, or the lock's error.
int de_register_ComputeRackUnit_table_handler(void);

// Makes `row`, which was allocated with calloc, the only one; the table owns it from then on. A null row changes
// nothing. The caller holds the table's lock.
RackUnitRow *tavoComputeRackUnitTable_createEntry(RackUnitRow *row);

// Lookups in the query tool's data. Each writes a text and a NUL to `out`, which holds 128 octets, and returns 1, or
// returns 0 and leaves `out` alone. The caller holds the table's lock. What the first three look for is a blank, the
// key and the separator.
//
// In "/var/getCPUInventory", which the tool writes for `tool_key` first unless it has since the last build began or its
// last try failed: the sum of all values of a key, and the number of its occurrences.
int getCPU(const char *tool_key, const char *lookup_key, const char *separator, char *out);
int getCPUCount(const char *tool_key, const char *lookup_key, const char *separator, char *out);
// In "/var/getMemoryInventory", which the tool writes for `tool_key` first unless it has since the process's first
// build began or its last try for the memory speed failed: the first value of a key. Later builds read that file as it
// is.
int getMemory(const char *tool_key, const char *lookup_key, const char *separator, char *out);
// In what the tool prints: the text behind the separator in the first line that holds `grep_key`. The tool key "fru"
// with "Product Serial" asks ipmitool instead.
int getValue(const char *tool_key, const char *grep_key, const char *separator, char *out);

// The memory's voltage code from the platform's file: 1 or 2; 2, too, if the file does not say.
int GetMemoryVoltage(void);
}
#pragma GCC visibility pop

}  // namespace tavo
