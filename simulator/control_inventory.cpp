#include <array>

#include "core/class_number.h"
#include "simulator/control.h"

namespace tavo::sim {
namespace {

// A piece of hardware: its name in messages, and the class and the unit number of its faults.
struct Unit {
  std::string name;
  std::int64_t class_code;
  std::int64_t number;
};

// The index of the fault that the simulator itself raises for a unit. It follows from the class and the number, so that
// a later command can clear the fault.
std::uint32_t index_of_fault(const Unit &unit) {
  return static_cast<std::uint32_t>(unit.class_code * 1000 + unit.number);
}

std::string raise_fault(Machine &machine, const Unit &unit, const std::string &severity, const std::string &cause,
                        const std::string &description) {
  const OwnSettings settings{"class=" + std::to_string(unit.class_code), "unit=" + std::to_string(unit.number),
                             "severity=" + severity, "cause=" + cause, "description=" + description};
  const std::uint32_t index = index_of_fault(unit);
  machine.faults().raise(index, settings);
  return ", fault " + std::to_string(index) + " raised\n";
}

std::string removed(Machine &machine, const Unit &unit) {
  constexpr const char *cause_missing = "238";
  return unit.name + " removed" + raise_fault(machine, unit, "warning", cause_missing, unit.name + " is missing");
}

std::string failed(Machine &machine, const Unit &unit) {
  constexpr const char *cause_failed = "2";
  return unit.name + " failed" + raise_fault(machine, unit, "major", cause_failed, unit.name + " has failed");
}

std::string restored(Machine &machine, const Unit &unit) {
  const std::uint32_t index = index_of_fault(unit);
  const bool cleared = machine.faults().clear(index, unit.class_code);
  return unit.name + " restored" + (cleared ? ", fault " + std::to_string(index) + " cleared" : "") + '\n';
}

std::string changed(const std::string &name) {
  return name + " changed\n";
}

// The position of a part that goes by its number, which counts from 1.
std::size_t position_of(const std::vector<Part> &parts, const std::string &number) {
  if (parts.empty()) {
    throw BadInput("the server has none");
  }
  return static_cast<std::size_t>(parse_number(number, "number", 1, static_cast<std::int64_t>(parts.size()))) - 1;
}

// Processors, by number.

Unit change_processor(Machine &machine, const std::string &number, Settings settings) {
  std::size_t position = 0;
  machine.change([&](Inventory &inventory) {
    position = position_of(inventory.processors, number);
    change_part(inventory.processors, inventory.processors[position], settings);
  });
  return {.name = "processor " + number,
          .class_code = class_number::processor,
          .number = static_cast<std::int64_t>(position) + 1};
}

std::string remove_processor(Machine &machine, Words words) {
  return removed(machine, change_processor(machine, words[0], OwnSettings{"present=no"}));
}

std::string insert_processor(Machine &machine, Words words) {
  return restored(machine, change_processor(machine, words[0], OwnSettings{"present=yes"}));
}

std::string disable_processor(Machine &machine, Words words) {
  return failed(machine, change_processor(machine, words[0], OwnSettings{"status=Disabled"}));
}

std::string enable_processor(Machine &machine, Words words) {
  return restored(machine, change_processor(machine, words[0], OwnSettings{"status=Enabled"}));
}

std::string set_processor(Machine &machine, Words words) {
  return changed(change_processor(machine, words[0], words.subspan(1)).name);
}

// Memory modules, by name.

Unit change_dimm(Machine &machine, const std::string &name, Settings settings) {
  std::int64_t number = 0;
  machine.change([&](Inventory &inventory) {
    number = change_found_part(inventory.dimms, "name", name, settings).number("number");
  });
  return {.name = name, .class_code = class_number::memory, .number = number};
}

std::string remove_dimm(Machine &machine, Words words) {
  return removed(machine, change_dimm(machine, words[0], OwnSettings{"present=no"}));
}

std::string insert_dimm(Machine &machine, Words words) {
  return restored(machine, change_dimm(machine, words[0], OwnSettings{"present=yes"}));
}

std::string fail_dimm(Machine &machine, Words words) {
  return failed(machine, change_dimm(machine, words[0], OwnSettings{"status=Inoperable"}));
}

std::string repair_dimm(Machine &machine, Words words) {
  return restored(machine, change_dimm(machine, words[0], OwnSettings{"status=Operable"}));
}

std::string set_dimm(Machine &machine, Words words) {
  return changed(change_dimm(machine, words[0], words.subspan(1)).name);
}

// Fans, by the name of a sensor.

Unit fan_with(Machine &machine, const std::string &sensor) {
  return machine.read([&](const Inventory &inventory) -> Unit {
    const std::int64_t number = find_part(inventory.sensors, "name", sensor).number("fault-unit");
    return {.name = sensor, .class_code = class_number::system_fan, .number = number};
  });
}

// All the sensors of a fan tell whether it is there.
Unit set_fan_presence(Machine &machine, const std::string &name, std::string_view presence) {
  machine.change([&](Inventory &inventory) {
    const Part fan = find_part(inventory.sensors, "name", name);
    for (Part &sensor : inventory.sensors) {
      if (sensor.number("entity") == fan.number("entity") && sensor.number("instance") == fan.number("instance")) {
        sensor.set("presence", presence);
      }
    }
  });
  return fan_with(machine, name);
}

std::string remove_fan(Machine &machine, Words words) {
  return removed(machine, set_fan_presence(machine, words[0], "absent"));
}

std::string insert_fan(Machine &machine, Words words) {
  return restored(machine, set_fan_presence(machine, words[0], "present"));
}

std::string fail_fan(Machine &machine, Words words) {
  return failed(machine, fan_with(machine, words[0]));
}

std::string repair_fan(Machine &machine, Words words) {
  return restored(machine, fan_with(machine, words[0]));
}

std::string set_sensor(Machine &machine, Words words) {
  machine.change(
      [&](Inventory &inventory) { change_found_part(inventory.sensors, "number", words[0], words.subspan(1)); });
  return changed("sensor " + words[0]);
}

// Power supplies, by number.

// A supply's own sensors tell whether it is there, too.
Unit change_supply(Machine &machine, const std::string &number, Settings settings) {
  std::size_t position = 0;
  machine.change([&](Inventory &inventory) {
    position = position_of(inventory.supplies, number);
    Part &supply = inventory.supplies[position];
    apply_settings(supply, settings);
    for (Part &sensor : inventory.sensors) {
      if (sensor.text("name").starts_with("PSU" + number + "_")) {
        sensor.set("presence", supply.flag("present") ? "present" : "absent");
      }
    }
  });
  return {.name = "supply " + number,
          .class_code = class_number::power_supply_fan,
          .number = static_cast<std::int64_t>(position) + 1};
}

std::string remove_supply(Machine &machine, Words words) {
  return removed(machine, change_supply(machine, words[0], OwnSettings{"present=no"}));
}

std::string insert_supply(Machine &machine, Words words) {
  return restored(machine, change_supply(machine, words[0], OwnSettings{"present=yes"}));
}

std::string fail_supply(Machine &machine, Words words) {
  constexpr const char *off_and_power_not_good = "status=0x0840";  // two bits of the PMBus status word
  return failed(machine, change_supply(machine, words[0], OwnSettings{off_and_power_not_good}));
}

std::string repair_supply(Machine &machine, Words words) {
  return restored(machine, change_supply(machine, words[0], OwnSettings{"status=0"}));
}

std::string set_supply(Machine &machine, Words words) {
  return changed(change_supply(machine, words[0], words.subspan(1)).name);
}

// Adapter cards, by slot.

Unit change_adapter(Machine &machine, const std::string &slot, Settings settings) {
  std::int64_t number = 0;
  machine.change([&](Inventory &inventory) {
    number = change_found_part(inventory.adapters, "slot", slot, settings).number("slot");
  });
  return {.name = "adapter " + slot, .class_code = class_number::adaptor, .number = number};
}

std::string remove_adapter(Machine &machine, Words words) {
  return removed(machine, change_adapter(machine, words[0], OwnSettings{"present=no"}));
}

std::string insert_adapter(Machine &machine, Words words) {
  return restored(machine, change_adapter(machine, words[0], OwnSettings{"present=yes"}));
}

std::string set_adapter(Machine &machine, Words words) {
  return changed(change_adapter(machine, words[0], words.subspan(1)).name);
}

// LEDs, power and readings, which raise no faults.

std::string set_led(Machine &machine, Words words) {
  machine.change([&](Inventory &inventory) { change_found_part(inventory.leds, "name", words[0], words.subspan(1)); });
  return changed(words[0]);
}

std::string power(Machine &machine, Words words) {
  machine.change([&](Inventory &inventory) { inventory.server.set("power", words[0]); });
  return "power " + words[0] + '\n';
}

std::string set_server(Machine &machine, Words words) {
  machine.change([&](Inventory &inventory) { apply_settings(inventory.server, words); });
  return changed("server");
}

std::string set_environment(Machine &machine, Words words) {
  machine.change([&](Inventory &inventory) { apply_settings(inventory.environment, words); });
  return changed("environment");
}

constexpr auto commands = std::to_array<Command>({
    {"processor", "remove", "N", exactly(1), "remove a processor and raise a fault", remove_processor},
    {"processor", "insert", "N", exactly(1), "put it back and clear the fault", insert_processor},
    {"processor", "disable", "N", exactly(1), "set its status to Disabled and raise a fault", disable_processor},
    {"processor", "enable", "N", exactly(1), "set its status to Enabled and clear the fault", enable_processor},
    {"processor", "set", "N FIELD=VALUE ...", at_least(2), "change its fields and raise no fault", set_processor},
    {"dimm", "remove", "NAME", exactly(1), "remove a memory module and raise a fault", remove_dimm},
    {"dimm", "insert", "NAME", exactly(1), "put it back and clear the fault", insert_dimm},
    {"dimm", "fail", "NAME", exactly(1), "set its status to Inoperable and raise a fault", fail_dimm},
    {"dimm", "repair", "NAME", exactly(1), "set its status to Operable and clear the fault", repair_dimm},
    {"dimm", "set", "NAME FIELD=VALUE ...", at_least(2), "change its fields and raise no fault", set_dimm},
    {"fan", "remove", "SENSOR", exactly(1), "remove the fan with this sensor and raise a fault", remove_fan},
    {"fan", "insert", "SENSOR", exactly(1), "put it back and clear the fault", insert_fan},
    {"fan", "fail", "SENSOR", exactly(1), "raise a fault of this fan", fail_fan},
    {"fan", "repair", "SENSOR", exactly(1), "clear that fault", repair_fan},
    {"sensor", "set", "NUMBER FIELD=VALUE ...", at_least(2), "change an IPMI sensor's fields and raise no fault",
     set_sensor},
    {"supply", "remove", "N", exactly(1), "remove a power supply and raise a fault", remove_supply},
    {"supply", "insert", "N", exactly(1), "put it back and clear the fault", insert_supply},
    {"supply", "fail", "N", exactly(1), "set bits in its status word and raise a fault", fail_supply},
    {"supply", "repair", "N", exactly(1), "set its status word to 0 and clear the fault", repair_supply},
    {"supply", "set", "N FIELD=VALUE ...", at_least(2), "change its fields and raise no fault", set_supply},
    {"adapter", "remove", "SLOT", exactly(1), "remove an adapter card and raise a fault", remove_adapter},
    {"adapter", "insert", "SLOT", exactly(1), "put it back and clear the fault", insert_adapter},
    {"adapter", "set", "SLOT FIELD=VALUE ...", at_least(2), "change its fields and raise no fault", set_adapter},
    {"led", "set", "NAME FIELD=VALUE ...", at_least(2), "change an LED's state=ON|OFF|... or color=GREEN|...", set_led},
    {"power", "", "on|off|NUMBER", exactly(1), "change the server's power state", power},
    {"server", "set", "FIELD=VALUE ...", at_least(1), "change the server's own fields", set_server},
    {"environment", "set", "FIELD=VALUE ...", at_least(1), "change readings; drift=SECONDS keeps them changing",
     set_environment},
});

}  // namespace

std::span<const Command> inventory_commands() {
  return commands;
}

}  // namespace tavo::sim
