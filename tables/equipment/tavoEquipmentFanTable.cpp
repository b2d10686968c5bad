#include "tables/equipment/tavoEquipmentFanTable.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <string_view>

#include "core/record.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "platform/inventory.h"
#include "sources/fan_state.h"

namespace tavo {

std::uint8_t FAN_PRSNT_ARR[256] = {};
std::uint8_t PSU_FAN_PRSNT_ARR[256] = {};

namespace {

using Row = EquipmentFanRow;

constexpr auto root = table_root(15, 12);

TAVO_COLUMNS(tavoEquipmentFanTable, Row, dn, rn, interval_counter, id, column_6, sensor, module, oper_state,
             operability, perf, power, presence, model, revision, thermal, tray, serial, voltage);

constexpr auto refresh_rules = std::to_array<RefreshRule>({
    {.cause = RefreshCause::Fans, .place = 1},
    {.cause = RefreshCause::PowerSupplies, .place = 3},
});

constexpr TableDescription description = {
    .name = "tavoEquipmentFanTable",
    .root = root,
    .lock = ev_lock<12>,
    .columns = columns,
    .row = layout_of<Row>(),
    .build =
        [](int refresh) {
          initialize_fan_table(refresh);
          return 0;
        },
    .refresh = refresh_rules,
    .started = "Fan Init done\n",
    .traces = false,
    .keeps_registration = false,
};

}  // namespace

TAVO_DEFINE_TABLE(tavoEquipmentFanTable, Row, description)

namespace {

constexpr int sensor_count = 256;

// A sensor's record in the sensor repository.
class Sensor {
 public:
  // False if there is no such sensor or it cannot be read.
  bool read(int number) {
    octets_ = {};
    std::uint32_t output = 0;
    const bool was_read = IPMI_SensorGetSensorData(number, &output, octets_.data()) == 0;
    const Record record(octets_);
    type_ = record.u32(SENSOR_TYPE);
    address_ = {static_cast<std::uint32_t>(number), record.u32(SENSOR_ENTITY_ID), record.u32(SENSOR_ENTITY_INSTANCE)};
    return was_read;
  }

  std::uint32_t type() const { return type_; }
  std::uint32_t entity() const { return address_[1]; }
  std::uint32_t instance() const { return address_[2]; }
  std::string_view name() const { return Record(octets_).text(SENSOR_NAME, SENSOR_NAME_SIZE); }

  bool entity_is_present() const {
    auto address = address_;
    return IPMI_Discrete_CheckPresence(address.data()) == 0;
  }

  // The table's code for a fan: 10 present, 11 absent, 30 undetermined.
  std::uint8_t presence() const {
    auto address = address_;
    switch (IPMI_Thresh_Sensor_CheckPresence(address.data())) {
      case 0x00:
      case 0xCB:
        return 10;
      case 0x02:
      case 0xE0:
        return 11;
      default:
        return 30;
    }
  }

