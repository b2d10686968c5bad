#include "tables/sd_cards/tavoStorageVeltroCardTable.h"

#include <array>
#include <cstddef>
#include <cstdint>

#include "core/code_value.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "sources/velt_info.h"

namespace tavo {
namespace {

using Row = StorageVeltroCardRow;

constexpr auto root = table_root(45, 34);

TAVO_COLUMNS(tavoStorageVeltroCardTable, Row, dn, rn, column_4, column_5, column_6, column_7, column_8, column_9,
             column_10, column_11, column_12, column_13, column_14, column_15, column_16, operability, presence,
             column_19, column_20, column_21, column_22, column_23, column_24, column_25, column_26, column_27,
             column_28, column_29, column_30, column_31, column_32, column_33);

constexpr TableDescription description = {
    .name = "tavoStorageVeltroCardTable",
    .root = root,
    .lock = storage_lock,
    .columns = columns,
    .row = layout_of<Row>(),
    .build = initialize_velt_card_table,
    .source = TableSource::SdCards,
};

}  // namespace

TAVO_DEFINE_TABLE(tavoStorageVeltroCardTable, Row, description)

namespace {

constexpr auto column_28_values = std::to_array<CodeValue>({
    {.code = 1, .value = 2},
    {.code = 2, .value = 1},
});

// `slot`: the number of the card's slot.
void fill(Row &row, std::int32_t slot, const Record &card) {
  row = {};
  format_text(row.dn, "sys/rack-unit-1/board/storage-veltro/pd-SLOT-%d", slot);
  format_text(row.rn, "pd-SLOT-%d", slot);
  row.column_4 = card.u32(VELT_CARD_COLUMN_4);
  row.column_5 = card.i32(VELT_CARD_COLUMN_5);
  row.column_6 = card.i32(VELT_CARD_COLUMN_6);
  copy_field(row.column_7, card, VELT_CARD_COLUMN_7);
  row.column_9 = card.u32(VELT_CARD_COLUMN_9);
  row.column_10 = card.u32(VELT_CARD_COLUMN_10);
  copy_field(row.column_11, card, VELT_CARD_COLUMN_11);
  copy_field(row.column_12, card, VELT_CARD_COLUMN_12);
  copy_field(row.column_13, card, VELT_CARD_COLUMN_13);
  copy_field(row.column_15, card, VELT_CARD_COLUMN_15);
  row.operability = 1;
  row.presence = 10;
  row.column_19 = card.u32(VELT_CARD_COLUMN_19);
  copy_field(row.column_20, card, VELT_CARD_COLUMN_20);
  copy_field(row.column_21, card, VELT_CARD_COLUMN_21);
  row.column_22 = card.u64(VELT_CARD_COLUMN_22);
  row.column_23 = card.u32(VELT_CARD_COLUMN_23);
  copy_field(row.column_24, card, VELT_CARD_COLUMN_24);
  row.column_25 = card.i32(VELT_CARD_COLUMN_25);
  row.column_26 = card.u32(VELT_CARD_COLUMN_26);
  row.column_27 = card.i32(VELT_CARD_COLUMN_27);
  row.column_28 = value_of(column_28_values, card.u32(VELT_CARD_COLUMN_28));
  copy_field(row.column_29, card, VELT_CARD_COLUMN_29);
  row.column_30 = card.u32(VELT_CARD_COLUMN_30);
  row.column_31 = card.u32(VELT_CARD_COLUMN_31);
  copy_field(row.column_32, card, VELT_CARD_COLUMN_32);
  row.column_33 = card.u32(VELT_CARD_COLUMN_33);
}

}  // namespace

int initialize_velt_card_table(int refresh) {
  print_velt_sizes();
  if (refresh == 1) {
    tavoStorageVeltroCardTable_removeAllEntries();
  }
  const auto row = make_zeroed<StorageVeltroCardRow>();
  if (row == nullptr) {
    return 1;
  }
  const Record cards(velt_pd_info, sizeof velt_pd_info);
  std::uint32_t index = 1;
  for (std::size_t i = 0; i < VELT_CARD_COUNT; ++i) {
    const Record card = cards.part(i * VELT_CARD_SIZE, VELT_CARD_SIZE);
    const std::int32_t slot = card.i32(VELT_CARD_SLOT);
    if (slot <= 0) {
      continue;
    }
    fill(*row, slot, card);
    if (tavoStorageVeltroCardTable_createEntry(index, row.get()) != nullptr) {
      ++index;
    }
  }
  return 1;
}

}  // namespace tavo
