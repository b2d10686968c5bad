#include "tables/tavoComputeMbPowerStatsTable.h"

#include <array>
#include <cstddef>
#include <cstring>

#include "core/table.h"
#include "core/table_entry_points.h"
#include "core/text.h"
#include "tables/board_statistics.h"

tavo::MbPowerStatsRow *tavoComputeMbPowerStatsTable_head = nullptr;

namespace tavo {
namespace {

using Row = MbPowerStatsRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 9, 14};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::text, .field = field<decltype(Row::dn)>(offsetof(Row, dn))},
    {.number = 3, .codec = Codec::text, .field = field<decltype(Row::rn)>(offsetof(Row, rn))},
    {.number = 4, .codec = Codec::integer, .field = field<decltype(Row::consumed_power)>(offsetof(Row, consumed_power))},
    {.number = 5, .codec = Codec::integer, .field = field<decltype(Row::consumed_power_avg)>(offsetof(Row, consumed_power_avg))},
    {.number = 6, .codec = Codec::integer, .field = field<decltype(Row::consumed_power_max)>(offsetof(Row, consumed_power_max))},
    {.number = 7, .codec = Codec::integer, .field = field<decltype(Row::consumed_power_min)>(offsetof(Row, consumed_power_min))},
    {.number = 8, .codec = Codec::integer, .field = field<decltype(Row::input_current)>(offsetof(Row, input_current))},
    {.number = 9, .codec = Codec::integer, .field = field<decltype(Row::input_current_avg)>(offsetof(Row, input_current_avg))},
    {.number = 10, .codec = Codec::integer, .field = field<decltype(Row::input_current_max)>(offsetof(Row, input_current_max))},
    {.number = 11, .codec = Codec::integer, .field = field<decltype(Row::input_current_min)>(offsetof(Row, input_current_min))},
    {.number = 12, .codec = Codec::integer, .field = field<decltype(Row::input_voltage)>(offsetof(Row, input_voltage))},
    {.number = 13, .codec = Codec::integer, .field = field<decltype(Row::input_voltage_avg)>(offsetof(Row, input_voltage_avg))},
    {.number = 14, .codec = Codec::integer, .field = field<decltype(Row::input_voltage_max)>(offsetof(Row, input_voltage_max))},
    {.number = 15, .codec = Codec::integer, .field = field<decltype(Row::input_voltage_min)>(offsetof(Row, input_voltage_min))},
    {.number = 16, .codec = Codec::gauge, .field = field<decltype(Row::intervals)>(offsetof(Row, intervals))},
    {.number = 17, .codec = Codec::integer, .field = field<decltype(Row::suspect)>(offsetof(Row, suspect))},
    {.number = 18, .codec = Codec::text, .field = field<decltype(Row::thresholded)>(offsetof(Row, thresholded))},
    {.number = 19, .codec = Codec::text, .field = field<decltype(Row::time_collected)>(offsetof(Row, time_collected))},
    {.number = 20, .codec = Codec::gauge, .field = field<decltype(Row::update)>(offsetof(Row, update))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoComputeMbPowerStatsTable",
    .root = root,
    .lock = ListLock::ev(4),
    .columns = columns,
    .row = layout_of<Row>(),
};

constinit Table table(description, &tavoComputeMbPowerStatsTable_head);

constexpr auto keys = std::to_array<const char *>({"consumedPower", "inputCurrent", "inputVoltage"});

bool insert(const BoardSample &sample) {
  Row row{};
  copy_text(row.dn, "sys/rack-unit-1/board/power-stats");
  copy_text(row.rn, "power-stats");
  row.consumed_power = sample.readings[0];
  row.input_current = sample.readings[1];
  row.input_voltage = sample.readings[2];
  std::memcpy(row.time_collected, sample.collected, sizeof row.time_collected);
  return tavoComputeMbPowerStatsTable_createEntry(1, &row) != nullptr;
}

constexpr BoardStatistics statistics = {.table = table, .keys = keys, .insert = insert};

}  // namespace
}  // namespace tavo

TAVO_TABLE_ENTRY_POINTS(tavoComputeMbPowerStatsTable, tavo::MbPowerStatsRow, tavo::table)

int initialize_table_tavoComputeMbPowerStatsTable(void) {
  tavo::table.trace_entry(__func__, __LINE__);
  tavo::table.register_with({.handler = tavoComputeMbPowerStatsTable_handler,
                             .first_row = tavoComputeMbPowerStatsTable_get_first_data_point,
                             .next_row = tavoComputeMbPowerStatsTable_get_next_data_point});
  return initialize_computemb_powerstats(0);
}

int initialize_computemb_powerstats(int reload) {
  return tavo::build(tavo::statistics, reload);
}

int de_register_computemb_powerstats_table_handler(void) {
  return tavo::table.de_register();
}
