#include <array>

#include "simulator/control.h"

namespace tavo::sim {
namespace {

// The faults that the simulated hardware itself raises have an index made of class and unit, so that what raised them
// can clear them.
std::uint32_t own_index(std::int64_t class_code, std::int64_t unit) {
  return static_cast<std::uint32_t>(class_code * 1000 + unit);
}

constexpr std::string_view cause_missing = "238";
constexpr std::string_view cause_failed = "2";

void raise_fault(Machine &machine, std::int64_t class_code, std::int64_t unit, std::string_view severity,
                 std::string_view cause, const std::string &description) {
  const std::vector<std::string> settings{"class=" + std::to_string(class_code), "unit=" + std::to_string(unit),
                                          "severity=" + std::string(severity), "cause=" + std::string(cause),
                                          "description=" + description};
  machine.faults().raise(own_index(class_code, unit), settings);
}

std::string missing(Machine &machine, std::int64_t class_code, std::int64_t unit, const std::string &name) {
  raise_fault(machine, class_code, unit, "warning", cause_missing, name + " is missing");
  return name + " removed, fault " + std::to_string(own_index(class_code, unit)) + " raised\n";
}

std::string failed(Machine &machine, std::int64_t class_code, std::int64_t unit, const std::string &name) {
  raise_fault(machine, class_code, unit, "major", cause_failed, name + " has failed");
  return name + " failed, fault " + std::to_string(own_index(class_code, unit)) + " raised\n";
}

std::string well(Machine &machine, std::int64_t class_code, std::int64_t unit, const std::string &name) {
  const std::uint32_t index = own_index(class_code, unit);
  const bool cleared = machine.faults().clear(index, class_code);
  return name + " is well" + (cleared ? ", fault " + std::to_string(index) + " cleared" : "") + '\n';
}

// Processors, by number.

std::int64_t number_of(const std::string &word) {
  return parse_number(word, "number", 1, 1'000'000);
}

template <class Change>
void change_processor(Machine &machine, const std::string &number, Change change) {
  machine.change([&](Inventory &inventory) { change(find_numbered(inventory.processors, number)); });
}

std::string remove_processor(Machine &machine, Words words) {
  change_processor(machine, words[0], [](Part &part) { part.set("present", "no"); });
  return missing(machine, class_processor, number_of(words[0]), "processor " + words[0]);
}

std::string insert_processor(Machine &machine, Words words) {
  change_processor(machine, words[0], [](Part &part) { part.set("present", "yes"); });
  return well(machine, class_processor, number_of(words[0]), "processor " + words[0]);
}

std::string disable_processor(Machine &machine, Words words) {
  change_processor(machine, words[0], [](Part &part) { part.set("status", "Disabled"); });
  return failed(machine, class_processor, number_of(words[0]), "processor " + words[0]);
}

std::string enable_processor(Machine &machine, Words words) {
  change_processor(machine, words[0], [](Part &part) { part.set("status", "Enabled"); });
  return well(machine, class_processor, number_of(words[0]), "processor " + words[0]);
}

std::string set_processor(Machine &machine, Words words) {
  change_processor(machine, words[0], [&](Part &part) { apply_settings(part, words.subspan(1)); });
  return "processor " + words[0] + " changed\n";
}

// Memory modules, by name.

std::int64_t change_dimm(Machine &machine, const std::string &name, std::string_view field, std::string_view value) {
  std::int64_t number = 0;
  machine.change([&](Inventory &inventory) {
    Part &part = find_part(inventory.dimms, "name", name);
    part.set(field, value);
    number = part.number("number");
  });
  return number;
}

std::string remove_dimm(Machine &machine, Words words) {
  return missing(machine, class_memory, change_dimm(machine, words[0], "present", "no"), words[0]);
}

std::string insert_dimm(Machine &machine, Words words) {
  return well(machine, class_memory, change_dimm(machine, words[0], "present", "yes"), words[0]);
}

std::string fail_dimm(Machine &machine, Words words) {
  return failed(machine, class_memory, change_dimm(machine, words[0], "status", "Inoperable"), words[0]);
}

std::string repair_dimm(Machine &machine, Words words) {
  return well(machine, class_memory, change_dimm(machine, words[0], "status", "Operable"), words[0]);
}

std::string set_dimm(Machine &machine, Words words) {
  machine.change(
      [&](Inventory &inventory) { apply_settings(find_part(inventory.dimms, "name", words[0]), words.subspan(1)); });
  return words[0] + " changed\n";
}

// Fans, by the name of their sensor.

std::int64_t fan_unit(Machine &machine, const std::string &name) {
  return machine.read([&](const Inventory &inventory) {
    return inventory.sensors[part_position(inventory.sensors, "name", name)].number("fault-unit");
  });
}

// Every sensor of the fan's entity tells of its presence.
void set_fan_presence(Machine &machine, const std::string &name, std::string_view presence) {
  machine.change([&](Inventory &inventory) {
    const Part fan = find_part(inventory.sensors, "name", name);
    for (Part &sensor : inventory.sensors) {
      if (sensor.number("entity") == fan.number("entity") && sensor.number("instance") == fan.number("instance")) {
        sensor.set("presence", presence);
      }
    }
  });
}

std::string remove_fan(Machine &machine, Words words) {
  set_fan_presence(machine, words[0], "absent");
  return missing(machine, class_fan, fan_unit(machine, words[0]), words[0]);
}

std::string insert_fan(Machine &machine, Words words) {
  set_fan_presence(machine, words[0], "present");
  return well(machine, class_fan, fan_unit(machine, words[0]), words[0]);
}

std::string fail_fan(Machine &machine, Words words) {
  return failed(machine, class_fan, fan_unit(machine, words[0]), words[0]);
}

std::string repair_fan(Machine &machine, Words words) {
  return well(machine, class_fan, fan_unit(machine, words[0]), words[0]);
}

std::string set_sensor(Machine &machine, Words words) {
  machine.change([&](Inventory &inventory) {
    apply_settings(find_part(inventory.sensors, "number", words[0]), words.subspan(1));
  });
  return "sensor " + words[0] + " changed\n";
}

// Power supplies, by number. Their own sensors tell of their presence too.

template <class Change>
void change_supply(Machine &machine, const std::string &number, Change change) {
  machine.change([&](Inventory &inventory) {
    Part &supply = find_numbered(inventory.supplies, number);
    change(supply);
    for (Part &sensor : inventory.sensors) {
      if (sensor.text("name").starts_with("PSU" + number + "_")) {
        sensor.set("presence", supply.flag("present") ? "present" : "absent");
      }
    }
  });
}

std::string remove_supply(Machine &machine, Words words) {
  change_supply(machine, words[0], [](Part &part) { part.set("present", "no"); });
  return missing(machine, class_supply, number_of(words[0]), "supply " + words[0]);
}

std::string insert_supply(Machine &machine, Words words) {
  change_supply(machine, words[0], [](Part &part) { part.set("present", "yes"); });
  return well(machine, class_supply, number_of(words[0]), "supply " + words[0]);
}

std::string fail_supply(Machine &machine, Words words) {
  change_supply(machine, words[0], [](Part &part) { part.set_number("status", 0x0840); });
  return failed(machine, class_supply, number_of(words[0]), "supply " + words[0]);
}

std::string repair_supply(Machine &machine, Words words) {
  change_supply(machine, words[0], [](Part &part) { part.set_number("status", 0); });
  return well(machine, class_supply, number_of(words[0]), "supply " + words[0]);
}

std::string set_supply(Machine &machine, Words words) {
  change_supply(machine, words[0], [&](Part &part) { apply_settings(part, words.subspan(1)); });
  return "supply " + words[0] + " changed\n";
}

// Adapter cards, by slot.

void change_adapter(Machine &machine, const std::string &slot, Words settings) {
  machine.change([&](Inventory &inventory) { apply_settings(find_part(inventory.adapters, "slot", slot), settings); });
}

std::string remove_adapter(Machine &machine, Words words) {
  change_adapter(machine, words[0], std::array<std::string, 1>{"present=no"});
  return missing(machine, class_adapter, number_of(words[0]), "adapter " + words[0]);
}

std::string insert_adapter(Machine &machine, Words words) {
  change_adapter(machine, words[0], std::array<std::string, 1>{"present=yes"});
  return well(machine, class_adapter, number_of(words[0]), "adapter " + words[0]);
}

std::string set_adapter(Machine &machine, Words words) {
  change_adapter(machine, words[0], words.subspan(1));
  return "adapter " + words[0] + " changed\n";
}

std::string set_led(Machine &machine, Words words) {
  machine.change(
      [&](Inventory &inventory) { apply_settings(find_part(inventory.leds, "name", words[0]), words.subspan(1)); });
  return words[0] + " changed\n";
}

std::string power(Machine &machine, Words words) {
  machine.change([&](Inventory &inventory) { inventory.server.set("power", words[0]); });
  return "power " + words[0] + '\n';
}

std::string set_server(Machine &machine, Words words) {
  machine.change([&](Inventory &inventory) { apply_settings(inventory.server, words); });
  return "server changed\n";
}

std::string set_environment(Machine &machine, Words words) {
  machine.change([&](Inventory &inventory) { apply_settings(inventory.environment, words); });
  return "environment changed\n";
}

using Run = std::string (*)(Machine &, Words);

constexpr Command on_one(std::string_view object, std::string_view verb, std::string_view which, std::string_view help,
                         Run run) {
  return {.object = object, .verb = verb, .arguments = which, .least = 1, .most = 1, .help = help, .run = run};
}

constexpr Command setter(std::string_view object, std::string_view arguments, std::size_t least, std::string_view help,
                         Run run) {
  return {.object = object,
          .verb = "set",
          .arguments = arguments,
          .least = least,
          .most = any_number,
          .help = help,
          .run = run};
}

constexpr auto commands = std::to_array<Command>({
    on_one("processor", "remove", "N", "take it out of its socket, and raise a fault", remove_processor),
    on_one("processor", "insert", "N", "put it back, and clear the fault", insert_processor),
    on_one("processor", "disable", "N", "its status becomes Disabled, with a fault", disable_processor),
    on_one("processor", "enable", "N", "its status becomes Enabled, the fault is cleared", enable_processor),
    setter("processor", "N FIELD=VALUE ...", 2, "change what it says of itself; no fault", set_processor),
    on_one("dimm", "remove", "NAME", "pull a memory module, and raise a fault", remove_dimm),
    on_one("dimm", "insert", "NAME", "put it back, and clear the fault", insert_dimm),
    on_one("dimm", "fail", "NAME", "its status becomes Inoperable, with a fault", fail_dimm),
    on_one("dimm", "repair", "NAME", "its status becomes Operable, the fault is cleared", repair_dimm),
    setter("dimm", "NAME FIELD=VALUE ...", 2, "change what it says of itself; no fault", set_dimm),
    on_one("fan", "remove", "SENSOR", "pull the fan with this sensor, and raise a fault", remove_fan),
    on_one("fan", "insert", "SENSOR", "put it back, and clear the fault", insert_fan),
    on_one("fan", "fail", "SENSOR", "raise a fault of the fan", fail_fan),
    on_one("fan", "repair", "SENSOR", "clear it", repair_fan),
    setter("sensor", "NUMBER FIELD=VALUE ...", 2, "change an IPMI sensor; no fault", set_sensor),
    on_one("supply", "remove", "N", "pull a power supply, and raise a fault", remove_supply),
    on_one("supply", "insert", "N", "put it back, and clear the fault", insert_supply),
    on_one("supply", "fail", "N", "its status word becomes nonzero, with a fault", fail_supply),
    on_one("supply", "repair", "N", "its status word becomes 0, the fault is cleared", repair_supply),
    setter("supply", "N FIELD=VALUE ...", 2, "change what it says of itself; no fault", set_supply),
    on_one("adapter", "remove", "SLOT", "pull an adapter card, and raise a fault", remove_adapter),
    on_one("adapter", "insert", "SLOT", "put it back, and clear the fault", insert_adapter),
    setter("adapter", "SLOT FIELD=VALUE ...", 2, "change what it says of itself; no fault", set_adapter),
    setter("led", "NAME FIELD=VALUE ...", 2, "change an LED: state=ON|OFF|..., color=GREEN|...", set_led),
    on_one("power", "", "on|off|NUMBER", "change the server's power state", power),
    setter("server", "FIELD=VALUE ...", 1, "change what the server says of itself", set_server),
    setter("environment", "FIELD=VALUE ...", 1, "change readings; drift=SECONDS lets them change themselves",
           set_environment),
});

}  // namespace

std::span<const Command> inventory_commands() {
  return commands;
}

}  // namespace tavo::sim
