#include "tables/compute/tavoComputeRackUnitMbTempStatsTable.h"

#include <array>

#include "tables/compute/board_statistics.h"

namespace tavo {
namespace {

using Row = MbTempStatsRow;

constexpr auto root = table_root(9, 44);

TAVO_COLUMNS(tavoComputeRackUnitMbTempStatsTable, Row, dn, rn, ambient, ambient_avg, ambient_max, ambient_min, front,
             front_avg, front_max, front_min, intervals, iohub1, iohub1_avg, iohub1_max, iohub1_min, iohub2, iohub2_avg,
             iohub2_max, iohub2_min, rear, rear_avg, rear_max, rear_min, suspect, thresholded, time_collected, update);

constexpr TableDescription description = {
    .name = "tavoComputeRackUnitMbTempStatsTable",
    .root = root,
    .lock = ev_lock<5>,
    .columns = columns,
    .row = layout_of<Row>(),
    .build = initialize_computerackunitmb_tempstats,
    .refresh = board_refresh_rules,
    .started = "RackUnitMBTemp Init done\n",
};

}  // namespace

TAVO_DEFINE_TABLE(tavoComputeRackUnitMbTempStatsTable, Row, description)

namespace {

constexpr auto readings = std::to_array<BoardReading<Row>>({
    {.key = "ambientTemp", .field = &Row::ambient},
    {.key = "frontTemp", .field = &Row::front},
    {.key = "iohub1Temp", .field = &Row::iohub1},
    {.key = "iohub2Temp", .field = &Row::iohub2},
    {.key = "rearTemp", .field = &Row::rear},
});

constexpr BoardStatistics<Row> statistics = {
    .table = table,
    .dn = "sys/rack-unit-1/board/temp-stats",
    .rn = "temp-stats",
    .readings = readings,
    .create_entry = tavoComputeRackUnitMbTempStatsTable_createEntry,
};

}  // namespace

int initialize_computerackunitmb_tempstats(int refresh) {
  return build(statistics, refresh);
}

int de_register_computerackunitmb_tempstats_table_handler(void) {
  return table.de_register();
}

}  // namespace tavo
