#include "tables/tavoStorageLocalDiskTable.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "core/code_value.h"
#include "core/dump.h"
#include "core/shell.h"
#include "core/table.h"
#include "core/table_entry_points.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "storage/stor_info.h"
#include "tables/storage_names.h"

tavo::StorageLocalDiskRow *tavoStorageLocalDiskTable_head = nullptr;

namespace tavo {
namespace {

using Row = StorageLocalDiskRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 45, 4};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::text, .field = field<decltype(Row::dn)>(offsetof(Row, dn))},
    {.number = 3, .codec = Codec::text, .field = field<decltype(Row::rn)>(offsetof(Row, rn))},
    {.number = 4, .codec = Codec::gauge, .field = field<decltype(Row::gauge_4)>(offsetof(Row, gauge_4))},
    {.number = 5, .codec = Codec::integer, .field = field<decltype(Row::connection)>(offsetof(Row, connection))},
    {.number = 6, .codec = Codec::gauge, .field = field<decltype(Row::slot)>(offsetof(Row, slot))},
    {.number = 7, .codec = Codec::text, .field = field<decltype(Row::media)>(offsetof(Row, media))},
    {.number = 8, .codec = Codec::counter64, .field = field<decltype(Row::capacity)>(offsetof(Row, capacity))},
    {.number = 9, .codec = Codec::integer, .field = field<decltype(Row::operability)>(offsetof(Row, operability))},
    {.number = 10, .codec = Codec::integer, .field = field<decltype(Row::presence)>(offsetof(Row, presence))},
    {.number = 11, .codec = Codec::text, .field = field<decltype(Row::text_11)>(offsetof(Row, text_11))},
    {.number = 12, .codec = Codec::text, .field = field<decltype(Row::text_12)>(offsetof(Row, text_12))},
    {.number = 13, .codec = Codec::counter64, .field = field<decltype(Row::counter_13)>(offsetof(Row, counter_13))},
    {.number = 14, .codec = Codec::text, .field = field<decltype(Row::name)>(offsetof(Row, name))},
    {.number = 15, .codec = Codec::integer, .field = field<decltype(Row::integer_15)>(offsetof(Row, integer_15))},
    {.number = 16, .codec = Codec::text, .field = field<decltype(Row::text_16)>(offsetof(Row, text_16))},
    {.number = 17, .codec = Codec::integer, .field = field<decltype(Row::integer_17)>(offsetof(Row, integer_17))},
    {.number = 18, .codec = Codec::integer, .field = field<decltype(Row::state)>(offsetof(Row, state))},
    {.number = 19, .codec = Codec::integer, .field = field<decltype(Row::integer_19)>(offsetof(Row, integer_19))},
    {.number = 20, .codec = Codec::integer, .field = field<decltype(Row::integer_20)>(offsetof(Row, integer_20))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoStorageLocalDiskTable",
    .root = root,
    .lock = ListLock::subagent(2),
    .columns = columns,
    .row = layout_of<Row>(),
};

constinit Table table(description, &tavoStorageLocalDiskTable_head);

constexpr auto connection_values = std::to_array<CodeValue>({
    {.code = 2, .value = 1},
    {.code = 3, .value = 2},
});

struct DriveState {
  std::uint32_t code;
  std::int32_t operability;
  std::int32_t presence;
  std::int32_t state;
};

// The first is what every code that is not listed stands for; there is no code 10.
constexpr auto drive_states = std::to_array<DriveState>({
    {.code = 0, .operability = 2, .presence = 11, .state = 0},
    {.code = 1, .operability = 1, .presence = 10, .state = 1},
    {.code = 2, .operability = 2, .presence = 10, .state = 2},
    {.code = 3, .operability = 2, .presence = 10, .state = 0},
    {.code = 4, .operability = 2, .presence = 10, .state = 3},
    {.code = 5, .operability = 2, .presence = 10, .state = 4},
    {.code = 6, .operability = 1, .presence = 10, .state = 5},
    {.code = 7, .operability = 2, .presence = 11, .state = 6},
    {.code = 8, .operability = 2, .presence = 11, .state = 9},
    {.code = 9, .operability = 2, .presence = 10, .state = 10},
    {.code = 11, .operability = 3, .presence = 10, .state = 7},
    {.code = 12, .operability = 2, .presence = 11, .state = 8},
    {.code = 13, .operability = 2, .presence = 11, .state = 11},
    {.code = 14, .operability = 2, .presence = 11, .state = 12},
    {.code = 15, .operability = 2, .presence = 10, .state = 13},
});

const DriveState &drive_state(std::uint32_t code) {
  const auto found = std::ranges::find(drive_states, code, &DriveState::code);
  return found == drive_states.end() ? drive_states.front() : *found;
}

struct MediaName {
  std::uint32_t code;
  const char *name;
};

constexpr auto media_names = std::to_array<MediaName>({
    {.code = 1, .name = "HDD"},
    {.code = 2, .name = "SSD"},
});

const char *media_name(std::uint32_t code) {
  const auto found = std::ranges::find(media_names, code, &MediaName::code);
  return found == media_names.end() ? "unknown" : found->name;
}

// No controller serves more slots than its record has room for drives: a larger count is rubbish of the tool.
constexpr int most_slots = STOR_DRIVE_CAPACITY;

struct SlotRange {
  std::int32_t first;
  std::int32_t last;
};

