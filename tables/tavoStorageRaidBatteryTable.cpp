#include "tables/tavoStorageRaidBatteryTable.h"

#include <array>
#include <cstddef>
#include <cstdint>

#include "core/table.h"
#include "core/table_entry_points.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "storage/stor_info.h"
#include "tables/storage_names.h"

tavo::StorageRaidBatteryRow *tavoStorageRaidBatteryTable_head = nullptr;

namespace tavo {
namespace {

using Row = StorageRaidBatteryRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 45, 11};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::text, .field = field<decltype(Row::dn)>(offsetof(Row, dn))},
    {.number = 3, .codec = Codec::text, .field = field<decltype(Row::rn)>(offsetof(Row, rn))},
    {.number = 4, .codec = Codec::gauge, .field = field<decltype(Row::gauge_4)>(offsetof(Row, gauge_4))},
    {.number = 5, .codec = Codec::integer, .field = field<decltype(Row::integer_5)>(offsetof(Row, integer_5))},
    {.number = 6, .codec = Codec::gauge, .field = field<decltype(Row::present)>(offsetof(Row, present))},
    {.number = 7, .codec = Codec::text, .field = field<decltype(Row::type)>(offsetof(Row, type))},
    {.number = 8, .codec = Codec::counter64, .field = field<decltype(Row::counter_8)>(offsetof(Row, counter_8))},
    {.number = 9, .codec = Codec::integer, .field = field<decltype(Row::operability)>(offsetof(Row, operability))},
    {.number = 10, .codec = Codec::integer, .field = field<decltype(Row::presence)>(offsetof(Row, presence))},
    {.number = 11, .codec = Codec::text, .field = field<decltype(Row::text_11)>(offsetof(Row, text_11))},
    {.number = 12, .codec = Codec::text, .field = field<decltype(Row::text_12)>(offsetof(Row, text_12))},
    {.number = 13, .codec = Codec::counter64, .field = field<decltype(Row::counter_13)>(offsetof(Row, counter_13))},
    {.number = 14, .codec = Codec::text, .field = field<decltype(Row::text_14)>(offsetof(Row, text_14))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoStorageRaidBatteryTable",
    .root = root,
    .lock = ListLock::subagent(2),
    .columns = columns,
    .row = layout_of<Row>(),
};

constinit Table table(description, &tavoStorageRaidBatteryTable_head);

constexpr auto type_names = std::to_array<const char *>(
    {"unknown", "NoBattery", "iBBU", "BBU", "ZCRLegacy", "iTBBU3", "iBBU08", "iBBU09", "TMM-C SuperCap"});

const char *type_name(std::uint32_t code) {
  return type_names[code < type_names.size() ? code : 0];
}

void fill(Row &row, const ControllerRecord &controller) {
  row = {};
  copy_text(row.rn, "raid-battery");
  write_dn_on_controller(row.dn, controller.location(), row.rn);
  row.present = controller.u32(STOR_BATTERY_PRESENT);
  copy_text(row.type, type_name(controller.u32(STOR_BATTERY_TYPE)));
  row.operability = controller.u32(STOR_BATTERY_STATE) == 1 ? 3 : 1;
  row.presence = row.present != 0 ? 10 : 0;
  copy_text(row.text_11, "unknown");
  copy_text(row.text_12, "unknown");
  copy_text(row.text_14, "unknown");
}

}  // namespace
}  // namespace tavo

TAVO_TABLE_ENTRY_POINTS(tavoStorageRaidBatteryTable, tavo::StorageRaidBatteryRow, tavo::table)

int initialize_table_tavoStorageRaidBatteryTable(void) {
  tavo::table.trace_entry(__func__, __LINE__);
  tavo::table.register_with({.handler = tavoStorageRaidBatteryTable_handler,
                             .first_row = tavoStorageRaidBatteryTable_get_first_data_point,
                             .next_row = tavoStorageRaidBatteryTable_get_next_data_point});
  return initialize_bbu_table(0);
}

int initialize_bbu_table(int refresh) {
  if (refresh == 1) {
    tavoStorageRaidBatteryTable_removeAllEntries();
  }
  const auto row = tavo::make_zeroed<tavo::StorageRaidBatteryRow>();
  if (row == nullptr || head_stor_ptr == nullptr) {
    return -1;
  }
  std::uint32_t index = 1;
  for (const tavo::StorController *at = head_stor_ptr; at != nullptr; at = at->next) {
    const tavo::ControllerRecord controller(*at);
    if (controller.u32(STOR_BATTERY_PRESENT) != 1) {
      continue;
    }
    tavo::fill(*row, controller);
    if (tavoStorageRaidBatteryTable_createEntry(index, row.get()) != nullptr) {
      ++index;
    }
  }
  return 1;
}
