#include "tables/tavoStorageVeltroCardTable.h"

#include <array>
#include <cstddef>
#include <cstdint>

#include "core/code_value.h"
#include "core/table.h"
#include "core/table_entry_points.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "tables/velt_info.h"

tavo::StorageVeltroCardRow *tavoStorageVeltroCardTable_head = nullptr;

namespace tavo {
namespace {

using Row = StorageVeltroCardRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 45, 34};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::text, .field = field<decltype(Row::dn)>(offsetof(Row, dn))},
    {.number = 3, .codec = Codec::text, .field = field<decltype(Row::rn)>(offsetof(Row, rn))},
    {.number = 4, .codec = Codec::gauge, .field = field<decltype(Row::gauge_4)>(offsetof(Row, gauge_4))},
    {.number = 5, .codec = Codec::integer, .field = field<decltype(Row::integer_5)>(offsetof(Row, integer_5))},
    {.number = 6, .codec = Codec::integer, .field = field<decltype(Row::integer_6)>(offsetof(Row, integer_6))},
    {.number = 7, .codec = Codec::text, .field = field<decltype(Row::text_7)>(offsetof(Row, text_7))},
    {.number = 8, .codec = Codec::integer, .field = field<decltype(Row::integer_8)>(offsetof(Row, integer_8))},
    {.number = 9, .codec = Codec::gauge, .field = field<decltype(Row::gauge_9)>(offsetof(Row, gauge_9))},
    {.number = 10, .codec = Codec::gauge, .field = field<decltype(Row::gauge_10)>(offsetof(Row, gauge_10))},
    {.number = 11, .codec = Codec::text, .field = field<decltype(Row::text_11)>(offsetof(Row, text_11))},
    {.number = 12, .codec = Codec::text, .field = field<decltype(Row::text_12)>(offsetof(Row, text_12))},
    {.number = 13, .codec = Codec::text, .field = field<decltype(Row::text_13)>(offsetof(Row, text_13))},
    {.number = 14, .codec = Codec::counter64, .field = field<decltype(Row::counter_14)>(offsetof(Row, counter_14))},
    {.number = 15, .codec = Codec::text, .field = field<decltype(Row::text_15)>(offsetof(Row, text_15))},
    {.number = 16, .codec = Codec::text, .field = field<decltype(Row::text_16)>(offsetof(Row, text_16))},
    {.number = 17, .codec = Codec::integer, .field = field<decltype(Row::integer_17)>(offsetof(Row, integer_17))},
    {.number = 18, .codec = Codec::integer, .field = field<decltype(Row::integer_18)>(offsetof(Row, integer_18))},
    {.number = 19, .codec = Codec::gauge, .field = field<decltype(Row::gauge_19)>(offsetof(Row, gauge_19))},
    {.number = 20, .codec = Codec::text, .field = field<decltype(Row::text_20)>(offsetof(Row, text_20))},
    {.number = 21, .codec = Codec::text, .field = field<decltype(Row::text_21)>(offsetof(Row, text_21))},
    {.number = 22, .codec = Codec::counter64, .field = field<decltype(Row::counter_22)>(offsetof(Row, counter_22))},
    {.number = 23, .codec = Codec::gauge, .field = field<decltype(Row::gauge_23)>(offsetof(Row, gauge_23))},
    {.number = 24, .codec = Codec::text, .field = field<decltype(Row::text_24)>(offsetof(Row, text_24))},
    {.number = 25, .codec = Codec::integer, .field = field<decltype(Row::integer_25)>(offsetof(Row, integer_25))},
    {.number = 26, .codec = Codec::gauge, .field = field<decltype(Row::gauge_26)>(offsetof(Row, gauge_26))},
    {.number = 27, .codec = Codec::integer, .field = field<decltype(Row::integer_27)>(offsetof(Row, integer_27))},
    {.number = 28, .codec = Codec::integer, .field = field<decltype(Row::integer_28)>(offsetof(Row, integer_28))},
    {.number = 29, .codec = Codec::text, .field = field<decltype(Row::text_29)>(offsetof(Row, text_29))},
    {.number = 30, .codec = Codec::gauge, .field = field<decltype(Row::gauge_30)>(offsetof(Row, gauge_30))},
    {.number = 31, .codec = Codec::gauge, .field = field<decltype(Row::gauge_31)>(offsetof(Row, gauge_31))},
    {.number = 32, .codec = Codec::text, .field = field<decltype(Row::text_32)>(offsetof(Row, text_32))},
    {.number = 33, .codec = Codec::gauge, .field = field<decltype(Row::gauge_33)>(offsetof(Row, gauge_33))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoStorageVeltroCardTable",
    .root = root,
    .lock = ListLock::subagent(2),
    .columns = columns,
    .row = layout_of<Row>(),
};

