#include "tables/tavoEquipmentHealthLedTable.h"

#include <strings.h>

#include <array>
#include <climits>
#include <cstddef>

#include "core/dump.h"
#include "core/shell.h"
#include "core/table.h"
#include "core/table_entry_points.h"
#include "core/text.h"
#include "core/trace.h"

tavo::HealthLedRow *tavoEquipmentHealthLedTable_head = nullptr;

namespace tavo {
namespace {

using Row = HealthLedRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 15, 114};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::text, .field = field<decltype(Row::dn)>(offsetof(Row, dn))},
    {.number = 3, .codec = Codec::text, .field = field<decltype(Row::rn)>(offsetof(Row, rn))},
    {.number = 4, .codec = Codec::integer, .field = field<decltype(Row::color)>(offsetof(Row, color))},
    {.number = 5, .codec = Codec::integer, .field = field<decltype(Row::color_code)>(offsetof(Row, color_code))},
    {.number = 6, .codec = Codec::text, .field = field<decltype(Row::reserved_6)>(offsetof(Row, reserved_6))},
    {.number = 7, .codec = Codec::gauge, .field = field<decltype(Row::id)>(offsetof(Row, id))},
    {.number = 8, .codec = Codec::text, .field = field<decltype(Row::name)>(offsetof(Row, name))},
    {.number = 9, .codec = Codec::integer, .field = field<decltype(Row::state)>(offsetof(Row, state))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoEquipmentHealthLedTable",
    .root = root,
    .lock = ListLock::ev(105),
    .columns = columns,
    .row = layout_of<Row>(),
    .keeps_registration = false,
};

constinit Table table(description, &tavoEquipmentHealthLedTable_head);

constexpr char dump_path[] = "/var/LedInv";
constexpr char health_led[] = "LED_HLTH_STATUS";

struct LedState {
  const char *text;
  std::int32_t state;
};
constexpr auto led_states = std::to_array<LedState>({{"ON", 1}, {"SLOW BLINK", 3}, {"FAST BLINK", 3}});
constexpr std::int32_t other_state = 2;

struct LedColor {
  std::int32_t state;
  const char *text;
  std::int32_t color;
  std::int32_t code;
};
// Blinking amber is as bad as red, and nothing blinks green.
constexpr auto led_colors = std::to_array<LedColor>({
    {1, "GREEN", 1, 0},
    {1, "AMBER", 2, 1},
    {1, "RED", 3, 2},
    {3, "AMBER", 2, 2},
    {3, "RED", 3, 2},
});

bool same(const char *one, const char *other) {
  return strcasecmp(one, other) == 0;
}

void write_dump() {
  run_in_shell("/usr/local/bin/datactl get=externalLEDs | /usr/local/bin/flatkv > /var/LedInv");
}

// The value that getValueFromGDSforHLEDVal gives.
bool value_of(Dump &dump, const char *key, const char *separator, char *out, int n) {
  return n < INT_MAX && dump.value(Needle(key, separator), n + 1, out);
}

void fill_state(Row &row, Dump &dump, int n) {
  char value[dump_value_size];
  if (!value_of(dump, "ledState", ": ", value, n)) {
    return;
  }
  row.state = other_state;
  for (const LedState &known : led_states) {
    if (same(value, known.text)) {
      row.state = known.state;
    }
  }
  if (row.state == other_state || !value_of(dump, "ledColor", ": ", value, n)) {
    return;
  }
  for (const LedColor &known : led_colors) {
    if (row.state == known.state && same(value, known.text)) {
      row.color = known.color;
      row.color_code = known.code;
    }
  }
}

bool add_row(std::uint32_t index, Dump &dump, int n) {
  Row row{};
  row.id = static_cast<std::uint32_t>(n);
  format_text(row.dn, "sys/rack-unit-1/board/led-%d", n);
  format_text(row.rn, "led-%d", n);
  copy_text(row.name, health_led);
  fill_state(row, dump, n);
  return tavoEquipmentHealthLedTable_createEntry(index, &row) != nullptr;
}

}  // namespace
}  // namespace tavo

TAVO_TABLE_ENTRY_POINTS(tavoEquipmentHealthLedTable, tavo::HealthLedRow, tavo::table)

int initialize_table_tavoEquipmentHealthLedTable(void) {
  tavo::trace_under("tavoEquipmentHealthLedTable:init", __func__, tavo::description.name, __LINE__,
                    "initializing table %s\n", tavo::description.name);
  tavo::table.register_with({.handler = tavoEquipmentHealthLedTable_handler,
                             .first_row = tavoEquipmentHealthLedTable_get_first_data_point,
                             .next_row = tavoEquipmentHealthLedTable_get_next_data_point});
  return initialize_health_led_table(0);
}

int initialize_health_led_table(int reload) {
  const tavo::ListGuard guard(tavo::table.lock());
  if (guard.error() != 0) {
    return 0;
  }
  if (reload == 1) {
    tavoEquipmentHealthLedTable_removeAllEntries();
  }
  tavo::write_dump();
  tavo::Dump dump(tavo::dump_path);
  const int count = dump.count(tavo::Needle("id", ": "));
  std::uint32_t index = 1;
  for (int n = 1; n <= count; ++n) {
    char name[tavo::dump_value_size];
    if (!tavo::value_of(dump, "ledName", ": ", name, n) || !tavo::same(name, tavo::health_led)) {
      continue;
    }
    if (!tavo::add_row(index++, dump, n)) {
      return -1;
    }
  }
  return 0;
}

int getValueFromGDSforHLED(const char *key, const char *separator, char *out) {
  tavo::write_dump();
  tavo::Dump dump(tavo::dump_path);
  if (!dump.opened()) {
    return 0;
  }
  tavo::format_text(out, tavo::dump_value_size, "%d", dump.count(tavo::Needle(key, separator)));
  return 1;
}

int getValueFromGDSforHLEDVal(const char *key, const char *separator, char *out, int n) {
  tavo::Dump dump(tavo::dump_path);
  return tavo::value_of(dump, key, separator, out, n) ? 1 : 0;
}
