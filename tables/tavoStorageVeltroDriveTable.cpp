#include "tables/tavoStorageVeltroDriveTable.h"

#include <strings.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "core/code_value.h"
#include "core/table.h"
#include "core/table_entry_points.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "tables/velt_info.h"

tavo::StorageVeltroDriveRow *tavoStorageVeltroDriveTable_head = nullptr;

namespace tavo {
namespace {

using Row = StorageVeltroDriveRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 45, 36};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::text, .field = field<decltype(Row::dn)>(offsetof(Row, dn))},
    {.number = 3, .codec = Codec::text, .field = field<decltype(Row::rn)>(offsetof(Row, rn))},
    {.number = 4, .codec = Codec::gauge, .field = field<decltype(Row::gauge_4)>(offsetof(Row, gauge_4))},
    {.number = 5, .codec = Codec::integer, .field = field<decltype(Row::integer_5)>(offsetof(Row, integer_5))},
    {.number = 6, .codec = Codec::gauge, .field = field<decltype(Row::gauge_6)>(offsetof(Row, gauge_6))},
    {.number = 7, .codec = Codec::integer, .field = field<decltype(Row::integer_7)>(offsetof(Row, integer_7))},
    {.number = 8, .codec = Codec::integer, .field = field<decltype(Row::kind)>(offsetof(Row, kind))},
    {.number = 9, .codec = Codec::gauge, .field = field<decltype(Row::number)>(offsetof(Row, number))},
    {.number = 10, .codec = Codec::text, .field = field<decltype(Row::name)>(offsetof(Row, name))},
    {.number = 11, .codec = Codec::text, .field = field<decltype(Row::name_again)>(offsetof(Row, name_again))},
    {.number = 12, .codec = Codec::counter64, .field = field<decltype(Row::counter_12)>(offsetof(Row, counter_12))},
    {.number = 13, .codec = Codec::text, .field = field<decltype(Row::text_13)>(offsetof(Row, text_13))},
    {.number = 14, .codec = Codec::integer, .field = field<decltype(Row::integer_14)>(offsetof(Row, integer_14))},
    {.number = 15, .codec = Codec::integer, .field = field<decltype(Row::integer_15)>(offsetof(Row, integer_15))},
    {.number = 16, .codec = Codec::text, .field = field<decltype(Row::text_16)>(offsetof(Row, text_16))},
    {.number = 17, .codec = Codec::text, .field = field<decltype(Row::text_17)>(offsetof(Row, text_17))},
    {.number = 18, .codec = Codec::counter64, .field = field<decltype(Row::counter_18)>(offsetof(Row, counter_18))},
    {.number = 19, .codec = Codec::gauge, .field = field<decltype(Row::number_again)>(offsetof(Row, number_again))},
    {.number = 20, .codec = Codec::text, .field = field<decltype(Row::text_20)>(offsetof(Row, text_20))},
    {.number = 21, .codec = Codec::integer, .field = field<decltype(Row::integer_21)>(offsetof(Row, integer_21))},
    {.number = 22, .codec = Codec::integer, .field = field<decltype(Row::integer_22)>(offsetof(Row, integer_22))},
    {.number = 23, .codec = Codec::integer, .field = field<decltype(Row::integer_23)>(offsetof(Row, integer_23))},
    {.number = 24, .codec = Codec::integer, .field = field<decltype(Row::integer_24)>(offsetof(Row, integer_24))},
    {.number = 25, .codec = Codec::integer, .field = field<decltype(Row::integer_25)>(offsetof(Row, integer_25))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoStorageVeltroDriveTable",
    .root = root,
    .lock = ListLock::subagent(2),
    .columns = columns,
    .row = layout_of<Row>(),
};

constinit Table table(description, &tavoStorageVeltroDriveTable_head);

constexpr auto column_7_values = std::to_array<CodeValue>({{.code = 4, .value = 1}});

constexpr auto column_21_values = std::to_array<CodeValue>({{.code = 0, .value = 1}});

constexpr auto column_22_values = std::to_array<CodeValue>({
    {.code = 0, .value = 2},
    {.code = 1, .value = 1},
});

// What a code means, by whether the controller's mode word is zero.
struct ValuesByMode {
  std::span<const CodeValue> zero;
  std::span<const CodeValue> nonzero;

  std::int32_t value_of(std::uint32_t code, std::uint32_t mode) const {
    return tavo::value_of(mode == 0 ? zero : nonzero, code);
  }
};

constexpr auto column_24_nonzero = std::to_array<CodeValue>({
    {.code = 1, .value = 16},
    {.code = 2, .value = 11},
    {.code = 3, .value = 16},
    {.code = 4, .value = 11},
    {.code = 7, .value = 15},
    {.code = 8, .value = 10},
});
constexpr auto column_24_zero = std::to_array<CodeValue>({
    {.code = 0, .value = 1},
    {.code = 1, .value = 13},
    {.code = 2, .value = 8},
    {.code = 3, .value = 13},
    {.code = 4, .value = 8},
    {.code = 5, .value = 12},
    {.code = 6, .value = 7},
    {.code = 7, .value = 14},
    {.code = 8, .value = 9},
});

constexpr ValuesByMode column_24_values = {.zero = column_24_zero, .nonzero = column_24_nonzero};

