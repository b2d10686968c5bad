#include "service/affected.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

#include "core/class_number.h"
#include "platform/inventory.h"

namespace tavo::service {
namespace {

const std::string server_dn = "sys/rack-unit-1";

// Removes `literal` and the number after it from the front of a name, and returns the number; 0 if they are not there.
std::int64_t take_number_after(std::string_view literal, std::string_view &name) {
  std::int64_t number = 0;
  if (name.starts_with(literal)) {
    name.remove_prefix(literal.size());
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    name.remove_prefix(static_cast<std::size_t>(end - name.data()));
  }
  return number;
}

bool contains(std::string_view name, std::string_view part) {
  return name.find(part) != std::string_view::npos;
}

// Where a fan is: the fan module and the fan in it, as the sensor's name tells.
struct FanPlace {
  std::int64_t module = 0;
  std::int64_t fan = 1;
  bool is_tachometer = false;
};

FanPlace place_of(std::string_view name) {
  if (contains(name, "TACH")) {
    constexpr std::string_view platform = "Q410_";
    name.remove_prefix(name.starts_with(platform) ? platform.size() : 0);
    const std::int64_t module = take_number_after("FAN", name);
    return {.module = module, .fan = take_number_after("_TACH", name), .is_tachometer = true};
  }
  for (const std::string_view scheme : {"FAN_TRAY", "FANA_MOD", "FANB_MOD"}) {
    if (name.starts_with(scheme)) {
      return {.module = take_number_after(scheme, name), .fan = scheme.starts_with("FANB") ? 2 : 1};
    }
  }
  return {.module = take_number_after("FAN", name)};
}

const Part *find_sensor(const Inventory &inventory, std::int64_t number) {
  const auto found =
      std::ranges::find_if(inventory.sensors, [&](const Part &s) { return s.number("number") == number; });
  return found != inventory.sensors.end() ? &*found : nullptr;
}

bool supply_is_present(const Inventory &inventory, std::int64_t instance) {
  return std::ranges::any_of(inventory.sensors, [&](const Part &sensor) {
    return sensor.number("type") == SENSOR_TYPE_ENTITY_PRESENCE && is_in_supply(sensor) &&
           sensor.number("instance") == instance && sensor.number("presence") == 0 && sensor.flag("readable");
  });
}

// The row of a fan; nothing if the table does not show it. The table ends at the first sensor that cannot be read, and
// leaves out the fans of absent supplies.
std::optional<std::int64_t> fan_row(const Inventory &inventory, const Part &wanted) {
  std::int64_t row = 0;
  for (std::int64_t number = 0;; ++number) {
    const Part *sensor = find_sensor(inventory, number);
    if (sensor == nullptr || !sensor->flag("readable")) {
      return std::nullopt;
    }
    const bool in_table =
        is_fan(*sensor) && (sensor->number("entity") == ENTITY_FAN ||
                            (is_in_supply(*sensor) && supply_is_present(inventory, sensor->number("instance"))));
    row += in_table ? 1 : 0;
    if (number == wanted.number("number")) {
      return in_table ? std::optional(row) : std::nullopt;
    }
  }
}

AffectedObject affected_by(std::int64_t class_code, std::int64_t unit, const Inventory &inventory) {
  const auto position = static_cast<std::size_t>(unit) - 1;
  switch (class_code) {
    case class_number::processor:
      if (position < inventory.processors.size()) {
        return affected_processor(inventory, position);
      }
      break;
    case class_number::memory:
      for (std::size_t i = 0; i < inventory.dimms.size(); ++i) {
        if (dimm_number(inventory.dimms, i) == unit) {
          return affected_dimm(inventory, i);
        }
      }
      break;
    case class_number::power_supply_fan:
      if (position < inventory.supplies.size()) {
        return affected_supply(position);
      }
      break;
    case class_number::adaptor:
      for (const Part &adapter : inventory.adapters) {
        if (adapter.number("slot") == unit) {
          return affected_adapter(adapter);
        }
      }
      break;
    case class_number::system_fan:
      for (const Part &sensor : inventory.sensors) {
        if (is_fan(sensor) && !is_in_supply(sensor) && fan_number(sensor) == unit) {
          return affected_fan(inventory, sensor);
        }
      }
      break;
    default:
      break;
  }
  return affected_server();
}

}  // namespace

std::string dn_oid(std::string_view column, std::int64_t row) {
  return "1.3.6.1.4.1.61453.4.207.1." + std::string(column) + '.' + std::to_string(row);
}

std::size_t row_of(const std::vector<Part> &parts, std::size_t position) {
  const auto end = parts.begin() + static_cast<std::ptrdiff_t>(position) + 1;
  return static_cast<std::size_t>(std::count_if(parts.begin(), end, [](const Part &p) { return p.flag("present"); }));
}

std::int64_t dimm_number(const std::vector<Part> &dimms, std::size_t position) {
  const std::int64_t number = dimms[position].number("number");
  if (number != 0) {
    return number;
  }
  return static_cast<std::int64_t>(dimms[position].flag("present") ? row_of(dimms, position) : position + 1);
}

bool is_fan(const Part &sensor) {
  return sensor.number("type") == SENSOR_TYPE_FAN;
}

bool is_in_supply(const Part &sensor) {
  return sensor.number("entity") == ENTITY_POWER_SUPPLY;
}

std::int64_t fan_number(const Part &sensor) {
  const FanPlace place = place_of(sensor.text("name"));
  const bool by_place = place.is_tachometer && !is_in_supply(sensor);
  return by_place ? (place.module - 1) * 2 + (place.fan - 1) : sensor.number("instance");
}

AffectedObject affected_server() {
  return {.dn = server_dn, .oid = dn_oid(dn_column::server, 1)};
}

AffectedObject affected_processor(const Inventory &inventory, std::size_t position) {
  const std::string board = server_dn + "/board";
  if (!inventory.processors[position].flag("present")) {
    return {.dn = board + "/cpu-" + std::to_string(position + 1), .oid = dn_oid(dn_column::board, 1)};
  }
  const std::size_t row = row_of(inventory.processors, position);
  return {.dn = board + "/cpu-" + std::to_string(row),
          .oid = dn_oid(dn_column::processor, static_cast<std::int64_t>(row))};
}

AffectedObject affected_dimm(const Inventory &inventory, std::size_t position) {
  const bool present = inventory.dimms[position].flag("present");
  const auto row = static_cast<std::int64_t>(row_of(inventory.dimms, position));
  return {.dn = server_dn + "/board/memarray-1/mem-" + std::to_string(dimm_number(inventory.dimms, position)),
          .oid = present ? dn_oid(dn_column::dimm, row) : dn_oid(dn_column::board, 1)};
}

AffectedObject affected_supply(std::size_t position) {
  const auto number = static_cast<std::int64_t>(position) + 1;
  return {.dn = server_dn + "/psu-" + std::to_string(number), .oid = dn_oid(dn_column::supply, number)};
}

AffectedObject affected_adapter(const Part &adapter) {
  const std::int64_t slot = adapter.number("slot");
  return {.dn = server_dn + "/adaptor-" + std::to_string(slot),
          .oid = adapter.flag("present") ? dn_oid(dn_column::adapter, slot) : affected_server().oid};
}

AffectedObject affected_fan(const Inventory &inventory, const Part &sensor) {
  const auto row = fan_row(inventory, sensor);
  const std::string oid = row ? dn_oid(dn_column::fan, *row) : affected_server().oid;
  std::string_view name = sensor.text("name");
  if (is_in_supply(sensor)) {
    return {.dn = server_dn + "/psu-" + std::to_string(take_number_after("PSU", name)) + "/fan-1", .oid = oid};
  }
  const FanPlace place = place_of(name);
  return {.dn = server_dn + "/fan-module-1-" + std::to_string(place.module) + "/fan-" + std::to_string(place.fan),
          .oid = oid};
}

void name_affected(Part &fault, const Inventory &inventory) {
  const AffectedObject affected = affected_by(fault.number("class"), fault.number("unit"), inventory);
  if (fault.text("affected").empty()) {
    fault.set("affected", affected.dn);
  }
  if (fault.text("affected-oid").empty()) {
    fault.set("affected-oid", affected.oid);
  }
}

}  // namespace tavo::service
