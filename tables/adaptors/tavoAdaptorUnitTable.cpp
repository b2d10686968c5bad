#include "tables/adaptors/tavoAdaptorUnitTable.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "core/shell.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "sources/tool_dump.h"
#include "tables/vendor.h"

namespace tavo {
namespace {

using Row = AdaptorUnitRow;

constexpr auto root = table_root(3, 85);

TAVO_COLUMNS(tavoAdaptorUnitTable, Row, dn, rn, column_4, column_5, column_6, column_7, counter, slot, column_10,
             product_id, oper_state, operability, bus, slot_text, perf, power, presence, revision, firmware_version,
             serial, overtemperature, vendor, voltage, column_25, part_number);

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

constexpr std::size_t longest_line = 128;  // of a command's output, with its newline

// More than a server has slots for. A larger count is wrong, and each card that is not there costs 25 s.
constexpr int most_cards = 64;

constexpr char dump_source[] = "adapter";
constinit ToolDump adaptor_dump("/var/adapterInventory");

// The fields of the cards in one dump.
struct CardFields {
  explicit CardFields(const Dump &dump)
      : slot(dump, "slot-number", ": "),
        product_id(dump, "product-id", ": "),
        bus(dump, "i2cLogicalBus", ": "),
        serial(dump, "serial-number", ": "),
        overtemperature(dump, "overtemp-condition", ": "),
        part_number(dump, "hw-part-no", ": ") {}

  Dump::Search slot;
  Dump::Search product_id;
  Dump::Search bus;
  Dump::Search serial;
  Dump::Search overtemperature;
  Dump::Search part_number;
};

// The dump as one build reads it: once for each time that the tool writes it.
class BuildDump {
 public:
  BuildDump() { adaptor_dump.forget(); }

  CardFields &fields() {
    if (!adaptor_dump.is_written()) {
      dump_ = adaptor_dump.read(dump_source);
      fields_ = CardFields(dump_);
    }
    return fields_;
  }

 private:
  Dump dump_;
  CardFields fields_{dump_};
};

// Fills the row of the dump's card `n`, counted from 1. A slot that is not a number leaves the slot of the card before
// in place. False if the card has no slot at all.
bool fill(Row &row, BuildDump &dump, int n) {
  char slot[dump_value_size];
  char value[dump_value_size];
  if (!adaptor_dump.await([&] { return dump.fields().slot.value(n, slot); })) {
    return false;
  }
  CardFields &fields = dump.fields();
  const std::uint32_t slot_before = row.slot;
  row = {};
  row.slot = static_cast<std::uint32_t>(leading_number_or(static_cast<std::int32_t>(slot_before), slot));
  copy_text(row.slot_text, slot);
  format_text(row.dn, "sys/rack-unit-1/adaptor-%s", slot);
  format_text(row.rn, "adaptor-%s", slot);
  fields.product_id.value(n, row.product_id, sizeof row.product_id);
  fields.bus.value(n, row.bus, sizeof row.bus);
  fields.serial.value(n, row.serial, sizeof row.serial);
  copy_text(row.vendor, server_vendor);
  if (GetAdaptorFirmwareRevision(static_cast<int>(row.slot), value) == 1) {
    copy_text(row.firmware_version, value);
  }
  row.perf = 100;
  row.power = 1;
  row.presence = 10;
  row.oper_state = 1;
  row.operability = 1;
  if (fields.overtemperature.value(n, value) && !std::string_view(value).starts_with("no")) {
    row.overtemperature = 3;
    row.oper_state = 8;
    row.operability = 8;
  }
  fields.part_number.value(n, row.part_number, sizeof row.part_number);
  return true;
}

}  // namespace

int initialize_adaptorunit_table(int refresh) {
  const Rebuild rebuild(table, refresh);
  if (rebuild.error() != 0) {
    return 0;
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
  return leading_number_or(0, line);
}

int GetValuefromCache(const char *key, const char *separator, int occurrence, char *out) {
  return adaptor_dump.value(dump_source, key, separator, occurrence, out) ? 1 : 0;
}

int GetAdaptorFirmwareRevision(int slot, char *out) {
  constexpr int tries = 10;
  const auto ask = [&] {
    return first_line_of(
        longest_command, longest_line, out,
        "datactl get=adapterFW[%d] | flatkv | grep -B 1 \"STARTUP, RUNNING\" | grep \"image-version\" | "
        "awk -F\": \" ' { print $2 } ' ",
        slot);
  };
  const bool read = try_repeatedly(ask, tries);
  return read ? 1 : 0;
}

}  // namespace tavo
