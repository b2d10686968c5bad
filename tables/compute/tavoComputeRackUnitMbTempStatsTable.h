// tavoComputeRackUnitMbTempStatsTable: how warm the server board is. One row.
#pragma once

#include <cstdint>

#include "core/table_entry_points.h"

namespace tavo {

// Readings are whole numbers in the dump's own units. Averages, maxima and minima are never filled, nor are the columns
// that qualify the samples (intervals, suspect, thresholded, update): 0 or empty.
struct MbTempStatsRow {
  std::uint32_t index;  // always 1
  char dn[64];
  char rn[64];
  std::int32_t ambient;
  std::int32_t ambient_avg;
  std::int32_t ambient_max;
  std::int32_t ambient_min;
  std::int32_t front;
  std::int32_t front_avg;
  std::int32_t front_max;
  std::int32_t front_min;
  std::uint32_t intervals;
  std::int32_t iohub1;
  std::int32_t iohub1_avg;
  std::int32_t iohub1_max;
  std::int32_t iohub1_min;
  std::int32_t iohub2;
  std::int32_t iohub2_avg;
  std::int32_t iohub2_max;
  std::int32_t iohub2_min;
  std::int32_t rear;
  std::int32_t rear_avg;
  std::int32_t rear_max;
  std::int32_t rear_min;
  std::int32_t suspect;
  char thresholded[64];
  char time_collected[64];  // DateAndTime; see sources/readings.h
  std::uint32_t update;
  MbTempStatsRow *next;
};

TAVO_DECLARE_TABLE(tavoComputeRackUnitMbTempStatsTable, MbTempStatsRow)

#pragma GCC visibility push(default)
extern "C" {

// Builds the row from the board's dump, taking the table's lock. With `refresh` 1, it first removes the old row. 0,
// even if the lock cannot be had and nothing is done; -1 if memory is short. Waits up to 25 seconds for the first
// reading.
int initialize_computerackunitmb_tempstats(int refresh);
// Takes the table's lock. 0, or the lock's error.
int de_register_computerackunitmb_tempstats_table_handler(void);
}
#pragma GCC visibility pop

}  // namespace tavo
