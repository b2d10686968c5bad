#include "tables/sd_cards/tavoStorageVeltroDriveTable.h"

#include <strings.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "core/code_value.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "sources/velt_info.h"

namespace tavo {
namespace {

using Row = StorageVeltroDriveRow;

constexpr auto root = table_root(45, 36);

TAVO_COLUMNS(tavoStorageVeltroDriveTable, Row, dn, rn, column_4, column_5, column_6, column_7, kind, number, name,
             name_again, column_12, column_13, operability, presence, column_16, column_17, column_18, number_again,
             column_20, column_21, column_22, column_23, column_24, column_25);

constexpr TableDescription description = {
    .name = "tavoStorageVeltroDriveTable",
    .root = root,
    .lock = storage_lock,
    .columns = columns,
    .row = layout_of<Row>(),
    .build = initialize_velt_drive_table,
    .source = TableSource::SdCards,
};

}  // namespace

TAVO_DEFINE_TABLE(tavoStorageVeltroDriveTable, Row, description)

namespace {

constexpr auto column_7_values = std::to_array<CodeValue>({{.code = 4, .value = 1}});

constexpr auto column_21_values = std::to_array<CodeValue>({{.code = 0, .value = 1}});

constexpr auto column_22_values = std::to_array<CodeValue>({
    {.code = 0, .value = 2},
    {.code = 1, .value = 1},
});

// What a code means, depending on whether the controller's mode word is zero.
struct ValuesByMode {
  std::span<const CodeValue> zero;
  std::span<const CodeValue> nonzero;

  std::int32_t at(std::uint32_t code, std::uint32_t mode) const { return value_of(mode == 0 ? zero : nonzero, code); }
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

// The partition whose kind follows from the controller's mode and not from its name.
struct KindPlace {
  std::uint32_t mode;
  std::uint32_t number;
  std::int32_t kind;
};

constexpr auto kind_places = std::to_array<KindPlace>({
    {.mode = 0, .number = 1, .kind = 3},
    {.mode = 1, .number = 5, .kind = 3},
});

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
  row.column_4 = partition.u32(VELT_PARTITION_COLUMN_4);
  row.column_6 = 1;
  row.column_7 = value_of(column_7_values, partition.u32(VELT_PARTITION_COLUMN_7));
  copy_field(row.name, partition, VELT_PARTITION_NAME);
  copy_field(row.name_again, partition, VELT_PARTITION_NAME);
  row.kind = kind_of(row.name, row.number, mode);
  row.column_12 = partition.u64(VELT_PARTITION_COLUMN_12);
  row.operability = 1;
  row.presence = 10;
  copy_field(row.column_16, partition, VELT_PARTITION_COLUMN_16);
  copy_field(row.column_17, partition, VELT_PARTITION_COLUMN_17);
  row.column_18 = partition.u64(VELT_PARTITION_COLUMN_18);
  row.number_again = row.number;
  copy_field(row.column_20, partition, VELT_PARTITION_COLUMN_20);
  row.column_21 = value_of(column_21_values, partition.u32(VELT_PARTITION_COLUMN_21));
  row.column_22 = value_of(column_22_values, partition.u32(VELT_PARTITION_COLUMN_22));
  row.column_23 = partition.i32(VELT_PARTITION_COLUMN_23);
  row.column_24 = column_24_values.at(partition.u32(VELT_PARTITION_COLUMN_24), mode);
  row.column_25 = column_25_values.at(partition.u32(VELT_PARTITION_COLUMN_25), mode);
}

}  // namespace

int initialize_velt_drive_table(int refresh) {
  print_velt_sizes();
  if (refresh == 1) {
    tavoStorageVeltroDriveTable_removeAllEntries();
  }
  const auto row = make_zeroed<StorageVeltroDriveRow>();
  if (row == nullptr) {
    return 1;
  }
  const Record partitions(velt_vd_info, sizeof velt_vd_info);
  const std::uint32_t mode = Record(velt_ctlr_info, sizeof velt_ctlr_info).u32(VELT_CONTROLLER_MODE);
  for (std::uint32_t i = 0; i < VELT_PARTITION_COUNT; ++i) {
    const Record partition = partitions.part(std::size_t{i} * VELT_PARTITION_SIZE, VELT_PARTITION_SIZE);
    if (partition.i32(VELT_PARTITION_NUMBER) >= 1) {
      fill(*row, partition, mode);
      tavoStorageVeltroDriveTable_createEntry(i + 1, row.get());
    }
  }
  return 1;
}

}  // namespace tavo
