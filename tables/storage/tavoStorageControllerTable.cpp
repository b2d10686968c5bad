#include "tables/storage/tavoStorageControllerTable.h"

#include <array>
#include <cstddef>
#include <string_view>

#include "core/text.h"
#include "core/zeroed.h"
#include "sources/stor_info.h"
#include "tables/storage/storage_names.h"

namespace tavo {
namespace {

using Row = StorageControllerRow;

constexpr auto root = table_root(45, 1);

TAVO_COLUMNS(tavoStorageControllerTable, Row, dn, rn, id, description, oper_state, operability, column_8, location,
             perf, power, presence, revision, serial, thermal, column_16, vendor, voltage, type);

constexpr TableDescription description = {
    .name = "tavoStorageControllerTable",
    .root = root,
    .lock = storage_lock,
    .columns = columns,
    .row = layout_of<Row>(),
    .build = initialize_controller_table,
    .source = TableSource::StorageSnapshot,
    .started = "StorageController Init done\n",
};

}  // namespace

TAVO_DEFINE_TABLE(tavoStorageControllerTable, Row, description)

namespace {

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
  row.oper_state = controller.u32(STOR_CONTROLLER_FAULTY) != 0 ? 2 : 1;
  row.operability = row.oper_state;
  copy_text(row.column_8, "unknown");
  copy_text(row.location, location);
  row.presence = 10;
  copy_known_text(row.revision, controller.text(STOR_CONTROLLER_REVISION, STOR_TEXT_SIZE));
  copy_known_text(row.serial, controller.text(STOR_CONTROLLER_SERIAL, STOR_TEXT_SIZE));
  row.column_16 = 1;
  copy_known_text(row.vendor, controller.text(STOR_CONTROLLER_VENDOR, STOR_TEXT_SIZE));
  copy_known_text(row.type, controller.text(STOR_CONTROLLER_TYPE, STOR_LONG_TEXT_SIZE));
}

}  // namespace

int initialize_controller_table(int refresh) {
  if (refresh == 1) {
    tavoStorageControllerTable_removeAllEntries();
  }
  const auto row = make_zeroed<StorageControllerRow>();
  if (row == nullptr || head_stor_ptr == nullptr) {
    return -1;
  }
  std::uint32_t index = 1;
  for (const StorController *at = head_stor_ptr; at != nullptr; at = at->next) {
    fill(*row, ControllerRecord(*at));
    tavoStorageControllerTable_createEntry(index++, row.get());
  }
  return 1;
}

}  // namespace tavo