 private:
  std::uint32_t type_ = 0;
  std::array<std::uint32_t, 3> address_;  // as the platform wants it: number, entity, instance
  std::array<std::byte, SENSOR_RECORD_SIZE> octets_;
};

// Entity instances come from the sensors and may be too large for the arrays: such an entity counts as absent.
bool is_marked(const std::uint8_t (&present)[256], std::uint32_t instance) {
  return instance < std::size(present) && present[instance] == 1;
}

void mark(std::uint8_t (&present)[256], std::uint32_t instance) {
  if (instance < std::size(present)) {
    present[instance] = 1;
  }
}

// Notes which fans and supplies are present. Unlike the rows' pass over the sensors, this one skips gaps.
void note_entities_present() {
  std::ranges::fill(FAN_PRSNT_ARR, 0);
  std::ranges::fill(PSU_FAN_PRSNT_ARR, 0);
  Sensor sensor;
  for (int number = 0; number < sensor_count; ++number) {
    if (!sensor.read(number) || sensor.type() != SENSOR_TYPE_ENTITY_PRESENCE) {
      continue;
    }
    if (sensor.entity() == ENTITY_FAN && sensor.entity_is_present()) {
      mark(FAN_PRSNT_ARR, sensor.instance());
    } else if (sensor.entity() == ENTITY_POWER_SUPPLY && sensor.entity_is_present()) {
      mark(PSU_FAN_PRSNT_ARR, sensor.instance());
    }
  }
}

// Removes `literal` and the number after it from the front of a name. False, and `number` left alone, if the name does
// not start with them.
bool take_number_after(std::string_view literal, std::string_view &name, std::int32_t &number) {
  if (!name.starts_with(literal)) {
    return false;
  }
  name.remove_prefix(literal.size());
  const auto taken = take_number(name);
  number = taken.value_or(number);
  return taken.has_value();
}

// The numbers in a system fan's name.
struct FanNumbers {
  std::int32_t first = 0;
  std::int32_t second = 0;
  std::int32_t fan = 0;
  std::int32_t module = 0;
  bool is_tachometer = false;  // names are made from `first` and `second`; columns 5 and 8 show `fan` and `module`
};

bool contains(std::string_view name, std::string_view part) {
  return name.find(part) != std::string_view::npos;
}

// The names of fans with one number. The first scheme whose `part` is in the name says where the number is.
struct NamingScheme {
  std::string_view part;
  std::string_view before_number;
  std::int32_t fan;
};

constexpr auto naming_schemes = std::to_array<NamingScheme>({
    {.part = "TRAY", .before_number = "FAN_TRAY", .fan = 1},
    {.part = "FANA", .before_number = "FANA_MOD", .fan = 1},
    {.part = "FANB", .before_number = "FANB_MOD", .fan = 2},
    {.part = "", .before_number = "FAN", .fan = 1},
});

// Reads the first number, after `literal`, and then the second, after "_TACH", as far as the name matches.
void take_two_numbers(std::string_view literal, std::string_view name, FanNumbers &numbers) {
  if (take_number_after(literal, name, numbers.first)) {
    take_number_after("_TACH", name, numbers.second);
  }
}

FanNumbers numbers_in(std::string_view name) {
  FanNumbers numbers;
  if (contains(name, "Q410")) {
    take_two_numbers("Q410_FAN", name, numbers);
    numbers.fan = numbers.first;
    numbers.module = numbers.second;
  } else {
    const auto *const scheme =
        std::ranges::find_if(naming_schemes, [name](const NamingScheme &s) { return contains(name, s.part); });
    std::string_view rest = name;
    take_number_after(scheme->before_number, rest, numbers.first);
    numbers.fan = scheme->fan;
    numbers.module = numbers.first;
  }
  if (contains(name, "TACH")) {
    numbers.is_tachometer = true;
    take_two_numbers("FAN", name, numbers);
  }
  return numbers;
}

// The index of a tachometer in sys_fan_sev, which has two for each module. Out of range for numbers that no fan has.
std::uint32_t severity_index(const FanNumbers &numbers) {
  constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();
  const std::int64_t index = (std::int64_t{numbers.first} - 1) * 2 + (std::int64_t{numbers.second} - 1);
  return index < 0 || index > none ? none : static_cast<std::uint32_t>(index);
}

void set_operability(Row &row, std::int32_t state) {
  row.oper_state = state;
  row.operability = state;
}

void fill_system_fan(Row &row, const Sensor &sensor) {
  const std::uint8_t presence = sensor.presence();
  store_fan(sys_fan_prs, sensor.instance(), presence);
  const FanNumbers numbers = numbers_in(sensor.name());
  const std::int32_t module = numbers.is_tachometer ? numbers.first : numbers.module;
  const std::int32_t fan = numbers.is_tachometer ? numbers.second : numbers.fan;
  constexpr std::size_t kept = 36;  // the length with one-digit numbers; managers expect at most this
  format_text(row.dn, kept + 1, "sys/rack-unit-1/fan-module-1-%d/fan-%d", module, fan);
  format_text(row.rn, "fan-%d", fan);
  row.id = static_cast<std::uint32_t>(numbers.fan);
  row.module = static_cast<std::uint32_t>(numbers.module);
  row.presence = presence;
  const std::uint32_t severity = numbers.is_tachometer ? severity_index(numbers) : sensor.instance();
  if (!is_marked(FAN_PRSNT_ARR, sensor.instance())) {
    set_operability(row, 6);
  } else {
    set_operability(row, load_fan(sys_fan_sev, severity) == 0 ? 1 : 3);
  }
}

void fill_supply_fan(Row &row, const Sensor &sensor) {
  std::string_view name = sensor.name();
  std::int32_t supply = 0;
  std::int32_t fan = 0;
  if (contains(name, "SPEED")) {
    take_number_after("PSU", name, supply);
    fan = 1;
  }
  constexpr std::size_t kept = 27;  // likewise
  format_text(row.dn, kept + 1, "sys/rack-unit-1/psu-%d/fan-%d", supply, fan);
  format_text(row.rn, "psu-%d/fan-%d", supply, fan);
  row.id = static_cast<std::uint32_t>(supply);
  row.module = static_cast<std::uint32_t>(fan);
  set_operability(row, load_fan(ps_fan_sev, sensor.instance()) == 0 ? 1 : 3);
  row.presence = 10;
}

// Makes the sensor's row. Returns the number of the last row: `row_number`, or the next one.
std::uint32_t add_row(const Sensor &sensor, std::uint32_t row_number, Row &row) {
  row = {};
  if (sensor.entity() == ENTITY_FAN) {
    ++row_number;
    fill_system_fan(row, sensor);
  } else if (sensor.entity() == ENTITY_POWER_SUPPLY) {
    if (!is_marked(PSU_FAN_PRSNT_ARR, sensor.instance())) {
      return row_number;
    }
    ++row_number;
    fill_supply_fan(row, sensor);
  }
  // A fan of any other entity gets a row without names, and without a number of its own.
  copy_text(row.sensor, sensor.name());
  copy_text(row.model, "unknown");
  copy_text(row.revision, "unknown");
  row.tray = 1;
  copy_text(row.serial, "unknown");
  tavoEquipmentFanTable_createEntry(row_number, &row);
  return row_number;
}

}  // namespace

void initialize_fan_table(int refresh) {
  const Rebuild rebuild(table, refresh);
  if (rebuild.error() != 0) {
    return;
  }
  note_entities_present();
  const auto row = make_zeroed<EquipmentFanRow>();
  if (row == nullptr) {
    return;
  }
  std::uint32_t row_number = 0;
  Sensor sensor;
  for (int number = 0; number < sensor_count && sensor.read(number); ++number) {
    if (sensor.type() == SENSOR_TYPE_FAN) {
      row_number = add_row(sensor, row_number, *row);
    }
  }
}

}  // namespace tavo
