// tavoComputeMbPowerStatsTable: what the server board draws. One row.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

// Readings are whole numbers in the dump's own units. Averages, maxima and minima are not sampled and stay 0.
struct MbPowerStatsRow {
  std::uint32_t index;  // 1
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
  char time_collected[64];
  std::uint32_t update;
  MbPowerStatsRow *next;
};

TAVO_DECLARE_TABLE(tavoComputeMbPowerStatsTable, MbPowerStatsRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the row from the board's dump, taking ev lock 4; with `reload` 1 it first removes the one that stands. 0, also
// when the lock cannot be had; -1 when memory is short.
int initialize_computemb_powerstats(int reload);
// Takes ev lock 4. 0, or the lock's error.
int de_register_computemb_powerstats_table_handler(void);
}
#pragma GCC visibility pop

}  // namespace tavo
