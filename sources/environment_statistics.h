// The builder of the memory and the processor environment statistics: one row for each unit in the dump, with its
// temperature and the time it was taken.
#pragma once

#include <cstdint>

#include "core/table.h"
#include "sources/dump.h"
#include "sources/readings.h"

namespace tavo {

// What the dump says of one unit.
struct EnvironmentSample {
  std::uint32_t row;  // from 1, in the dump's order
  bool has_id;
  char id[dump_value_size];
  std::int32_t temperature;  // whole, in the dump's own unit
  CollectionTime collected;
};

// A table of samples: where they come from and how one becomes a row.
struct EnvironmentStatistics {
  Table &table;
  const char *command;  // writes the dump
  const char *dump;     // its path
  // Inserts a row; false when there is no memory for it.
  bool (*insert)(const EnvironmentSample &sample);
};

// Builds the rows under the table's lock, with `reload` 1 in place of those that stand. 0 also for a dump without units
// and when the lock cannot be had; -1 when the dump cannot be read, after 25 seconds of tries, or memory is short: then
// the rows made so far stay.
int build(const EnvironmentStatistics &statistics, int reload);

}  // namespace tavo
