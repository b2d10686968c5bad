// tavoMemoryUnitEnvStatsTable: how warm the memory modules are. One row for each module in the dump.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

// Readings are whole numbers in the dump's own units. Other readings, averages, maxima and minima are not sampled and
// stay 0.
struct MemoryUnitEnvStatsRow {
  std::uint32_t index;  // from 1, in the dump's order
  char dn[64];
  char rn[64];
  std::uint32_t intervals;
  std::int32_t suspect;
  std::int32_t temperature;
  std::int32_t temperature_avg;
  std::int32_t temperature_max;
  std::int32_t temperature_min;
  char thresholded[64];
  char time_collected[64];
  std::uint32_t update;
  MemoryUnitEnvStatsRow *next;
};

TAVO_DECLARE_TABLE(tavoMemoryUnitEnvStatsTable, MemoryUnitEnvStatsRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the rows from the dump, taking ev lock 1; with `reload` 1 it first removes those that stand. 0, also for a
// dump without rows and when the lock cannot be had; -1 when the dump cannot be read, after 25 seconds of tries, or
// memory is short.
int initialize_memoryunit_envstats(int reload);
// Takes ev lock 1. 0, or the lock's error.
int de_register_memoryunit_envstats_table_handler(void);
}
#pragma GCC visibility pop

}  // namespace tavo
