// The builder of the motherboard's power and temperature statistics: one row each, from the same dump.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "core/table.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "sources/readings.h"
#include "sources/tool_dump.h"

namespace tavo {

// What refreshes both tables: they follow the parts that draw power and give off heat.
inline constexpr auto board_refresh_rules = std::to_array<RefreshRule>({
    {.cause = RefreshCause::Fans, .place = 2},
    {.cause = RefreshCause::PowerSupplies, .place = 2},
    {.cause = RefreshCause::Memory, .place = 3},
    {.cause = RefreshCause::Processors, .place = 3},
    {.cause = RefreshCause::Periodic, .place = 3},
});

// The board's dump. Each table's build has its own, so the tool runs for each of the two.
class BoardDump {
 public:
  // The reading of a key, as a whole number; 0, which is logged, when it is missing.
  std::int32_t reading(const char *key);
  // The same for a key that is worth waiting for: up to 25 seconds, with the dump written anew after each failed try.
  // 0, which is not logged, when it does not turn up.
  std::int32_t awaited_reading(const char *key);
  // Leaves `collected` alone when the dump does not say.
  void read_collection_time(CollectionTime &collected);

 private:
  bool value(const char *key, char (&out)[dump_value_size]);

  ToolDump dump_{"/var/motherboardStatsInventory"};
};

// A key of the dump, and the field of the row that its reading goes to.
template <class Row>
struct BoardReading {
  const char *key;
  std::int32_t Row::*field;
};

template <class Row>
struct BoardStatistics {
  Table &table;
  const char *dn;
  const char *rn;
  std::span<const BoardReading<Row>> readings;  // the first one is awaited
  Row *(*create_entry)(std::uint32_t index, const Row *filled);
};

// Builds the row under the table's lock; with `refresh` 1 it first removes the one that stands. Whatever the dump
// holds, there is a row. 0, also when the lock cannot be had; -1 when memory is short, which shows before the tool
// runs.
template <class Row>
int build(const BoardStatistics<Row> &statistics, int refresh) {
  const Rebuild rebuild(statistics.table, refresh);
  if (rebuild.error() != 0) {
    return 0;
  }
  const auto row = make_zeroed<Row>();
  if (row == nullptr) {
    return -1;
  }
  copy_text(row->dn, statistics.dn);
  copy_text(row->rn, statistics.rn);
  BoardDump dump;
  for (const BoardReading<Row> &reading : statistics.readings) {
    const bool is_first = &reading == &statistics.readings.front();
    row.get()->*reading.field = is_first ? dump.awaited_reading(reading.key) : dump.reading(reading.key);
  }
  dump.read_collection_time(row->time_collected);
  return statistics.create_entry(1, row.get()) == nullptr ? -1 : 0;
}

}  // namespace tavo
