#include "tables/sd_cards/tavoStorageVeltroControllerTable.h"

#include <array>
#include <cstddef>
#include <cstdint>

#include "core/code_value.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "sources/velt_info.h"

namespace tavo {
namespace {

using Row = StorageVeltroControllerRow;

constexpr auto root = table_root(45, 35);

TAVO_COLUMNS(tavoStorageVeltroControllerTable, Row, dn, rn, column_4, column_5, column_6, column_7, column_8, column_9,
             oper_state, operability, column_12, column_13, column_14, column_15, column_16, presence, column_18,
             column_19, column_20, column_21, column_22, column_23, column_24, column_25, column_26, column_27,
             column_28, column_29, column_30, column_31, column_32, column_33, column_34, column_35, column_36,
             column_37, column_38, column_39, column_40, column_41, column_42, column_43, column_44, mode, column_46);

constexpr TableDescription description = {
    .name = "tavoStorageVeltroControllerTable",
    .root = root,
    .lock = storage_lock,
    .columns = columns,
    .row = layout_of<Row>(),
    .build = initialize_velt_controller_table,
    .source = TableSource::SdCards,
};

}  // namespace

TAVO_DEFINE_TABLE(tavoStorageVeltroControllerTable, Row, description)

namespace {

constexpr auto flag_values = std::to_array<CodeValue>({
    {.code = 0, .value = 1},
    {.code = 1, .value = 2},
});

constexpr auto zero_values = std::to_array<CodeValue>({{.code = 0, .value = 1}});

void fill(Row &row, const Record &controller) {
  row = {};
  copy_text(row.dn, "sys/rack-unit-1/board/storage-veltro");
  copy_text(row.rn, "storage-veltro");
  row.column_4 = controller.i32(VELT_CONTROLLER_COLUMN_4);
  row.column_5 = controller.i32(VELT_CONTROLLER_COLUMN_5);
  row.column_6 = value_of(flag_values, controller.u32(VELT_CONTROLLER_COLUMN_6));
  row.column_7 = 1;
  copy_field(row.column_8, controller, VELT_CONTROLLER_COLUMN_8);
  row.oper_state = 1;
  row.operability = 1;
  row.column_14 = 100;
  row.column_15 = controller.u32(VELT_CONTROLLER_COLUMN_15);
  row.column_16 = 100;
  row.presence = 10;
  row.column_18 = controller.u32(VELT_CONTROLLER_COLUMN_18);
  row.column_19 = controller.i32(VELT_CONTROLLER_COLUMN_19);
  row.column_20 = controller.u32(VELT_CONTROLLER_COLUMN_20);
  copy_field(row.column_21, controller, VELT_CONTROLLER_COLUMN_21);
  copy_field(row.column_22, controller, VELT_CONTROLLER_COLUMN_22);
  row.column_23 = 100;
  row.column_24 = 4;
  copy_field(row.column_25, controller, VELT_CONTROLLER_COLUMN_25);
  row.column_26 = controller.u32(VELT_CONTROLLER_COLUMN_26);
  row.column_27 = 100;
  row.column_28 = controller.u32(VELT_CONTROLLER_COLUMN_28);
  row.column_30 = value_of(flag_values, controller.u32(VELT_CONTROLLER_COLUMN_30));
  copy_field(row.column_31, controller, VELT_CONTROLLER_COLUMN_31);
  row.column_43 = value_of(zero_values, controller.u32(VELT_CONTROLLER_COLUMN_43));
  row.mode = value_of(flag_values, controller.u32(VELT_CONTROLLER_MODE));
}

}  // namespace

int initialize_velt_controller_table(int refresh) {
  print_velt_sizes();
  if (refresh == 1) {
    tavoStorageVeltroControllerTable_removeAllEntries();
  }
  const auto row = make_zeroed<StorageVeltroControllerRow>();
  if (row != nullptr) {
    fill(*row, Record(velt_ctlr_info, sizeof velt_ctlr_info));
    tavoStorageVeltroControllerTable_createEntry(1, row.get());
  }
  return 1;
}

}  // namespace tavo
