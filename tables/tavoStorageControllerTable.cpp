#include "tables/tavoStorageControllerTable.h"

#include <array>
#include <cstddef>
#include <string_view>

#include "core/table.h"
#include "core/table_entry_points.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "storage/stor_info.h"
#include "tables/storage_names.h"

tavo::StorageControllerRow *tavoStorageControllerTable_head = nullptr;

namespace tavo {
namespace {

using Row = StorageControllerRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 45, 1};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::text, .field = field<decltype(Row::dn)>(offsetof(Row, dn))},
    {.number = 3, .codec = Codec::text, .field = field<decltype(Row::rn)>(offsetof(Row, rn))},
    {.number = 4, .codec = Codec::gauge, .field = field<decltype(Row::id)>(offsetof(Row, id))},
    {.number = 5, .codec = Codec::text, .field = field<decltype(Row::description)>(offsetof(Row, description))},
    {.number = 6, .codec = Codec::integer, .field = field<decltype(Row::integer_6)>(offsetof(Row, integer_6))},
    {.number = 7, .codec = Codec::integer, .field = field<decltype(Row::integer_7)>(offsetof(Row, integer_7))},
    {.number = 8, .codec = Codec::text, .field = field<decltype(Row::text_8)>(offsetof(Row, text_8))},
    {.number = 9, .codec = Codec::text, .field = field<decltype(Row::location)>(offsetof(Row, location))},
    {.number = 10, .codec = Codec::integer, .field = field<decltype(Row::integer_10)>(offsetof(Row, integer_10))},
    {.number = 11, .codec = Codec::integer, .field = field<decltype(Row::integer_11)>(offsetof(Row, integer_11))},
    {.number = 12, .codec = Codec::integer, .field = field<decltype(Row::integer_12)>(offsetof(Row, integer_12))},
    {.number = 13, .codec = Codec::text, .field = field<decltype(Row::text_13)>(offsetof(Row, text_13))},
    {.number = 14, .codec = Codec::text, .field = field<decltype(Row::text_14)>(offsetof(Row, text_14))},
    {.number = 15, .codec = Codec::integer, .field = field<decltype(Row::integer_15)>(offsetof(Row, integer_15))},
    {.number = 16, .codec = Codec::integer, .field = field<decltype(Row::integer_16)>(offsetof(Row, integer_16))},
    {.number = 17, .codec = Codec::text, .field = field<decltype(Row::text_17)>(offsetof(Row, text_17))},
    {.number = 18, .codec = Codec::integer, .field = field<decltype(Row::integer_18)>(offsetof(Row, integer_18))},
    {.number = 19, .codec = Codec::text, .field = field<decltype(Row::text_19)>(offsetof(Row, text_19))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoStorageControllerTable",
    .root = root,
    .lock = ListLock::subagent(2),
    .columns = columns,
    .row = layout_of<Row>(),
};

constinit Table table(description, &tavoStorageControllerTable_head);

template <std::size_t N>
void copy_known_text(char (&to)[N], std::string_view text) {
  copy_text(to, text.empty() ? "unknown" : text);
}

void fill(Row &row, const ControllerRecord &controller) {
  const std::string_view location = controller.location();
  row = {};
  write_controller_dn(row.dn, location);
  write_controller_rn(row.rn, location);
  row.id = controller.u32(STOR_CONTROLLER_ID);
  copy_known_text(row.description, controller.text(STOR_CONTROLLER_DESCRIPTION, STOR_CONTROLLER_DESCRIPTION_SIZE));
  row.integer_6 = controller.u32(STOR_CONTROLLER_FAULTY) != 0 ? 2 : 1;
  row.integer_7 = row.integer_6;
  copy_text(row.text_8, "unknown");
  copy_text(row.location, location);
  row.integer_12 = 10;
  copy_known_text(row.text_13, controller.text(STOR_CONTROLLER_COLUMN_13, STOR_TEXT_SIZE));
  copy_known_text(row.text_14, controller.text(STOR_CONTROLLER_COLUMN_14, STOR_TEXT_SIZE));
  row.integer_16 = 1;
  copy_known_text(row.text_17, controller.text(STOR_CONTROLLER_COLUMN_17, STOR_TEXT_SIZE));
  copy_known_text(row.text_19, controller.text(STOR_CONTROLLER_COLUMN_19, STOR_LONG_TEXT_SIZE));
}

}  // namespace
}  // namespace tavo

TAVO_TABLE_ENTRY_POINTS(tavoStorageControllerTable, tavo::StorageControllerRow, tavo::table)

int initialize_table_tavoStorageControllerTable(void) {
  tavo::table.trace_entry(__func__, __LINE__);
  tavo::table.register_with({.handler = tavoStorageControllerTable_handler,
                             .first_row = tavoStorageControllerTable_get_first_data_point,
                             .next_row = tavoStorageControllerTable_get_next_data_point});
  return initialize_controller_table(0);
}

int initialize_controller_table(int refresh) {
  if (refresh == 1) {
    tavoStorageControllerTable_removeAllEntries();
  }
  const auto row = tavo::make_zeroed<tavo::StorageControllerRow>();
  if (row == nullptr || head_stor_ptr == nullptr) {
    return -1;
  }
  std::uint32_t index = 1;
  for (const tavo::StorController *at = head_stor_ptr; at != nullptr; at = at->next) {
    tavo::fill(*row, tavo::ControllerRecord(*at));
    tavoStorageControllerTable_createEntry(index++, row.get());
  }
  return 1;
}
