#include "tables/tavoAdaptorUnitTable.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

#include "core/dump.h"
#include "core/shell.h"
#include "core/table.h"
#include "core/table_entry_points.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "tables/retries.h"

tavo::AdaptorUnitRow *tavoAdaptorUnitTable_head = nullptr;

namespace tavo {
namespace {

using Row = AdaptorUnitRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 3, 85};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::text, .field = field<decltype(Row::dn)>(offsetof(Row, dn))},
    {.number = 3, .codec = Codec::text, .field = field<decltype(Row::rn)>(offsetof(Row, rn))},
    {.number = 4, .codec = Codec::gauge, .field = field<decltype(Row::reserved_4)>(offsetof(Row, reserved_4))},
    {.number = 5, .codec = Codec::gauge, .field = field<decltype(Row::reserved_5)>(offsetof(Row, reserved_5))},
    {.number = 6, .codec = Codec::text, .field = field<decltype(Row::reserved_6)>(offsetof(Row, reserved_6))},
    {.number = 7, .codec = Codec::text, .field = field<decltype(Row::reserved_7)>(offsetof(Row, reserved_7))},
    {.number = 8, .codec = Codec::counter64_of_four_octets, .field = field<decltype(Row::counter)>(offsetof(Row, counter))},
    {.number = 9, .codec = Codec::gauge, .field = field<decltype(Row::slot)>(offsetof(Row, slot))},
    {.number = 10, .codec = Codec::integer, .field = field<decltype(Row::reserved_10)>(offsetof(Row, reserved_10))},
    {.number = 11, .codec = Codec::text, .field = field<decltype(Row::product_id)>(offsetof(Row, product_id))},
    {.number = 12, .codec = Codec::integer, .field = field<decltype(Row::oper_state)>(offsetof(Row, oper_state))},
    {.number = 13, .codec = Codec::integer, .field = field<decltype(Row::operability)>(offsetof(Row, operability))},
    {.number = 14, .codec = Codec::text, .field = field<decltype(Row::bus)>(offsetof(Row, bus))},
    {.number = 15, .codec = Codec::text, .field = field<decltype(Row::slot_text)>(offsetof(Row, slot_text))},
    {.number = 16, .codec = Codec::integer, .field = field<decltype(Row::state_16)>(offsetof(Row, state_16))},
    {.number = 17, .codec = Codec::integer, .field = field<decltype(Row::state_17)>(offsetof(Row, state_17))},
    {.number = 18, .codec = Codec::integer, .field = field<decltype(Row::presence)>(offsetof(Row, presence))},
    {.number = 19, .codec = Codec::text, .field = field<decltype(Row::reserved_19)>(offsetof(Row, reserved_19))},
    {.number = 20, .codec = Codec::text, .field = field<decltype(Row::firmware_version)>(offsetof(Row, firmware_version))},
    {.number = 21, .codec = Codec::text, .field = field<decltype(Row::serial)>(offsetof(Row, serial))},
    {.number = 22, .codec = Codec::integer, .field = field<decltype(Row::overtemperature)>(offsetof(Row, overtemperature))},
    {.number = 23, .codec = Codec::text, .field = field<decltype(Row::vendor)>(offsetof(Row, vendor))},
    {.number = 24, .codec = Codec::integer, .field = field<decltype(Row::reserved_24)>(offsetof(Row, reserved_24))},
    {.number = 25, .codec = Codec::integer, .field = field<decltype(Row::reserved_25)>(offsetof(Row, reserved_25))},
    {.number = 26, .codec = Codec::text, .field = field<decltype(Row::part_number)>(offsetof(Row, part_number))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoAdaptorUnitTable",
    .root = root,
    .lock = ListLock::ev(3),
    .columns = columns,
    .row = layout_of<Row>(),
};

constinit Table table(description, &tavoAdaptorUnitTable_head);

constexpr char dump_path[] = "/var/adapterInventory";
constexpr std::size_t longest_line = 128;  // of a command's output

// More than a server has slots for. A count beyond is nonsense, and each card that is not there costs 25 s.
constexpr int most_cards = 64;

// The dump counts as loaded from when it is written until a build, or a failed try of one, wants it anew.
bool dump_is_loaded = false;

// Has the tool write the dump, unless it has. True when it was written now.
bool load_dump() {
  if (dump_is_loaded) {
    return false;
  }
  run_in_shell("datactl get=adapter | flatkv > /var/adapterInventory");
  dump_is_loaded = true;
  return true;
}

// The dump as one build reads it: opened once for each time that it is written.
class BuildDump {
 public:
  BuildDump() { dump_is_loaded = false; }

