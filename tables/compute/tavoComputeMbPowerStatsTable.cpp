#include "tables/compute/tavoComputeMbPowerStatsTable.h"

#include <array>

#include "tables/compute/board_statistics.h"

namespace tavo {
namespace {

using Row = MbPowerStatsRow;

constexpr auto root = table_root(9, 14);

TAVO_COLUMNS(tavoComputeMbPowerStatsTable, Row, dn, rn, consumed_power, consumed_power_avg, consumed_power_max,
             consumed_power_min, input_current, input_current_avg, input_current_max, input_current_min, input_voltage,
             input_voltage_avg, input_voltage_max, input_voltage_min, intervals, suspect, thresholded, time_collected,
             update);

constexpr TableDescription description = {
    .name = "tavoComputeMbPowerStatsTable",
    .root = root,
    .lock = ev_lock<4>,
    .columns = columns,
    .row = layout_of<Row>(),
    .build = initialize_computemb_powerstats,
    .refresh = board_refresh_rules,
    .started = "RackUnitMBPower Init done\n",
};

}  // namespace

TAVO_DEFINE_TABLE(tavoComputeMbPowerStatsTable, Row, description)

namespace {

constexpr auto readings = std::to_array<BoardReading<Row>>({
    {.key = "consumedPower", .field = &Row::consumed_power},
    {.key = "inputCurrent", .field = &Row::input_current},
    {.key = "inputVoltage", .field = &Row::input_voltage},
});

constexpr BoardStatistics<Row> statistics = {
    .table = table,
    .dn = "sys/rack-unit-1/board/power-stats",
    .rn = "power-stats",
    .readings = readings,
    .create_entry = tavoComputeMbPowerStatsTable_createEntry,
};

}  // namespace

int initialize_computemb_powerstats(int refresh) {
  return build(statistics, refresh);
}

int de_register_computemb_powerstats_table_handler(void) {
  return table.de_register();
}

}  // namespace tavo
