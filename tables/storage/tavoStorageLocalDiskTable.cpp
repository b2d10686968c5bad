#include "tables/storage/tavoStorageLocalDiskTable.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "core/code_value.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "sources/stor_info.h"
#include "sources/tool_dump.h"
#include "tables/storage/storage_names.h"

namespace tavo {
namespace {

using Row = StorageLocalDiskRow;

constexpr auto root = table_root(45, 4);

TAVO_COLUMNS(tavoStorageLocalDiskTable, Row, dn, rn, column_4, connection, slot, media, capacity, operability, presence,
             model, revision, blocks, name, column_15, column_16, column_17, state, link, column_20);

constexpr TableDescription description = {
    .name = "tavoStorageLocalDiskTable",
    .root = root,
    .lock = storage_lock,
    .columns = columns,
    .row = layout_of<Row>(),
    .build = initialize_local_disk_table,
    .source = TableSource::StorageSnapshot,
    .started = "StorageLocalDisk Init done\n",
};

}  // namespace

TAVO_DEFINE_TABLE(tavoStorageLocalDiskTable, Row, description)

namespace {

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

// Unlisted codes, 10 among them, count as the first.
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

// A controller's record has room for this many drives. If the tool reports more slots, its answer is garbage.
constexpr int most_slots = STOR_DRIVE_CAPACITY;

struct SlotRange {
  std::int32_t first;
  std::int32_t last;
};

// The slots that a controller serves: the platform's `slot_count` slots, or a second bank of as many if its last drive
// has a higher number. For a controller without drives, a word of its description decides: it lies where the drive
// before the first would have its slot number. Managers know the resulting rows, so this stays.
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
  row.connection = value_of(connection_values, drive.u32(STOR_DRIVE_CONNECTION));
  copy_text(row.media, media_name(drive.u32(STOR_DRIVE_MEDIA)));
  row.capacity = drive.u64(STOR_DRIVE_CAPACITY_WORD);
  row.operability = state.operability;
  row.presence = state.presence;
  copy_text(row.model, drive.text(STOR_DRIVE_MODEL, STOR_TEXT_SIZE));
  copy_text(row.revision, drive.text(STOR_DRIVE_REVISION, STOR_TEXT_SIZE));
  row.blocks = drive.u64(STOR_DRIVE_BLOCKS);
  copy_text(row.name, drive.text(STOR_DRIVE_NAME, STOR_TEXT_SIZE));
  row.state = state.state;
  row.link = drive.i32(STOR_DRIVE_LINK);
}

void fill_placeholder(Row &row) {
  row.connection = 1;
  row.operability = 6;
  row.presence = 11;
  row.column_15 = 2;
}

// The modes in which a controller shows no drives.
constexpr auto modes_without_drives = std::to_array<std::uint32_t>({0, 1, 3, 6});

bool shows_drives(const ControllerRecord &controller) {
  return std::ranges::count(modes_without_drives, controller.u32(STOR_CONTROLLER_MODE)) == 0;
}

// Adds one row for each slot. Drives are taken in the record's order. A drive that is out of order or has no name is
// not shown, and neither are those after it.
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

// Whether the query tool's last dump had no line. Guarded by the storage lock.
constinit bool tool_was_silent = false;

// Relaxed, because it guards nothing.
constinit std::atomic<bool> slots_are_unknown = false;

}  // namespace

int getNumOfHDD(const char *key, const char *suffix, int *value) {
  const Dump dump = ToolDump("/var/getNumOfHDD", platform_tools).read("platformSkuType");
  char text[dump_value_size];
  tool_was_silent = !dump.value(Needle::without_blank(key, suffix), 0, text);
  if (!dump.value(Needle::without_blank(key, suffix), 1, text)) {
    return 0;
  }
  *value = static_cast<int>(std::clamp<long long>(std::strtoll(text, nullptr, 10), INT_MIN, INT_MAX));
  return 1;
}

int initialize_local_disk_table(int refresh) {
  if (refresh == 1) {
    tavoStorageLocalDiskTable_removeAllEntries();
  }
  slots_are_unknown.store(false, std::memory_order_relaxed);
  const auto row = make_zeroed<StorageLocalDiskRow>();
  if (row == nullptr || head_stor_ptr == nullptr) {
    return -1;
  }
  int slot_count = 0;
  getNumOfHDD("hdd:", "", &slot_count);
  slot_count = std::clamp(slot_count, 0, most_slots);
  for (const StorController *at = head_stor_ptr; at != nullptr; at = at->next) {
    const ControllerRecord controller(*at);
    if (shows_drives(controller)) {
      slots_are_unknown.store(tool_was_silent, std::memory_order_relaxed);
      add_rows(controller, slot_count, *row);
    }
  }
  return 1;
}

bool drive_slots_are_unknown() {
  return slots_are_unknown.load(std::memory_order_relaxed);
}

}  // namespace tavo