constinit Table table(description, &tavoStorageVeltroCardTable_head);

constexpr auto column_28_values = std::to_array<CodeValue>({
    {.code = 1, .value = 2},
    {.code = 2, .value = 1},
});

// `slot` is the number of the slot that the card is in.
void fill(Row &row, std::int32_t slot, const Record &card) {
  row = {};
  format_text(row.dn, "sys/rack-unit-1/board/storage-veltro/pd-SLOT-%d", slot);
  format_text(row.rn, "pd-SLOT-%d", slot);
  row.gauge_4 = card.u32(VELT_CARD_COLUMN_4);
  row.integer_5 = card.i32(VELT_CARD_COLUMN_5);
  row.integer_6 = card.i32(VELT_CARD_COLUMN_6);
  copy_field(row.text_7, card, VELT_CARD_COLUMN_7);
  row.gauge_9 = card.u32(VELT_CARD_COLUMN_9);
  row.gauge_10 = card.u32(VELT_CARD_COLUMN_10);
  copy_field(row.text_11, card, VELT_CARD_COLUMN_11);
  copy_field(row.text_12, card, VELT_CARD_COLUMN_12);
  copy_field(row.text_13, card, VELT_CARD_COLUMN_13);
  copy_field(row.text_15, card, VELT_CARD_COLUMN_15);
  row.integer_17 = 1;
  row.integer_18 = 10;
  row.gauge_19 = card.u32(VELT_CARD_COLUMN_19);
  copy_field(row.text_20, card, VELT_CARD_COLUMN_20);
  copy_field(row.text_21, card, VELT_CARD_COLUMN_21);
  row.counter_22 = card.u64(VELT_CARD_COLUMN_22);
  row.gauge_23 = card.u32(VELT_CARD_COLUMN_23);
  copy_field(row.text_24, card, VELT_CARD_COLUMN_24);
  row.integer_25 = card.i32(VELT_CARD_COLUMN_25);
  row.gauge_26 = card.u32(VELT_CARD_COLUMN_26);
  row.integer_27 = card.i32(VELT_CARD_COLUMN_27);
  row.integer_28 = value_of(column_28_values, card.u32(VELT_CARD_COLUMN_28));
  copy_field(row.text_29, card, VELT_CARD_COLUMN_29);
  row.gauge_30 = card.u32(VELT_CARD_COLUMN_30);
  row.gauge_31 = card.u32(VELT_CARD_COLUMN_31);
  copy_field(row.text_32, card, VELT_CARD_COLUMN_32);
  row.gauge_33 = card.u32(VELT_CARD_COLUMN_33);
}

}  // namespace
}  // namespace tavo

TAVO_TABLE_ENTRY_POINTS(tavoStorageVeltroCardTable, tavo::StorageVeltroCardRow, tavo::table)

int initialize_table_tavoStorageVeltroCardTable(void) {
  tavo::table.trace_entry(__func__, __LINE__);
  tavo::table.register_with({.handler = tavoStorageVeltroCardTable_handler,
                             .first_row = tavoStorageVeltroCardTable_get_first_data_point,
                             .next_row = tavoStorageVeltroCardTable_get_next_data_point});
  return initialize_velt_card_table(0);
}

int initialize_velt_card_table(int refresh) {
  tavo::print_velt_sizes();
  if (refresh == 1) {
    tavoStorageVeltroCardTable_removeAllEntries();
  }
  const auto row = tavo::make_zeroed<tavo::StorageVeltroCardRow>();
  if (row == nullptr) {
    return 1;
  }
  const tavo::Record cards(velt_pd_info, sizeof velt_pd_info);
  std::uint32_t index = 1;
  for (std::size_t i = 0; i < VELT_CARD_COUNT; ++i) {
    const tavo::Record card = cards.part(i * VELT_CARD_SIZE, VELT_CARD_SIZE);
    const std::int32_t slot = card.i32(VELT_CARD_SLOT);
    if (slot <= 0) {
      continue;
    }
    tavo::fill(*row, slot, card);
    if (tavoStorageVeltroCardTable_createEntry(index, row.get()) != nullptr) {
      ++index;
    }
  }
  return 1;
}
