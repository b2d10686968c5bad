#include "tables/tavoComputeRackUnitMbTempStatsTable.h"

#include <array>
#include <cstddef>
#include <cstring>

#include "core/table.h"
#include "core/table_entry_points.h"
#include "core/text.h"
#include "tables/board_statistics.h"

tavo::MbTempStatsRow *tavoComputeRackUnitMbTempStatsTable_head = nullptr;

namespace tavo {
namespace {

using Row = MbTempStatsRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 9, 44};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::text, .field = field<decltype(Row::dn)>(offsetof(Row, dn))},
    {.number = 3, .codec = Codec::text, .field = field<decltype(Row::rn)>(offsetof(Row, rn))},
    {.number = 4, .codec = Codec::integer, .field = field<decltype(Row::ambient)>(offsetof(Row, ambient))},
    {.number = 5, .codec = Codec::integer, .field = field<decltype(Row::ambient_avg)>(offsetof(Row, ambient_avg))},
    {.number = 6, .codec = Codec::integer, .field = field<decltype(Row::ambient_max)>(offsetof(Row, ambient_max))},
    {.number = 7, .codec = Codec::integer, .field = field<decltype(Row::ambient_min)>(offsetof(Row, ambient_min))},
    {.number = 8, .codec = Codec::integer, .field = field<decltype(Row::front)>(offsetof(Row, front))},
    {.number = 9, .codec = Codec::integer, .field = field<decltype(Row::front_avg)>(offsetof(Row, front_avg))},
    {.number = 10, .codec = Codec::integer, .field = field<decltype(Row::front_max)>(offsetof(Row, front_max))},
    {.number = 11, .codec = Codec::integer, .field = field<decltype(Row::front_min)>(offsetof(Row, front_min))},
    {.number = 12, .codec = Codec::gauge, .field = field<decltype(Row::intervals)>(offsetof(Row, intervals))},
    {.number = 13, .codec = Codec::integer, .field = field<decltype(Row::iohub1)>(offsetof(Row, iohub1))},
    {.number = 14, .codec = Codec::integer, .field = field<decltype(Row::iohub1_avg)>(offsetof(Row, iohub1_avg))},
    {.number = 15, .codec = Codec::integer, .field = field<decltype(Row::iohub1_max)>(offsetof(Row, iohub1_max))},
    {.number = 16, .codec = Codec::integer, .field = field<decltype(Row::iohub1_min)>(offsetof(Row, iohub1_min))},
    {.number = 17, .codec = Codec::integer, .field = field<decltype(Row::iohub2)>(offsetof(Row, iohub2))},
    {.number = 18, .codec = Codec::integer, .field = field<decltype(Row::iohub2_avg)>(offsetof(Row, iohub2_avg))},
    {.number = 19, .codec = Codec::integer, .field = field<decltype(Row::iohub2_max)>(offsetof(Row, iohub2_max))},
    {.number = 20, .codec = Codec::integer, .field = field<decltype(Row::iohub2_min)>(offsetof(Row, iohub2_min))},
    {.number = 21, .codec = Codec::integer, .field = field<decltype(Row::rear)>(offsetof(Row, rear))},
    {.number = 22, .codec = Codec::integer, .field = field<decltype(Row::rear_avg)>(offsetof(Row, rear_avg))},
    {.number = 23, .codec = Codec::integer, .field = field<decltype(Row::rear_max)>(offsetof(Row, rear_max))},
    {.number = 24, .codec = Codec::integer, .field = field<decltype(Row::rear_min)>(offsetof(Row, rear_min))},
    {.number = 25, .codec = Codec::integer, .field = field<decltype(Row::suspect)>(offsetof(Row, suspect))},
    {.number = 26, .codec = Codec::text, .field = field<decltype(Row::thresholded)>(offsetof(Row, thresholded))},
    {.number = 27, .codec = Codec::text, .field = field<decltype(Row::time_collected)>(offsetof(Row, time_collected))},
    {.number = 28, .codec = Codec::gauge, .field = field<decltype(Row::update)>(offsetof(Row, update))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoComputeRackUnitMbTempStatsTable",
    .root = root,
    .lock = ListLock::ev(5),
    .columns = columns,
    .row = layout_of<Row>(),
};

constinit Table table(description, &tavoComputeRackUnitMbTempStatsTable_head);

constexpr auto keys = std::to_array<const char *>({"ambientTemp", "frontTemp", "iohub1Temp", "iohub2Temp", "rearTemp"});

bool insert(const BoardSample &sample) {
  Row row{};
  copy_text(row.dn, "sys/rack-unit-1/board/temp-stats");
  copy_text(row.rn, "temp-stats");
  row.ambient = sample.readings[0];
  row.front = sample.readings[1];
  row.iohub1 = sample.readings[2];
  row.iohub2 = sample.readings[3];
  row.rear = sample.readings[4];
  std::memcpy(row.time_collected, sample.collected, sizeof row.time_collected);
  return tavoComputeRackUnitMbTempStatsTable_createEntry(1, &row) != nullptr;
}

constexpr BoardStatistics statistics = {.table = table, .keys = keys, .insert = insert};

}  // namespace
}  // namespace tavo

TAVO_TABLE_ENTRY_POINTS(tavoComputeRackUnitMbTempStatsTable, tavo::MbTempStatsRow, tavo::table)

int initialize_table_tavoComputeRackUnitMbTempStatsTable(void) {
  tavo::table.trace_entry(__func__, __LINE__);
  tavo::table.register_with({.handler = tavoComputeRackUnitMbTempStatsTable_handler,
                             .first_row = tavoComputeRackUnitMbTempStatsTable_get_first_data_point,
                             .next_row = tavoComputeRackUnitMbTempStatsTable_get_next_data_point});
  return initialize_computerackunitmb_tempstats(0);
}

int initialize_computerackunitmb_tempstats(int reload) {
  return tavo::build(tavo::statistics, reload);
}

int de_register_computerackunitmb_tempstats_table_handler(void) {
  return tavo::table.de_register();
}
