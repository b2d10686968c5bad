// tavoProcessorEnvStatsTable: how warm the processors are. One row for each processor in the dump.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

// Readings are whole numbers in the dump's own units. Other readings, averages, maxima and minima are not sampled and
// stay 0.
struct ProcessorEnvStatsRow {
  std::uint32_t index;  // from 1, in the dump's order
  char dn[64];
  char rn[64];
  std::int32_t input_current;
  std::int32_t input_current_avg;
  std::int32_t input_current_max;
  std::int32_t input_current_min;
  std::uint32_t intervals;
  std::int32_t suspect;
  std::int32_t temperature;
  std::int32_t temperature_avg;
  std::int32_t temperature_max;
  std::int32_t temperature_min;
  char thresholded[64];
  char time_collected[64];
  std::uint32_t update;
  ProcessorEnvStatsRow *next;
};

TAVO_DECLARE_TABLE(tavoProcessorEnvStatsTable, ProcessorEnvStatsRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the rows from the dump, taking ev lock 2; with `reload` 1 it first removes those that stand. 0, also for a
// dump without rows and when the lock cannot be had; -1 when the dump cannot be read, after 25 seconds of tries, or
// memory is short.
int initialize_processor_envstats(int reload);
// Takes ev lock 2. 0, or the lock's error.
int de_register_processor_envstats_table_handler(void);
}
#pragma GCC visibility pop

}  // namespace tavo