// The slots of a controller on a platform with `slot_count` of them: these, or, when its last drive is numbered beyond
// them, a second bank of as many. A controller without drives is judged by a word of its description, which stands
// where the drive before the first would have its slot number; managers know the rows that come of it.
SlotRange slots_of(const ControllerRecord &controller, std::int32_t slot_count) {
  const std::size_t drives = controller.drive_count();
  const std::int32_t last_slot =
      drives == 0 ? controller.i32(STOR_CONTROLLER_WORD_232) : controller.drive(drives - 1).i32(STOR_DRIVE_SLOT);
  if (slot_count < last_slot) {
    return {.first = slot_count + 1, .last = 2 * slot_count};
  }
  return {.first = 1, .last = slot_count};
}

void name_slot(Row &row, const ControllerRecord &controller, std::int32_t slot) {
  row = {};
  row.slot = static_cast<std::uint32_t>(slot);
  format_text(row.rn, "pd-%d", slot);
  write_dn_on_controller(row.dn, controller.location(), row.rn);
}

void fill(Row &row, const Record &drive) {
  const DriveState &state = drive_state(drive.u32(STOR_DRIVE_STATE));
  row.connection = value_of(connection_values, drive.u32(STOR_DRIVE_COLUMN_5));
  copy_text(row.media, media_name(drive.u32(STOR_DRIVE_MEDIA)));
  row.capacity = drive.u64(STOR_DRIVE_CAPACITY_WORD);
  row.operability = state.operability;
  row.presence = state.presence;
  copy_text(row.text_11, drive.text(STOR_DRIVE_COLUMN_11, STOR_TEXT_SIZE));
  copy_text(row.text_12, drive.text(STOR_DRIVE_COLUMN_12, STOR_TEXT_SIZE));
  row.counter_13 = drive.u64(STOR_DRIVE_COLUMN_13);
  copy_text(row.name, drive.text(STOR_DRIVE_NAME, STOR_TEXT_SIZE));
  row.state = state.state;
  row.integer_19 = drive.i32(STOR_DRIVE_COLUMN_19);
}

void fill_placeholder(Row &row) {
  row.connection = 1;
  row.operability = 6;
  row.presence = 11;
  row.integer_15 = 2;
}

// Modes in which a controller has no drives of its own to show.
constexpr auto modes_without_drives = std::to_array<std::uint32_t>({0, 1, 3, 6});

bool shows_drives(const ControllerRecord &controller) {
  return std::ranges::count(modes_without_drives, controller.u32(STOR_CONTROLLER_MODE)) == 0;
}

// One row for each slot. Drives are taken in the record's order: one that is out of it, or has no name, is not shown,
// and neither is any behind it.
void add_rows(const ControllerRecord &controller, std::int32_t slot_count, Row &row) {
  const SlotRange slots = slots_of(controller, slot_count);
  std::size_t next_drive = 0;
  for (std::int32_t slot = slots.first; slot <= slots.last; ++slot) {
    name_slot(row, controller, slot);
    const Record drive = next_drive < controller.drive_count() ? controller.drive(next_drive) : Record({});
    if (drive.i32(STOR_DRIVE_SLOT) == slot && !drive.text(STOR_DRIVE_NAME, STOR_TEXT_SIZE).empty()) {
      fill(row, drive);
      ++next_drive;
    } else {
      fill_placeholder(row);
    }
    tavoStorageLocalDiskTable_createEntry(row.slot, &row);
  }
}

}  // namespace
}  // namespace tavo

TAVO_TABLE_ENTRY_POINTS(tavoStorageLocalDiskTable, tavo::StorageLocalDiskRow, tavo::table)

int initialize_table_tavoStorageLocalDiskTable(void) {
  tavo::table.trace_entry(__func__, __LINE__);
  tavo::table.register_with({.handler = tavoStorageLocalDiskTable_handler,
                             .first_row = tavoStorageLocalDiskTable_get_first_data_point,
                             .next_row = tavoStorageLocalDiskTable_get_next_data_point});
  return initialize_local_disk_table(0);
}

int getNumOfHDD(const char *key, const char *suffix, int *value) {
  tavo::run_in_shell("/usr/local/bin/datactl get=platformSkuType | /usr/local/bin/flatkv > /var/getNumOfHDD");
  tavo::Dump dump("/var/getNumOfHDD");
  char text[tavo::dump_value_size];
  if (!dump.value(tavo::Needle::without_blank(key, suffix), 1, text)) {
    return 0;
  }
  *value = static_cast<int>(std::clamp<long long>(std::strtoll(text, nullptr, 10), INT_MIN, INT_MAX));
  return 1;
}

int initialize_local_disk_table(int refresh) {
  if (refresh == 1) {
    tavoStorageLocalDiskTable_removeAllEntries();
  }
  const auto row = tavo::make_zeroed<tavo::StorageLocalDiskRow>();
  if (row == nullptr || head_stor_ptr == nullptr) {
    return -1;
  }
  int slot_count = 0;
  getNumOfHDD("hdd:", "", &slot_count);
  slot_count = std::clamp(slot_count, 0, tavo::most_slots);
  for (const tavo::StorController *at = head_stor_ptr; at != nullptr; at = at->next) {
    const tavo::ControllerRecord controller(*at);
    if (tavo::shows_drives(controller)) {
      tavo::add_rows(controller, slot_count, *row);
    }
  }
  return 1;
}