  bool value(const char *key, int occurrence, char *out) {
    if (load_dump()) {
      dump_.emplace(dump_path);
    }
    return dump_->value(Needle(key, ": "), occurrence, out);
  }

  // Tries until the key turns up. The dump is written anew after each failed try, the last one too.
  bool await_value(const char *key, int occurrence, char *out) {
    return try_repeatedly([&] {
      const bool found = value(key, occurrence, out);
      if (!found) {
        dump_is_loaded = false;
      }
      return found;
    });
  }

 private:
  std::optional<Dump> dump_;
};

// Fills the row of the card at place `n` of the dump. A slot that is no number leaves it the slot of the card before.
// False when the card has no slot at all.
bool fill(Row &row, BuildDump &dump, int n) {
  char slot[dump_value_size];
  char value[dump_value_size];
  if (!dump.await_value("slot-number", n, slot)) {
    return false;
  }
  const std::uint32_t slot_before = row.slot;
  row = {};
  row.slot = static_cast<std::uint32_t>(leading_number(slot).value_or(static_cast<std::int32_t>(slot_before)));
  copy_text(row.slot_text, slot);
  format_text(row.dn, "sys/rack-unit-1/adaptor-%s", slot);
  format_text(row.rn, "adaptor-%s", slot);
  if (dump.value("product-id", n, value)) {
    copy_text(row.product_id, value);
  }
  if (dump.value("i2cLogicalBus", n, value)) {
    copy_text(row.bus, value);
  }
  if (dump.value("serial-number", n, value)) {
    copy_text(row.serial, value);
  }
  copy_text(row.vendor, "Tavolo Systems Inc");
  if (GetAdaptorFirmwareRevision(static_cast<int>(row.slot), value) == 1) {
    copy_text(row.firmware_version, value);
  }
  row.state_16 = 100;
  row.state_17 = 1;
  row.presence = 10;
  row.oper_state = 1;
  row.operability = 1;
  if (dump.value("overtemp-condition", n, value) && !std::string_view(value).starts_with("no")) {
    row.overtemperature = 3;
    row.oper_state = 8;
    row.operability = 8;
  }
  if (dump.value("hw-part-no", n, value)) {
    copy_text(row.part_number, value);
  }
  return true;
}

}  // namespace
}  // namespace tavo

TAVO_TABLE_ENTRY_POINTS(tavoAdaptorUnitTable, tavo::AdaptorUnitRow, tavo::table)

int initialize_table_tavoAdaptorUnitTable(void) {
  tavo::table.trace_entry(__func__, __LINE__);
  tavo::table.register_with({.handler = tavoAdaptorUnitTable_handler,
                             .first_row = tavoAdaptorUnitTable_get_first_data_point,
                             .next_row = tavoAdaptorUnitTable_get_next_data_point});
  return initialize_adaptorunit_table(0);
}

int initialize_adaptorunit_table(int reload) {
  const tavo::ListGuard guard(tavo::table.lock());
  if (guard.error() != 0) {
    return 0;
  }
  if (reload == 1) {
    tavoAdaptorUnitTable_removeAllEntries();
  }
  const auto row = tavo::make_zeroed<tavo::AdaptorUnitRow>();
  if (row == nullptr) {
    return -1;
  }
  const int count = std::min(GetNumOfAdaptors(), tavo::most_cards);
  tavo::BuildDump dump;
  for (int n = 1; n <= count; ++n) {
    if (tavo::fill(*row, dump, n)) {
      tavoAdaptorUnitTable_createEntry(row->slot, row.get());
    }
  }
  return 0;
}

int de_register_adaptor_table_handler(void) {
  return tavo::table.de_register();
}

int GetNumOfAdaptors(void) {
  char line[tavo::longest_line];
  if (!tavo::first_line_of("slotutil -L  | grep \"slot-number\" | wc -l", tavo::longest_line, line)) {
    return 0;
  }
  return tavo::leading_number(line).value_or(0);
}

int GetValuefromCache(const char *key, const char *separator, int occurrence, char *out) {
  tavo::load_dump();
  return tavo::Dump(tavo::dump_path).value(tavo::Needle(key, separator), occurrence, out) ? 1 : 0;
}

int GetAdaptorFirmwareRevision(int slot, char *out) {
  constexpr int tries = 10;
  char command[256];
  tavo::format_text(
      command,
      "datactl get=adapterFW[%d] | flatkv | grep -B 1 \"STARTUP, RUNNING\" | grep \"image-version\" | awk "
      "-F\": \" ' { print $2 } ' ",
      slot);
  const bool read = tavo::try_repeatedly([&] { return tavo::first_line_of(command, tavo::longest_line, out); }, tries);
  return read ? 1 : 0;
}
