#include "tables/tavoMemoryUnitEnvStatsTable.h"

#include <array>
#include <cstddef>
#include <cstring>

#include "core/table.h"
#include "core/table_entry_points.h"
#include "core/text.h"
#include "tables/environment_statistics.h"

tavo::MemoryUnitEnvStatsRow *tavoMemoryUnitEnvStatsTable_head = nullptr;

namespace tavo {
namespace {

using Row = MemoryUnitEnvStatsRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 30, 12};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::text, .field = field<decltype(Row::dn)>(offsetof(Row, dn))},
    {.number = 3, .codec = Codec::text, .field = field<decltype(Row::rn)>(offsetof(Row, rn))},
    {.number = 4, .codec = Codec::gauge, .field = field<decltype(Row::intervals)>(offsetof(Row, intervals))},
    {.number = 5, .codec = Codec::integer, .field = field<decltype(Row::suspect)>(offsetof(Row, suspect))},
    {.number = 6, .codec = Codec::integer, .field = field<decltype(Row::temperature)>(offsetof(Row, temperature))},
    {.number = 7, .codec = Codec::integer, .field = field<decltype(Row::temperature_avg)>(offsetof(Row, temperature_avg))},
    {.number = 8, .codec = Codec::integer, .field = field<decltype(Row::temperature_max)>(offsetof(Row, temperature_max))},
    {.number = 9, .codec = Codec::integer, .field = field<decltype(Row::temperature_min)>(offsetof(Row, temperature_min))},
    {.number = 10, .codec = Codec::text, .field = field<decltype(Row::thresholded)>(offsetof(Row, thresholded))},
    {.number = 11, .codec = Codec::text, .field = field<decltype(Row::time_collected)>(offsetof(Row, time_collected))},
    {.number = 12, .codec = Codec::gauge, .field = field<decltype(Row::update)>(offsetof(Row, update))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoMemoryUnitEnvStatsTable",
    .root = root,
    .lock = ListLock::ev(1),
    .columns = columns,
    .row = layout_of<Row>(),
};

constinit Table table(description, &tavoMemoryUnitEnvStatsTable_head);

bool insert(const EnvironmentSample &sample) {
  Row row{};
  if (sample.has_id) {
    format_text(row.dn, "sys/rack-unit-1/memarray-1/mem-%s/dimm-env-stats", sample.id);
    copy_text(row.rn, "dimm_env_stats");
  }
  row.temperature = sample.temperature;
  std::memcpy(row.time_collected, sample.collected, sizeof row.time_collected);
  return tavoMemoryUnitEnvStatsTable_createEntry(sample.row, &row) != nullptr;
}

constexpr EnvironmentStatistics statistics = {
    .table = table,
    .command = "datactl get=memoryStats | flatkv > /var/memoryStatsInventory",
    .dump = "/var/memoryStatsInventory",
    .insert = insert,
};

}  // namespace
}  // namespace tavo

TAVO_TABLE_ENTRY_POINTS(tavoMemoryUnitEnvStatsTable, tavo::MemoryUnitEnvStatsRow, tavo::table)

int initialize_table_tavoMemoryUnitEnvStatsTable(void) {
  tavo::table.trace_entry(__func__, __LINE__);
  tavo::table.register_with({.handler = tavoMemoryUnitEnvStatsTable_handler,
                             .first_row = tavoMemoryUnitEnvStatsTable_get_first_data_point,
                             .next_row = tavoMemoryUnitEnvStatsTable_get_next_data_point});
  return initialize_memoryunit_envstats(0);
}

int initialize_memoryunit_envstats(int reload) {
  return tavo::build(tavo::statistics, reload);
}

int de_register_memoryunit_envstats_table_handler(void) {
  return tavo::table.de_register();
}
