// The builder of the motherboard's power and temperature statistics: one row each, from the same dump.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "core/table.h"
#include "sources/readings.h"

namespace tavo {

// What the dump says of the board: a whole number for each key asked for, 0 for one that is missing.
struct BoardSample {
  std::array<std::int32_t, 5> readings;
  CollectionTime collected;
};

struct BoardStatistics {
  Table &table;
  std::span<const char *const> keys;  // of the readings, at most 5; the first is worth waiting for
  // Inserts the row; false when there is no memory for it.
  bool (*insert)(const BoardSample &sample);
};

// Builds the row under the table's lock, with `reload` 1 in place of the one that stands. The row is made whatever the
// dump holds, after 25 seconds of tries when the first key does not turn up. 0, also when the lock cannot be had; -1
// when memory is short.
int build(const BoardStatistics &statistics, int reload);

}  // namespace tavo
