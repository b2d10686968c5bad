// tavoComputeMbPowerStatsTable: what the server board draws. One row.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

// Readings are whole numbers in the dump's own units. Averages, maxima and minima are never filled, nor are the columns
// that qualify the samples (intervals, suspect, thresholded, update): 0 or empty.
struct MbPowerStatsRow {
  std::uint32_t index;  // always 1
  char dn[64];
  char rn[64];
  std::int32_t consumed_power;
  std::int32_t consumed_power_avg;
  std::int32_t consumed_power_max;
  std::int32_t consumed_power_min;
  std::int32_t input_current;
  std::int32_t input_current_avg;
  std::int32_t input_current_max;
  std::int32_t input_current_min;
  std::int32_t input_voltage;
  std::int32_t input_voltage_avg;
  std::int32_t input_voltage_max;
  std::int32_t input_voltage_min;
  std::uint32_t intervals;
  std::int32_t suspect;
  char thresholded[64];
  char time_collected[64];  // DateAndTime; see sources/readings.h
  std::uint32_t update;
  MbPowerStatsRow *next;
};

TAVO_DECLARE_TABLE(tavoComputeMbPowerStatsTable, MbPowerStatsRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the row from the board's dump, taking the table's lock. With `refresh` 1, it first removes the old row. 0,
// even if the lock cannot be had and nothing is done; -1 if memory is short. Waits up to 25 seconds for the first
// reading.
int initialize_computemb_powerstats(int refresh);
// Takes the table's lock. 0, or the lock's error.
int de_register_computemb_powerstats_table_handler(void);
}
#pragma GCC visibility pop

}  // namespace tavo
