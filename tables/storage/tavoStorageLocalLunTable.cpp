#include "tables/storage/tavoStorageLocalLunTable.h"

#include <array>
#include <cstddef>
#include <cstdint>

#include "core/code_value.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "sources/stor_info.h"
#include "tables/storage/storage_names.h"

namespace tavo {
namespace {

using Row = StorageLocalLunRow;

constexpr auto root = table_root(45, 8);

TAVO_COLUMNS(tavoStorageLocalLunTable, Row, dn, rn, column_4, column_5, number, column_7, capacity, operability,
             presence, column_11, column_12, blocks, type, column_15);

constexpr TableDescription description = {
    .name = "tavoStorageLocalLunTable",
    .root = root,
    .lock = storage_lock,
    .columns = columns,
    .row = layout_of<Row>(),
    .build = initialize_local_lun_table,
    .source = TableSource::StorageSnapshot,
    .started = "StorageLocalLun Init done\n",
};

}  // namespace

TAVO_DEFINE_TABLE(tavoStorageLocalLunTable, Row, description)

namespace {

constexpr auto operability_values = std::to_array<CodeValue>({
    {.code = 1, .value = 2},
    {.code = 2, .value = 3},
    {.code = 3, .value = 3},
    {.code = 4, .value = 1},
});

constexpr auto presence_values = std::to_array<CodeValue>({
    {.code = 1, .value = 10},
    {.code = 2, .value = 10},
    {.code = 3, .value = 10},
    {.code = 4, .value = 10},
});

constexpr auto type_values = std::to_array<CodeValue>({
    {.code = 1, .value = 3},
    {.code = 2, .value = 2},
    {.code = 3, .value = 5},
    {.code = 4, .value = 6},
});

void fill(Row &row, const ControllerRecord &controller, std::size_t number) {
  const Record volume = controller.volume(number);
  const std::uint32_t state = volume.u32(STOR_VOLUME_STATE);
  row = {};
  row.number = static_cast<std::uint32_t>(number);
  format_text(row.rn, "vd-%u", row.number);
  write_dn_on_controller(row.dn, controller.location(), row.rn);
  copy_text(row.column_7, "unknown");
  row.capacity = volume.u64(STOR_VOLUME_CAPACITY_WORD);
  row.operability = value_of(operability_values, state);
  row.presence = value_of(presence_values, state);
  copy_text(row.column_11, "unknown");
  copy_text(row.column_12, "unknown");
  row.blocks = volume.u64(STOR_VOLUME_BLOCKS);
  row.type = value_of(type_values, volume.u32(STOR_VOLUME_TYPE));
  copy_text(row.column_15, "unknown");
}

}  // namespace

int initialize_local_lun_table(int refresh) {
  if (refresh == 1) {
    tavoStorageLocalLunTable_removeAllEntries();
  }
  const auto row = make_zeroed<StorageLocalLunRow>();
  if (row == nullptr || head_stor_ptr == nullptr) {
    return -1;
  }
  std::uint32_t index = 1;
  for (const StorController *at = head_stor_ptr; at != nullptr; at = at->next) {
    const ControllerRecord controller(*at);
    for (std::size_t number = 0; number < controller.volume_count(); ++number) {
      if (controller.volume(number).u32(STOR_VOLUME_STATE) == 0) {
        continue;
      }
      fill(*row, controller, number);
      if (tavoStorageLocalLunTable_createEntry(index, row.get()) != nullptr) {
        ++index;
      }
    }
  }
  return 1;
}

}  // namespace tavo
