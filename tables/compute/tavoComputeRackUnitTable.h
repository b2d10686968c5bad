// tavoComputeRackUnitTable: the rack server itself. One row.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

// What is called reserved is never filled: 0 or empty.
struct RackUnitRow {
  std::uint32_t index;  // 1
  char dn[64];
  char rn[64];
  std::int32_t power_state_a;
  std::int32_t power_known;
  char column_6[64];
  std::int32_t column_7;
  std::int32_t column_8;
  std::uint32_t effective_memory;  // MB
  std::int32_t column_10;
  char column_11[64];
  char column_12[64];
  char description[64];
  std::int32_t column_14;
  FourOctetCounter64 counter;
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
  std::int32_t presence;
  char column_46[64];
  char serial[64];
  char column_48[64];
  std::uint32_t total_memory;  // MB
  char uuid[64];
  char vendor[64];
  std::int32_t column_52;
  std::uint32_t cores_enabled;
  std::int32_t memory_voltage;  // a code: 1 or 2
  std::uint32_t memory_speed;   // MHz
  char column_56[64];
  RackUnitRow *next;
};

TAVO_DECLARE_TABLE_WITH_OWN_ROWS(tavoComputeRackUnitTable, RackUnitRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the row, taking ev lock 9; with `mode` 1 it first removes the one that stands. 0, also when the lock cannot be
// had; -1 when memory is short. Identity, core and thread totals and the memory speed are read once for the life of the
// process. Waits up to 25 seconds for the enabled cores, and the first time up to 25 more for the memory speed.
int initialize_rackunit_table(int mode);
// Takes ev lock 9. 0, or the lock's error.
int de_register_ComputeRackUnit_table_handler(void);

// Makes `row`, which was allocated with calloc and is the table's from now on, the only one. The caller holds the lock.
RackUnitRow *tavoComputeRackUnitTable_createEntry(RackUnitRow *row);

// The lookups of the platform's query tool. Each writes a text and a NUL to `out`, which holds 128 octets, and returns
// 1; or it returns 0, and `out` is as it was. The caller holds the lock. A separator belongs to the text that is
// searched for: a blank, the key, the separator.
//
// From "/var/getCPUInventory", which the tool writes with `tool_key` first, unless it has since the row's last build
// began or its last try failed: the sum of all values of a key, and how often the key occurs.
int getCPU(const char *tool_key, const char *lookup_key, const char *separator, char *out);
int getCPUCount(const char *tool_key, const char *lookup_key, const char *separator, char *out);
// From "/var/getMemoryInventory", which the tool writes with `tool_key` first, unless it has since the first build of
// the process began or its last try for the memory speed failed: the first value of a key. Later builds read what
// stands there.
int getMemory(const char *tool_key, const char *lookup_key, const char *separator, char *out);
// From the tool's own output: what stands behind the separator in the first line that holds `grep_key`. The key "fru"
// with "Product Serial" asks ipmitool instead.
int getValue(const char *tool_key, const char *grep_key, const char *separator, char *out);

// The memory's voltage code from the platform's file: 1 or 2; 2 as well when the file does not say.
int GetMemoryVoltage(void);
}
#pragma GCC visibility pop

}  // namespace tavo
