#include "tables/compute/tavoComputeBoardTable.h"

#include <array>
#include <cstddef>
#include <cstdlib>

#include "core/record.h"
#include "core/shell.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "platform/fru.h"
#include "sources/data_query.h"
#include "sources/retries.h"

namespace tavo {
namespace {

using Row = ComputeBoardRow;

constexpr auto root = table_root(9, 6);

TAVO_COLUMNS(tavoComputeBoardTable, Row, dn, rn, column_4, id, model, column_7, oper_state, operability, perf, power,
             presence, revision, serial, thermal, vendor, voltage);

constexpr TableDescription description = {
    .name = "tavoComputeBoardTable",
    .root = root,
    .lock = ev_lock<6>,
    .columns = columns,
    .row = layout_of<Row>(),
    .build =
        [](int refresh) {
          if (refresh == 1) {
            tavoComputeBoardTable_removeAllEntries();
          }
          return initialize_board_table();
        },
    .started = "Board Init done\n",
    .traces = false,
};

}  // namespace

TAVO_DEFINE_TABLE_WITH_OWN_ROWS(tavoComputeBoardTable, Row, description)

namespace {

constexpr int board_fru = 0;

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

int initialize_board_table(void) {
  auto row = make_zeroed<ComputeBoardRow>();
  if (row == nullptr) {
    return -1;
  }
  row->index = 1;
  format_text(row->dn, "sys/rack-unit-%d/board", 1);
  copy_text(row->rn, "board");
  row->id = 1;
  try_repeatedly([&] { return read_board_area(*row); });
  row->column_4 = row->perf = row->thermal = row->voltage = 100;
  row->column_7 = row->oper_state = row->operability = row->power = 1;
  row->presence = 10;
  tavoComputeBoardTable_createEntry(row.release());
  return 0;
}

int de_register_ComputeBoard_table_handler(void) {
  return table.de_register();
}

ComputeBoardRow *tavoComputeBoardTable_createEntry(ComputeBoardRow *row) {
  if (row == nullptr) {
    return nullptr;
  }
  const ListGuard guard(table.lock());
  if (guard.error() != 0) {
    std::free(row);
    return nullptr;
  }
  table.rows().push_front(row);
  return row;
}

int tavoComputeBoardTable_removeEntry(ComputeBoardRow *row) {
  return table.remove(row);
}

void tavoComputeBoardTable_removeAllEntries(void) {
  const ListGuard guard(table.lock());
  if (guard.error() == 0) {
    table.remove_all();
  }
}

int GetValueFromGDS(const char *key, const char *separator, char *out) {
  return first_line_of(longest_command, longest_query_line, out,
                       "datactl get=%s | flatkv | grep %s|awk -F\"%s\" '{print $2}'", key, key, separator)
             ? 1
             : 0;
}

int PipetoOutput(const char *command, char *out) {
  return first_line_of(command, longest_query_line, out) ? 1 : 0;
}

}  // namespace tavo
