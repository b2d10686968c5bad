#include "tables/equipment/tavoEquipmentHealthLedTable.h"

#include <strings.h>

#include <array>
#include <climits>
#include <cstddef>

#include "core/text.h"
#include "core/trace.h"
#include "sources/tool_dump.h"

namespace tavo {
namespace {

using Row = HealthLedRow;

constexpr auto root = table_root(15, 114);

TAVO_COLUMNS(tavoEquipmentHealthLedTable, Row, dn, rn, color, color_code, column_6, id, name, state);

constexpr auto refresh_rules = std::to_array<RefreshRule>({
    {.cause = RefreshCause::Periodic, .place = 6},
});

constexpr TableDescription description = {
    .name = "tavoEquipmentHealthLedTable",
    .root = root,
    .lock = ev_lock<105>,
    .columns = columns,
    .row = layout_of<Row>(),
    .build = initialize_health_led_table,
    .refresh = refresh_rules,
    .keeps_registration = false,
    .registration_token = "tavoEquipmentHealthLedTable:init",
};

}  // namespace

TAVO_DEFINE_TABLE(tavoEquipmentHealthLedTable, Row, description)

namespace {

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
// Blinking amber is as bad as red; blinking green stays unknown.
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

constinit ToolDump led_dump("/var/LedInv", platform_tools);

constexpr char dump_source[] = "externalLEDs";

// See getValueFromGDSforHLEDVal.
bool value_of(Dump::Search &field, int n, char *out) {
  return n < INT_MAX && field.value(n + 1, out);
}

// The fields of the LEDs in a dump.
struct LedFields {
  explicit LedFields(const Dump &dump)
      : name(dump, "ledName", ": "), state(dump, "ledState", ": "), color(dump, "ledColor", ": ") {}

  Dump::Search name;
  Dump::Search state;
  Dump::Search color;
};

void fill_state(Row &row, LedFields &fields, int n) {
  char value[dump_value_size];
  if (!value_of(fields.state, n, value)) {
    return;
  }
  row.state = other_state;
  for (const LedState &known : led_states) {
    if (same(value, known.text)) {
      row.state = known.state;
    }
  }
  if (row.state == other_state || !value_of(fields.color, n, value)) {
    return;
  }
  for (const LedColor &known : led_colors) {
    if (row.state == known.state && same(value, known.text)) {
      row.color = known.color;
      row.color_code = known.code;
    }
  }
}

bool add_row(std::uint32_t index, LedFields &fields, int n) {
  Row row{};
  row.id = static_cast<std::uint32_t>(n);
  format_text(row.dn, "sys/rack-unit-1/board/led-%d", n);
  format_text(row.rn, "led-%d", n);
  copy_text(row.name, health_led);
  fill_state(row, fields, n);
  return tavoEquipmentHealthLedTable_createEntry(index, &row) != nullptr;
}

}  // namespace

int initialize_health_led_table(int refresh) {
  const Rebuild rebuild(table, refresh);
  if (rebuild.error() != 0) {
    return 0;
  }
  led_dump.forget();  // the tool writes it each time
  const Dump dump = led_dump.read(dump_source);
  LedFields fields(dump);
  const int count = dump.count_units(Needle("id", ": "));
  std::uint32_t index = 1;
  for (int n = 1; n <= count; ++n) {
    char name[dump_value_size];
    if (!value_of(fields.name, n, name) || !same(name, health_led)) {
      continue;
    }
    if (!add_row(index++, fields, n)) {
      return -1;
    }
  }
  return 0;
}

int getValueFromGDSforHLED(const char *key, const char *separator, char *out) {
  led_dump.forget();
  return led_dump.count(dump_source, key, separator, out) ? 1 : 0;
}

int getValueFromGDSforHLEDVal(const char *key, const char *separator, char *out, int n) {
  return n < INT_MAX && led_dump.value_without_tool(key, separator, n + 1, out) ? 1 : 0;
}

}  // namespace tavo
