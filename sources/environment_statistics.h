// The builder of the memory and the processor environment statistics: one row for each unit in the dump, with its
// temperature and the time of the sample.
#pragma once

#include <cstdint>

#include "core/table.h"
#include "sources/dump.h"
#include "sources/readings.h"

namespace tavo {

// The dump's data about one unit.
struct EnvironmentSample {
  std::uint32_t row;  // from 1, in the dump's order
  bool has_id;
  char id[dump_value_size];
  std::int32_t temperature;  // whole, in the dump's own unit
  CollectionTime collected;
};

// A table of samples: their source, and how one becomes a row.
struct EnvironmentStatistics {
  Table &table;
  const char *source;  // the query tool's name for the data
  const char *path;    // of the dump
  // Inserts a row; false when memory is short.
  bool (*insert)(const EnvironmentSample &sample);
};

// Builds the rows under the table's lock; with `refresh` 1 it first removes those that stand. 0, also for a dump
// without units and when the lock cannot be had. -1 when the dump cannot be read, after 25 seconds of tries, or when
// memory is short: then the rows made so far stay.
int build(const EnvironmentStatistics &statistics, int refresh);

}  // namespace tavo
