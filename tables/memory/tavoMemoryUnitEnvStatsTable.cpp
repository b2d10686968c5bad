#include "tables/memory/tavoMemoryUnitEnvStatsTable.h"

#include <array>
#include <cstddef>
#include <cstring>

#include "core/text.h"
#include "sources/environment_statistics.h"

namespace tavo {
namespace {

using Row = MemoryUnitEnvStatsRow;

constexpr auto root = table_root(30, 12);

TAVO_COLUMNS(tavoMemoryUnitEnvStatsTable, Row, dn, rn, intervals, suspect, temperature, temperature_avg,
             temperature_max, temperature_min, thresholded, time_collected, update);

constexpr auto refresh_rules = std::to_array<RefreshRule>({
    {.cause = RefreshCause::Memory, .place = 1},
    {.cause = RefreshCause::Periodic, .place = 1},
});

constexpr TableDescription description = {
    .name = "tavoMemoryUnitEnvStatsTable",
    .root = root,
    .lock = ev_lock<1>,
    .columns = columns,
    .row = layout_of<Row>(),
    .build = initialize_memoryunit_envstats,
    .refresh = refresh_rules,
    .started = "MemoryEnv Init done\n",
};

}  // namespace

TAVO_DEFINE_TABLE(tavoMemoryUnitEnvStatsTable, Row, description)

namespace {

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
    .source = "memoryStats",
    .path = "/var/memoryStatsInventory",
    .insert = insert,
};

}  // namespace

int initialize_memoryunit_envstats(int refresh) {
  return build(statistics, refresh);
}

int de_register_memoryunit_envstats_table_handler(void) {
  return table.de_register();
}

}  // namespace tavo
