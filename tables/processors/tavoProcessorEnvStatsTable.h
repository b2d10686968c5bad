// tavoProcessorEnvStatsTable: how warm the processors are. One row for each processor in the dump.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

// Only the names, the temperature and the time are filled; the other columns are 0 or empty.
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
  std::int32_t temperature;  // a whole number, in the dump's own unit
  std::int32_t temperature_avg;
  std::int32_t temperature_max;
  std::int32_t temperature_min;
  char thresholded[64];
  char time_collected[64];  // DateAndTime; see sources/readings.h
  std::uint32_t update;
  ProcessorEnvStatsRow *next;
};

TAVO_DECLARE_TABLE(tavoProcessorEnvStatsTable, ProcessorEnvStatsRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the rows from the dump, taking the table's lock. With `refresh` 1, it first removes the old rows. 0, even for
// a dump without units, and if the lock cannot be had and nothing is done. -1 if the dump cannot be read in 25 seconds
// of tries, or if memory is short: then the rows made so far stay.
int initialize_processor_envstats(int refresh);
// Takes the table's lock. 0, or the lock's error.
int de_register_processor_envstats_table_handler(void);
}
#pragma GCC visibility pop

}  // namespace tavo