constexpr auto column_25_nonzero = std::to_array<CodeValue>({
    {.code = 0, .value = 17},
    {.code = 1, .value = 6},
    {.code = 2, .value = 6},
    {.code = 3, .value = 5},
    {.code = 4, .value = 5},
    {.code = 5, .value = 17},
    {.code = 6, .value = 17},
});
constexpr auto column_25_zero = std::to_array<CodeValue>({
    {.code = 0, .value = 17},
    {.code = 1, .value = 3},
    {.code = 2, .value = 3},
    {.code = 3, .value = 4},
    {.code = 4, .value = 4},
    {.code = 5, .value = 2},
    {.code = 6, .value = 2},
});

constexpr ValuesByMode column_25_values = {.zero = column_25_zero, .nonzero = column_25_nonzero};

struct KindName {
  const char *name;
  std::int32_t kind;
};

constexpr auto kind_names = std::to_array<KindName>({
    {.name = "SCU", .kind = 1},
    {.name = "HUU", .kind = 2},
    {.name = "Drivers", .kind = 4},
});

// Where, by the controller's mode, the partition is whose kind its name does not tell.
struct KindPlace {
  std::uint32_t mode;
  std::uint32_t number;
  std::int32_t kind;
};

constexpr auto kind_places = std::to_array<KindPlace>({
    {.mode = 0, .number = 1, .kind = 3},
    {.mode = 1, .number = 5, .kind = 3},
});

// `name` ends with a NUL.
std::int32_t kind_of(const char *name, std::uint32_t number, std::uint32_t mode) {
  for (const KindName &known : kind_names) {
    if (strcasecmp(name, known.name) == 0) {
      return known.kind;
    }
  }
  for (const KindPlace &place : kind_places) {
    if (number == place.number && mode == place.mode) {
      return place.kind;
    }
  }
  return 0;
}

// `mode`: the controller's mode word.
void fill(Row &row, const Record &partition, std::uint32_t mode) {
  row = {};
  row.number = partition.u32(VELT_PARTITION_NUMBER);
  format_text(row.rn, "vd-%u", row.number);
  format_text(row.dn, "sys/rack-unit-1/board/storage-veltro/%s", row.rn);
  row.gauge_4 = partition.u32(VELT_PARTITION_COLUMN_4);
  row.gauge_6 = 1;
  row.integer_7 = value_of(column_7_values, partition.u32(VELT_PARTITION_COLUMN_7));
  copy_field(row.name, partition, VELT_PARTITION_NAME);
  copy_field(row.name_again, partition, VELT_PARTITION_NAME);
  row.kind = kind_of(row.name, row.number, mode);
  row.counter_12 = partition.u64(VELT_PARTITION_COLUMN_12);
  row.integer_14 = 1;
  row.integer_15 = 10;
  copy_field(row.text_16, partition, VELT_PARTITION_COLUMN_16);
  copy_field(row.text_17, partition, VELT_PARTITION_COLUMN_17);
  row.counter_18 = partition.u64(VELT_PARTITION_COLUMN_18);
  row.number_again = row.number;
  copy_field(row.text_20, partition, VELT_PARTITION_COLUMN_20);
  row.integer_21 = value_of(column_21_values, partition.u32(VELT_PARTITION_COLUMN_21));
  row.integer_22 = value_of(column_22_values, partition.u32(VELT_PARTITION_COLUMN_22));
  row.integer_23 = partition.i32(VELT_PARTITION_COLUMN_23);
  row.integer_24 = column_24_values.value_of(partition.u32(VELT_PARTITION_COLUMN_24), mode);
  row.integer_25 = column_25_values.value_of(partition.u32(VELT_PARTITION_COLUMN_25), mode);
}

}  // namespace
}  // namespace tavo

TAVO_TABLE_ENTRY_POINTS(tavoStorageVeltroDriveTable, tavo::StorageVeltroDriveRow, tavo::table)

int initialize_table_tavoStorageVeltroDriveTable(void) {
  tavo::table.trace_entry(__func__, __LINE__);
  tavo::table.register_with({.handler = tavoStorageVeltroDriveTable_handler,
                             .first_row = tavoStorageVeltroDriveTable_get_first_data_point,
                             .next_row = tavoStorageVeltroDriveTable_get_next_data_point});
  return initialize_velt_drive_table(0);
}

int initialize_velt_drive_table(int refresh) {
  tavo::print_velt_sizes();
  if (refresh == 1) {
    tavoStorageVeltroDriveTable_removeAllEntries();
  }
  const auto row = tavo::make_zeroed<tavo::StorageVeltroDriveRow>();
  if (row == nullptr) {
    return 1;
  }
  const tavo::Record partitions(velt_vd_info, sizeof velt_vd_info);
  const std::uint32_t mode = tavo::Record(velt_ctlr_info, sizeof velt_ctlr_info).u32(VELT_CONTROLLER_MODE);
  for (std::uint32_t i = 0; i < VELT_PARTITION_COUNT; ++i) {
    const tavo::Record partition = partitions.part(std::size_t{i} * VELT_PARTITION_SIZE, VELT_PARTITION_SIZE);
    if (partition.i32(VELT_PARTITION_NUMBER) >= 1) {
      tavo::fill(*row, partition, mode);
      tavoStorageVeltroDriveTable_createEntry(i + 1, row.get());
    }
  }
  return 1;
}
