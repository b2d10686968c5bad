#include "tables/processors/tavoProcessorEnvStatsTable.h"

#include <array>
#include <cstddef>
#include <cstring>

#include "core/text.h"
#include "sources/environment_statistics.h"

namespace tavo {
namespace {

using Row = ProcessorEnvStatsRow;

constexpr auto root = table_root(41, 2);

TAVO_COLUMNS(tavoProcessorEnvStatsTable, Row, dn, rn, input_current, input_current_avg, input_current_max,
             input_current_min, intervals, suspect, temperature, temperature_avg, temperature_max, temperature_min,
             thresholded, time_collected, update);

constexpr auto refresh_rules = std::to_array<RefreshRule>({
    {.cause = RefreshCause::Processors, .place = 1},
    {.cause = RefreshCause::Periodic, .place = 1},
});

constexpr TableDescription description = {
    .name = "tavoProcessorEnvStatsTable",
    .root = root,
    .lock = ev_lock<2>,
    .columns = columns,
    .row = layout_of<Row>(),
    .build = initialize_processor_envstats,
    .refresh = refresh_rules,
    .started = "ProcessorEnv Init done\n",
};

}  // namespace

TAVO_DEFINE_TABLE(tavoProcessorEnvStatsTable, Row, description)

namespace {

bool insert(const EnvironmentSample &sample) {
  Row row{};
  if (sample.has_id) {
    format_text(row.dn, "sys/rack-unit-1/board/cpu-%s/env-stats", sample.id);
    copy_text(row.rn, "env_stats");
  }
  row.temperature = sample.temperature;
  std::memcpy(row.time_collected, sample.collected, sizeof row.time_collected);
  return tavoProcessorEnvStatsTable_createEntry(sample.row, &row) != nullptr;
}

constexpr EnvironmentStatistics statistics = {
    .table = table,
    .source = "processorStats",
    .path = "/var/processorStatsInventory",
    .insert = insert,
};

}  // namespace

int initialize_processor_envstats(int refresh) {
  return build(statistics, refresh);
}

int de_register_processor_envstats_table_handler(void) {
  return table.de_register();
}

}  // namespace tavo
