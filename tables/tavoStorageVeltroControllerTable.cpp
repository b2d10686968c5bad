#include "tables/tavoStorageVeltroControllerTable.h"

#include <array>
#include <cstddef>
#include <cstdint>

#include "core/code_value.h"
#include "core/table.h"
#include "core/table_entry_points.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "tables/velt_info.h"

tavo::StorageVeltroControllerRow *tavoStorageVeltroControllerTable_head = nullptr;

namespace tavo {
namespace {

using Row = StorageVeltroControllerRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 45, 35};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::text, .field = field<decltype(Row::dn)>(offsetof(Row, dn))},
    {.number = 3, .codec = Codec::text, .field = field<decltype(Row::rn)>(offsetof(Row, rn))},
    {.number = 4, .codec = Codec::integer, .field = field<decltype(Row::integer_4)>(offsetof(Row, integer_4))},
    {.number = 5, .codec = Codec::integer, .field = field<decltype(Row::integer_5)>(offsetof(Row, integer_5))},
    {.number = 6, .codec = Codec::integer, .field = field<decltype(Row::integer_6)>(offsetof(Row, integer_6))},
    {.number = 7, .codec = Codec::gauge, .field = field<decltype(Row::gauge_7)>(offsetof(Row, gauge_7))},
    {.number = 8, .codec = Codec::text, .field = field<decltype(Row::text_8)>(offsetof(Row, text_8))},
    {.number = 9, .codec = Codec::text, .field = field<decltype(Row::text_9)>(offsetof(Row, text_9))},
    {.number = 10, .codec = Codec::integer, .field = field<decltype(Row::integer_10)>(offsetof(Row, integer_10))},
    {.number = 11, .codec = Codec::integer, .field = field<decltype(Row::integer_11)>(offsetof(Row, integer_11))},
    {.number = 12, .codec = Codec::text, .field = field<decltype(Row::text_12)>(offsetof(Row, text_12))},
    {.number = 13, .codec = Codec::text, .field = field<decltype(Row::text_13)>(offsetof(Row, text_13))},
    {.number = 14, .codec = Codec::integer, .field = field<decltype(Row::integer_14)>(offsetof(Row, integer_14))},
    {.number = 15, .codec = Codec::gauge, .field = field<decltype(Row::gauge_15)>(offsetof(Row, gauge_15))},
    {.number = 16, .codec = Codec::integer, .field = field<decltype(Row::integer_16)>(offsetof(Row, integer_16))},
    {.number = 17, .codec = Codec::integer, .field = field<decltype(Row::integer_17)>(offsetof(Row, integer_17))},
    {.number = 18, .codec = Codec::gauge, .field = field<decltype(Row::gauge_18)>(offsetof(Row, gauge_18))},
    {.number = 19, .codec = Codec::integer, .field = field<decltype(Row::integer_19)>(offsetof(Row, integer_19))},
    {.number = 20, .codec = Codec::gauge, .field = field<decltype(Row::gauge_20)>(offsetof(Row, gauge_20))},
    {.number = 21, .codec = Codec::text, .field = field<decltype(Row::text_21)>(offsetof(Row, text_21))},
    {.number = 22, .codec = Codec::text, .field = field<decltype(Row::text_22)>(offsetof(Row, text_22))},
    {.number = 23, .codec = Codec::integer, .field = field<decltype(Row::integer_23)>(offsetof(Row, integer_23))},
    {.number = 24, .codec = Codec::integer, .field = field<decltype(Row::integer_24)>(offsetof(Row, integer_24))},
    {.number = 25, .codec = Codec::text, .field = field<decltype(Row::text_25)>(offsetof(Row, text_25))},
    {.number = 26, .codec = Codec::gauge, .field = field<decltype(Row::gauge_26)>(offsetof(Row, gauge_26))},
    {.number = 27, .codec = Codec::integer, .field = field<decltype(Row::integer_27)>(offsetof(Row, integer_27))},
    {.number = 28, .codec = Codec::gauge, .field = field<decltype(Row::gauge_28)>(offsetof(Row, gauge_28))},
    {.number = 29, .codec = Codec::integer, .field = field<decltype(Row::integer_29)>(offsetof(Row, integer_29))},
    {.number = 30, .codec = Codec::integer, .field = field<decltype(Row::integer_30)>(offsetof(Row, integer_30))},
    {.number = 31, .codec = Codec::text, .field = field<decltype(Row::text_31)>(offsetof(Row, text_31))},
    {.number = 32, .codec = Codec::text, .field = field<decltype(Row::text_32)>(offsetof(Row, text_32))},
    {.number = 33, .codec = Codec::text, .field = field<decltype(Row::text_33)>(offsetof(Row, text_33))},
    {.number = 34, .codec = Codec::text, .field = field<decltype(Row::text_34)>(offsetof(Row, text_34))},
    {.number = 35, .codec = Codec::gauge, .field = field<decltype(Row::gauge_35)>(offsetof(Row, gauge_35))},
    {.number = 36, .codec = Codec::gauge, .field = field<decltype(Row::gauge_36)>(offsetof(Row, gauge_36))},
    {.number = 37, .codec = Codec::text, .field = field<decltype(Row::text_37)>(offsetof(Row, text_37))},
    {.number = 38, .codec = Codec::text, .field = field<decltype(Row::text_38)>(offsetof(Row, text_38))},
    {.number = 39, .codec = Codec::text, .field = field<decltype(Row::text_39)>(offsetof(Row, text_39))},
    {.number = 40, .codec = Codec::text, .field = field<decltype(Row::text_40)>(offsetof(Row, text_40))},
    {.number = 41, .codec = Codec::text, .field = field<decltype(Row::text_41)>(offsetof(Row, text_41))},
    {.number = 42, .codec = Codec::gauge, .field = field<decltype(Row::gauge_42)>(offsetof(Row, gauge_42))},
    {.number = 43, .codec = Codec::integer, .field = field<decltype(Row::integer_43)>(offsetof(Row, integer_43))},
    {.number = 44, .codec = Codec::text, .field = field<decltype(Row::text_44)>(offsetof(Row, text_44))},
    {.number = 45, .codec = Codec::integer, .field = field<decltype(Row::mode)>(offsetof(Row, mode))},
    {.number = 46, .codec = Codec::integer, .field = field<decltype(Row::integer_46)>(offsetof(Row, integer_46))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoStorageVeltroControllerTable",
    .root = root,
    .lock = ListLock::subagent(2),
    .columns = columns,
    .row = layout_of<Row>(),
};

