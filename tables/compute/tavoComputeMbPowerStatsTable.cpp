#include "tables/compute/tavoComputeMbPowerStatsTable.h"

#include <array>
#include <cstddef>
#include <cstring>

#include "core/text.h"
#include "tables/compute/board_statistics.h"

namespace tavo {
namespace {

using Row = MbPowerStatsRow;

constexpr auto root = table_root(9, 14);

TAVO_COLUMNS(tavoComputeMbPowerStatsTable, Row, dn, rn, consumed_power, consumed_power_avg, consumed_power_max,
             consumed_power_min, input_current, input_current_avg, input_current_max, input_current_min, input_voltage,
             input_voltage_avg, input_voltage_max, input_voltage_min, intervals, suspect, thresholded, time_collected,
             update);

constexpr auto refresh_rules = std::to_array<RefreshRule>({
    {.cause = RefreshCause::Fans, .place = 2},
    {.cause = RefreshCause::PowerSupplies, .place = 2},
    {.cause = RefreshCause::Memory, .place = 3},
    {.cause = RefreshCause::Processors, .place = 3},
    {.cause = RefreshCause::Periodic, .place = 3},
});

constexpr TableDescription description = {
    .name = "tavoComputeMbPowerStatsTable",
    .root = root,
    .lock = ev_lock<4>,
    .columns = columns,
    .row = layout_of<Row>(),
    .build = initialize_computemb_powerstats,
    .refresh = refresh_rules,
    .started = "RackUnitMBPower Init done\n",
};

}  // namespace

TAVO_DEFINE_TABLE(tavoComputeMbPowerStatsTable, Row, description)

namespace {

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

int initialize_computemb_powerstats(int reload) {
  return build(statistics, reload);
}

int de_register_computemb_powerstats_table_handler(void) {
  return table.de_register();
}

}  // namespace tavo
