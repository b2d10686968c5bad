#include "tables/tavoComputeBoardTable.h"

#include <array>
#include <cstddef>
#include <cstdlib>

#include "core/record.h"
#include "core/shell.h"
#include "core/table.h"
#include "core/table_entry_points.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "platform/fru.h"
#include "tables/retries.h"

tavo::ComputeBoardRow *tavoComputeBoardTable_head = nullptr;

namespace tavo {
namespace {

using Row = ComputeBoardRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 9, 6};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::text, .field = field<decltype(Row::dn)>(offsetof(Row, dn))},
    {.number = 3, .codec = Codec::text, .field = field<decltype(Row::rn)>(offsetof(Row, rn))},
    {.number = 4, .codec = Codec::integer, .field = field<decltype(Row::state_4)>(offsetof(Row, state_4))},
    {.number = 5, .codec = Codec::gauge, .field = field<decltype(Row::id)>(offsetof(Row, id))},
    {.number = 6, .codec = Codec::text, .field = field<decltype(Row::model)>(offsetof(Row, model))},
    {.number = 7, .codec = Codec::integer, .field = field<decltype(Row::state_7)>(offsetof(Row, state_7))},
    {.number = 8, .codec = Codec::integer, .field = field<decltype(Row::state_8)>(offsetof(Row, state_8))},
    {.number = 9, .codec = Codec::integer, .field = field<decltype(Row::state_9)>(offsetof(Row, state_9))},
    {.number = 10, .codec = Codec::integer, .field = field<decltype(Row::state_10)>(offsetof(Row, state_10))},
    {.number = 11, .codec = Codec::integer, .field = field<decltype(Row::state_11)>(offsetof(Row, state_11))},
    {.number = 12, .codec = Codec::integer, .field = field<decltype(Row::presence)>(offsetof(Row, presence))},
    {.number = 13, .codec = Codec::text, .field = field<decltype(Row::reserved_13)>(offsetof(Row, reserved_13))},
    {.number = 14, .codec = Codec::text, .field = field<decltype(Row::serial)>(offsetof(Row, serial))},
    {.number = 15, .codec = Codec::integer, .field = field<decltype(Row::state_15)>(offsetof(Row, state_15))},
    {.number = 16, .codec = Codec::text, .field = field<decltype(Row::vendor)>(offsetof(Row, vendor))},
    {.number = 17, .codec = Codec::integer, .field = field<decltype(Row::state_17)>(offsetof(Row, state_17))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoComputeBoardTable",
    .root = root,
    .lock = ListLock::ev(6),
    .columns = columns,
    .row = layout_of<Row>(),
    .traces = false,
};

constinit Table table(description, &tavoComputeBoardTable_head);

constexpr int board_fru = 0;
constexpr std::size_t longest_line = 127;  // of a command's output

// False, and the row left alone, when the area cannot be read.
bool read_board_area(Row &row) {
  std::array<std::byte, FRU_BOARD_AREA_SIZE> octets{};
  if (get_fru_board_area_from_id(board_fru, octets.data()) != 0) {
    snmp_log(LOG_DEBUG, "SNMP:Failed Board Model\n");
    snmp_log(LOG_DEBUG, "SNMP:Failed Board Serial\n");
    snmp_log(LOG_DEBUG, "SNMP:Failed Board Vendor\n");
    return false;
  }
  const Record area(octets);
  copy_text(row.model, area.text(FRU_BOARD_PRODUCT_NAME, FRU_TEXT_SIZE - 1));
  copy_text(row.serial, area.text(FRU_BOARD_SERIAL, FRU_TEXT_SIZE - 1));
  copy_text(row.vendor, area.text(FRU_BOARD_MANUFACTURER, FRU_TEXT_SIZE - 1));
  return true;
}

}  // namespace
}  // namespace tavo

TAVO_AGENT_ENTRY_POINTS(tavoComputeBoardTable, tavo::table)

int initialize_table_tavoComputeBoardTable(void) {
  tavo::table.register_with({.handler = tavoComputeBoardTable_handler,
                             .first_row = tavoComputeBoardTable_get_first_data_point,
                             .next_row = tavoComputeBoardTable_get_next_data_point});
  return initialize_board_table();
}

int initialize_board_table(void) {
  auto row = tavo::make_zeroed<tavo::ComputeBoardRow>();
  if (row == nullptr) {
    return -1;
  }
  row->index = 1;
  tavo::format_text(row->dn, "sys/rack-unit-%d/board", 1);
  tavo::copy_text(row->rn, "board");
  row->id = 1;
  tavo::try_repeatedly([&] { return tavo::read_board_area(*row); });
  row->state_4 = row->state_10 = row->state_15 = row->state_17 = 100;
  row->state_7 = row->state_8 = row->state_9 = row->state_11 = 1;
  row->presence = 10;
  tavoComputeBoardTable_createEntry(row.release());
  return 0;
}

int de_register_ComputeBoard_table_handler(void) {
  return tavo::table.de_register();
}

tavo::ComputeBoardRow *tavoComputeBoardTable_createEntry(tavo::ComputeBoardRow *row) {
  if (row == nullptr) {
    return nullptr;
  }
  const tavo::ListGuard guard(tavo::table.lock());
  if (guard.error() != 0) {
    std::free(row);
    return nullptr;
  }
  tavo::table.rows().push_front(row);
  return row;
}

int tavoComputeBoardTable_removeEntry(tavo::ComputeBoardRow *row) {
  return tavo::table.remove(row);
}

void tavoComputeBoardTable_removeAllEntries(void) {
  const tavo::ListGuard guard(tavo::table.lock());
  if (guard.error() == 0) {
    tavo::table.remove_all();
  }
}

int GetValueFromGDS(const char *key, const char *separator, char *out) {
  char command[256];
  tavo::format_text(command, "datactl get=%s | flatkv | grep %s|awk -F\"%s\" '{print $2}'", key, key, separator);
  return PipetoOutput(command, out);
}

int PipetoOutput(const char *command, char *out) {
  return tavo::first_line_of(command, tavo::longest_line, out) ? 1 : 0;
}