constinit Table table(description, &tavoStorageVeltroControllerTable_head);

constexpr auto flag_values = std::to_array<CodeValue>({
    {.code = 0, .value = 1},
    {.code = 1, .value = 2},
});

constexpr auto zero_values = std::to_array<CodeValue>({{.code = 0, .value = 1}});

void fill(Row &row, const Record &controller) {
  row = {};
  copy_text(row.dn, "sys/rack-unit-1/board/storage-veltro");
  copy_text(row.rn, "storage-veltro");
  row.integer_4 = controller.i32(VELT_CONTROLLER_COLUMN_4);
  row.integer_5 = controller.i32(VELT_CONTROLLER_COLUMN_5);
  row.integer_6 = value_of(flag_values, controller.u32(VELT_CONTROLLER_COLUMN_6));
  row.gauge_7 = 1;
  copy_field(row.text_8, controller, VELT_CONTROLLER_COLUMN_8);
  row.integer_10 = 1;
  row.integer_11 = 1;
  row.integer_14 = 100;
  row.gauge_15 = controller.u32(VELT_CONTROLLER_COLUMN_15);
  row.integer_16 = 100;
  row.integer_17 = 10;
  row.gauge_18 = controller.u32(VELT_CONTROLLER_COLUMN_18);
  row.integer_19 = controller.i32(VELT_CONTROLLER_COLUMN_19);
  row.gauge_20 = controller.u32(VELT_CONTROLLER_COLUMN_20);
  copy_field(row.text_21, controller, VELT_CONTROLLER_COLUMN_21);
  copy_field(row.text_22, controller, VELT_CONTROLLER_COLUMN_22);
  row.integer_23 = 100;
  row.integer_24 = 4;
  copy_field(row.text_25, controller, VELT_CONTROLLER_COLUMN_25);
  row.gauge_26 = controller.u32(VELT_CONTROLLER_COLUMN_26);
  row.integer_27 = 100;
  row.gauge_28 = controller.u32(VELT_CONTROLLER_COLUMN_28);
  row.integer_30 = value_of(flag_values, controller.u32(VELT_CONTROLLER_COLUMN_30));
  copy_field(row.text_31, controller, VELT_CONTROLLER_COLUMN_31);
  row.integer_43 = value_of(zero_values, controller.u32(VELT_CONTROLLER_COLUMN_43));
  row.mode = value_of(flag_values, controller.u32(VELT_CONTROLLER_MODE));
}

}  // namespace
}  // namespace tavo

TAVO_TABLE_ENTRY_POINTS(tavoStorageVeltroControllerTable, tavo::StorageVeltroControllerRow, tavo::table)

int initialize_table_tavoStorageVeltroControllerTable(void) {
  tavo::table.trace_entry(__func__, __LINE__);
  tavo::table.register_with({.handler = tavoStorageVeltroControllerTable_handler,
                             .first_row = tavoStorageVeltroControllerTable_get_first_data_point,
                             .next_row = tavoStorageVeltroControllerTable_get_next_data_point});
  return initialize_velt_controller_table(0);
}

int initialize_velt_controller_table(int refresh) {
  tavo::print_velt_sizes();
  if (refresh == 1) {
    tavoStorageVeltroControllerTable_removeAllEntries();
  }
  const auto row = tavo::make_zeroed<tavo::StorageVeltroControllerRow>();
  if (row != nullptr) {
    tavo::fill(*row, tavo::Record(velt_ctlr_info, sizeof velt_ctlr_info));
    tavoStorageVeltroControllerTable_createEntry(1, row.get());
  }
  return 1;
}
