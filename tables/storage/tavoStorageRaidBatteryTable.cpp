#include "tables/storage/tavoStorageRaidBatteryTable.h"

#include <array>
#include <cstddef>
#include <cstdint>

#include "core/text.h"
#include "core/zeroed.h"
#include "sources/stor_info.h"
#include "tables/storage/storage_names.h"

namespace tavo {
namespace {

using Row = StorageRaidBatteryRow;

constexpr auto root = table_root(45, 11);

TAVO_COLUMNS(tavoStorageRaidBatteryTable, Row, dn, rn, column_4, column_5, present, type, column_8, operability,
             presence, column_11, column_12, column_13, column_14);

constexpr TableDescription description = {
    .name = "tavoStorageRaidBatteryTable",
    .root = root,
    .lock = storage_lock,
    .columns = columns,
    .row = layout_of<Row>(),
    .build = initialize_bbu_table,
    .source = TableSource::StorageSnapshot,
    .started = "StorageRaidBattery Init done\n",
};

}  // namespace

TAVO_DEFINE_TABLE(tavoStorageRaidBatteryTable, Row, description)

namespace {

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
  copy_text(row.column_11, "unknown");
  copy_text(row.column_12, "unknown");
  copy_text(row.column_14, "unknown");
}

}  // namespace

int initialize_bbu_table(int refresh) {
  if (refresh == 1) {
    tavoStorageRaidBatteryTable_removeAllEntries();
  }
  const auto row = make_zeroed<StorageRaidBatteryRow>();
  if (row == nullptr || head_stor_ptr == nullptr) {
    return -1;
  }
  std::uint32_t index = 1;
  for (const StorController *at = head_stor_ptr; at != nullptr; at = at->next) {
    const ControllerRecord controller(*at);
    if (controller.u32(STOR_BATTERY_PRESENT) != 1) {
      continue;
    }
    fill(*row, controller);
    if (tavoStorageRaidBatteryTable_createEntry(index, row.get()) != nullptr) {
      ++index;
    }
  }
  return 1;
}

}  // namespace tavo
