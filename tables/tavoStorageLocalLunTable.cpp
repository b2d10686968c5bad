#include "tables/tavoStorageLocalLunTable.h"

#include <array>
#include <cstddef>
#include <cstdint>

#include "core/code_value.h"
#include "core/table.h"
#include "core/table_entry_points.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "storage/stor_info.h"
#include "tables/storage_names.h"

tavo::StorageLocalLunRow *tavoStorageLocalLunTable_head = nullptr;

namespace tavo {
namespace {

using Row = StorageLocalLunRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 45, 8};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::text, .field = field<decltype(Row::dn)>(offsetof(Row, dn))},
    {.number = 3, .codec = Codec::text, .field = field<decltype(Row::rn)>(offsetof(Row, rn))},
    {.number = 4, .codec = Codec::gauge, .field = field<decltype(Row::gauge_4)>(offsetof(Row, gauge_4))},
    {.number = 5, .codec = Codec::integer, .field = field<decltype(Row::integer_5)>(offsetof(Row, integer_5))},
    {.number = 6, .codec = Codec::gauge, .field = field<decltype(Row::number)>(offsetof(Row, number))},
    {.number = 7, .codec = Codec::text, .field = field<decltype(Row::text_7)>(offsetof(Row, text_7))},
    {.number = 8, .codec = Codec::counter64, .field = field<decltype(Row::counter_8)>(offsetof(Row, counter_8))},
    {.number = 9, .codec = Codec::integer, .field = field<decltype(Row::operability)>(offsetof(Row, operability))},
    {.number = 10, .codec = Codec::integer, .field = field<decltype(Row::presence)>(offsetof(Row, presence))},
    {.number = 11, .codec = Codec::text, .field = field<decltype(Row::text_11)>(offsetof(Row, text_11))},
    {.number = 12, .codec = Codec::text, .field = field<decltype(Row::text_12)>(offsetof(Row, text_12))},
    {.number = 13, .codec = Codec::counter64, .field = field<decltype(Row::counter_13)>(offsetof(Row, counter_13))},
    {.number = 14, .codec = Codec::integer, .field = field<decltype(Row::type)>(offsetof(Row, type))},
    {.number = 15, .codec = Codec::text, .field = field<decltype(Row::text_15)>(offsetof(Row, text_15))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoStorageLocalLunTable",
    .root = root,
    .lock = ListLock::subagent(2),
    .columns = columns,
    .row = layout_of<Row>(),
};

constinit Table table(description, &tavoStorageLocalLunTable_head);

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
  copy_text(row.text_7, "unknown");
  row.counter_8 = volume.u64(STOR_VOLUME_COLUMN_8);
  row.operability = value_of(operability_values, state);
  row.presence = value_of(presence_values, state);
  copy_text(row.text_11, "unknown");
  copy_text(row.text_12, "unknown");
  row.counter_13 = volume.u64(STOR_VOLUME_COLUMN_13);
  row.type = value_of(type_values, volume.u32(STOR_VOLUME_TYPE));
  copy_text(row.text_15, "unknown");
}

}  // namespace
}  // namespace tavo

TAVO_TABLE_ENTRY_POINTS(tavoStorageLocalLunTable, tavo::StorageLocalLunRow, tavo::table)

int initialize_table_tavoStorageLocalLunTable(void) {
  tavo::table.trace_entry(__func__, __LINE__);
  tavo::table.register_with({.handler = tavoStorageLocalLunTable_handler,
                             .first_row = tavoStorageLocalLunTable_get_first_data_point,
                             .next_row = tavoStorageLocalLunTable_get_next_data_point});
  return initialize_local_lun_table(0);
}

int initialize_local_lun_table(int refresh) {
  if (refresh == 1) {
    tavoStorageLocalLunTable_removeAllEntries();
  }
  const auto row = tavo::make_zeroed<tavo::StorageLocalLunRow>();
  if (row == nullptr || head_stor_ptr == nullptr) {
    return -1;
  }
  std::uint32_t index = 1;
  for (const tavo::StorController *at = head_stor_ptr; at != nullptr; at = at->next) {
    const tavo::ControllerRecord controller(*at);
    for (std::size_t number = 0; number < controller.volume_count(); ++number) {
      if (controller.volume(number).u32(STOR_VOLUME_STATE) == 0) {
        continue;
      }
      tavo::fill(*row, controller, number);
      if (tavoStorageLocalLunTable_createEntry(index, row.get()) != nullptr) {
        ++index;
      }
    }
  }
  return 1;
}
