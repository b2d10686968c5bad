#include "tables/adaptors/tavoAdaptorUnitTable.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

#include "core/shell.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "sources/dump.h"
#include "sources/retries.h"

namespace tavo {
namespace {

using Row = AdaptorUnitRow;

constexpr auto root = table_root(3, 85);

TAVO_COLUMNS(tavoAdaptorUnitTable, Row, dn, rn, column_4, column_5, column_6, column_7, counter, slot, column_10,
             product_id, oper_state, operability, bus, slot_text, column_16, column_17, presence, column_19,
             firmware_version, serial, overtemperature, vendor, column_24, column_25, part_number);

constexpr auto refresh_rules = std::to_array<RefreshRule>({
    {.cause = RefreshCause::Adaptors, .place = 1},
    {.cause = RefreshCause::Periodic, .place = 4},
});

constexpr TableDescription description = {
    .name = "tavoAdaptorUnitTable",
    .root = root,
    .lock = ev_lock<3>,
    .columns = columns,
    .row = layout_of<Row>(),
    .build = initialize_adaptorunit_table,
    .refresh = refresh_rules,
    .started = "Adaptor Init done\n",
};

}  // namespace

TAVO_DEFINE_TABLE(tavoAdaptorUnitTable, Row, description)

namespace {

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
  run_in_shell(ShellCommand("datactl get=adapter | flatkv > /var/adapterInventory"));
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
  row.column_16 = 100;
  row.column_17 = 1;
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

int initialize_adaptorunit_table(int reload) {
  const ListGuard guard(table.lock());
  if (guard.error() != 0) {
    return 0;
  }
  if (reload == 1) {
    tavoAdaptorUnitTable_removeAllEntries();
  }
  const auto row = make_zeroed<AdaptorUnitRow>();
  if (row == nullptr) {
    return -1;
  }
  const int count = std::min(GetNumOfAdaptors(), most_cards);
  BuildDump dump;
  for (int n = 1; n <= count; ++n) {
    if (fill(*row, dump, n)) {
      tavoAdaptorUnitTable_createEntry(row->slot, row.get());
    }
  }
  return 0;
}

int de_register_adaptor_table_handler(void) {
  return table.de_register();
}

int GetNumOfAdaptors(void) {
  char line[longest_line];
  if (!first_line_of("slotutil -L  | grep \"slot-number\" | wc -l", longest_line, line)) {
    return 0;
  }
  return leading_number(line).value_or(0);
}

int GetValuefromCache(const char *key, const char *separator, int occurrence, char *out) {
  load_dump();
  return Dump(dump_path).value(Needle(key, separator), occurrence, out) ? 1 : 0;
}

int GetAdaptorFirmwareRevision(int slot, char *out) {
  constexpr int tries = 10;
  const ShellCommand command(
      "datactl get=adapterFW[%d] | flatkv | grep -B 1 \"STARTUP, RUNNING\" | grep \"image-version\" | awk -F\": \" ' { "
      "print $2 } ' ",
      slot);
  const bool read = try_repeatedly([&] { return first_line_of(command, longest_line, out); }, tries);
  return read ? 1 : 0;
}

}  // namespace tavo
