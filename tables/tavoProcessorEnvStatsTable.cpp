#include "tables/tavoProcessorEnvStatsTable.h"

#include <array>
#include <cstddef>
#include <cstring>

#include "core/table.h"
#include "core/table_entry_points.h"
#include "core/text.h"
#include "tables/environment_statistics.h"

tavo::ProcessorEnvStatsRow *tavoProcessorEnvStatsTable_head = nullptr;

namespace tavo {
namespace {

using Row = ProcessorEnvStatsRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 41, 2};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::text, .field = field<decltype(Row::dn)>(offsetof(Row, dn))},
    {.number = 3, .codec = Codec::text, .field = field<decltype(Row::rn)>(offsetof(Row, rn))},
    {.number = 4, .codec = Codec::integer, .field = field<decltype(Row::input_current)>(offsetof(Row, input_current))},
    {.number = 5, .codec = Codec::integer, .field = field<decltype(Row::input_current_avg)>(offsetof(Row, input_current_avg))},
    {.number = 6, .codec = Codec::integer, .field = field<decltype(Row::input_current_max)>(offsetof(Row, input_current_max))},
    {.number = 7, .codec = Codec::integer, .field = field<decltype(Row::input_current_min)>(offsetof(Row, input_current_min))},
    {.number = 8, .codec = Codec::gauge, .field = field<decltype(Row::intervals)>(offsetof(Row, intervals))},
    {.number = 9, .codec = Codec::integer, .field = field<decltype(Row::suspect)>(offsetof(Row, suspect))},
    {.number = 10, .codec = Codec::integer, .field = field<decltype(Row::temperature)>(offsetof(Row, temperature))},
    {.number = 11, .codec = Codec::integer, .field = field<decltype(Row::temperature_avg)>(offsetof(Row, temperature_avg))},
    {.number = 12, .codec = Codec::integer, .field = field<decltype(Row::temperature_max)>(offsetof(Row, temperature_max))},
    {.number = 13, .codec = Codec::integer, .field = field<decltype(Row::temperature_min)>(offsetof(Row, temperature_min))},
    {.number = 14, .codec = Codec::text, .field = field<decltype(Row::thresholded)>(offsetof(Row, thresholded))},
    {.number = 15, .codec = Codec::text, .field = field<decltype(Row::time_collected)>(offsetof(Row, time_collected))},
    {.number = 16, .codec = Codec::gauge, .field = field<decltype(Row::update)>(offsetof(Row, update))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoProcessorEnvStatsTable",
    .root = root,
    .lock = ListLock::ev(2),
    .columns = columns,
    .row = layout_of<Row>(),
};

constinit Table table(description, &tavoProcessorEnvStatsTable_head);

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
    .command = "datactl get=processorStats | flatkv > /var/processorStatsInventory",
    .dump = "/var/processorStatsInventory",
    .insert = insert,
};

}  // namespace
}  // namespace tavo

TAVO_TABLE_ENTRY_POINTS(tavoProcessorEnvStatsTable, tavo::ProcessorEnvStatsRow, tavo::table)

int initialize_table_tavoProcessorEnvStatsTable(void) {
  tavo::table.trace_entry(__func__, __LINE__);
  tavo::table.register_with({.handler = tavoProcessorEnvStatsTable_handler,
                             .first_row = tavoProcessorEnvStatsTable_get_first_data_point,
                             .next_row = tavoProcessorEnvStatsTable_get_next_data_point});
  return initialize_processor_envstats(0);
}

int initialize_processor_envstats(int reload) {
  return tavo::build(tavo::statistics, reload);
}

int de_register_processor_envstats_table_handler(void) {
  return tavo::table.de_register();
}
