#include <array>

#include "core/class_number.h"
#include "service/affected.h"
#include "service/causes.h"
#include "service/control.h"

namespace tavo::service {
namespace {

// A piece of hardware, after a change, and its faults.
struct Unit {
  std::string name;  // in messages
  std::int64_t class_code;
  std::int64_t number;   // the unit that its faults carry
  std::int64_t ordinal;  // what the index of its fault ends in; units of a class differ in it
  AffectedObject affected;
  bool failed = false;  // what is put back may be as broken as it was
};

// The index of the fault that the simulator itself raises for a unit. It follows from the class and the ordinal, so
// that a later command can clear the fault.
std::uint32_t index_of_fault(const Unit &unit) {
  return static_cast<std::uint32_t>(unit.class_code * 1000 + unit.ordinal);
}

std::string raise_fault(Machine &machine, const Unit &unit, const std::string &severity, int cause,
                        const std::string &description) {
  const OwnSettings settings{
      "class=" + std::to_string(unit.class_code), "unit=" + std::to_string(unit.number), "severity=" + severity,
      "cause=" + std::to_string(cause),           "description=" + description,          "affected=" + unit.affected.dn,
      "affected-oid=" + unit.affected.oid};
  const std::uint32_t index = index_of_fault(unit);
  machine.raise_fault(index, settings);
  return ", fault " + std::to_string(index) + " raised\n";
}

std::string raise_failure(Machine &machine, const Unit &unit) {
  return raise_fault(machine, unit, "major", cause::failed, unit.name + " has failed");
}

std::string removed(Machine &machine, const Unit &unit) {
  return unit.name + " removed" + raise_fault(machine, unit, "warning", cause::missing, unit.name + " is missing");
}

std::string failed(Machine &machine, const Unit &unit) {
  return unit.name + " failed" + raise_failure(machine, unit);
}

std::string restored(Machine &machine, const Unit &unit) {
  if (unit.failed) {
    return unit.name + " restored as it was" + raise_failure(machine, unit);
  }
  const std::uint32_t index = index_of_fault(unit);
  const bool cleared = machine.faults().clear(index, unit.class_code);
  return unit.name + " restored" + (cleared ? ", fault " + std::to_string(index) + " cleared" : "") + '\n';
}

std::string changed(const std::string &name) {
  return name + " changed\n";
}

// What a command needs of the part: what is not there can neither fail nor be repaired.
enum class Needs { Nothing, Presence };

void check(Needs needs, const Part &part, const std::string &name) {
  if (needs == Needs::Presence && !part.flag("present")) {
    throw BadInput(name + " is removed; insert it first");
  }
}

// The position of a part that goes by its number, which counts from 1.
std::size_t position_of(const std::vector<Part> &parts, const std::string &number) {
  if (parts.empty()) {
    throw BadInput("the server has none");
  }
  return static_cast<std::size_t>(parse_number(number, "number", 1, static_cast<std::int64_t>(parts.size()))) - 1;
}

// Processors, by number.

Unit change_processor(Machine &machine, const std::string &number, Settings settings, Needs needs = Needs::Nothing) {
  return machine.change([&](Inventory &inventory) -> Unit {
    const std::size_t position = position_of(inventory.processors, number);
    const auto ordinal = static_cast<std::int64_t>(position) + 1;
    const std::string name = "processor " + std::to_string(ordinal);
    Part &processor = inventory.processors[position];
    check(needs, processor, name);
    change_part(inventory.processors, processor, settings);
    return {.name = name,
            .class_code = class_number::processor,
            .number = ordinal,
            .ordinal = ordinal,
            .affected = affected_processor(inventory, position),
            .failed = processor.text("status") != "Enabled"};
  });
}

std::string remove_processor(Machine &machine, Words words) {
  return removed(machine, change_processor(machine, words[0], OwnSettings{"present=no"}));
}

std::string insert_processor(Machine &machine, Words words) {
  return restored(machine, change_processor(machine, words[0], OwnSettings{"present=yes"}));
}

std::string disable_processor(Machine &machine, Words words) {
  return failed(machine, change_processor(machine, words[0], OwnSettings{"status=Disabled"}, Needs::Presence));
}

std::string enable_processor(Machine &machine, Words words) {
  return restored(machine, change_processor(machine, words[0], OwnSettings{"status=Enabled"}, Needs::Presence));
}

std::string set_processor(Machine &machine, Words words) {
  return changed(change_processor(machine, words[0], words.subspan(1)).name);
}

// Memory modules, by name.

Unit change_dimm(Machine &machine, const std::string &name, Settings settings, Needs needs = Needs::Nothing) {
  return machine.change([&](Inventory &inventory) -> Unit {
    Part &dimm = find_part(inventory.dimms, "name", name);
    check(needs, dimm, name);
    change_part(inventory.dimms, dimm, settings);
    const std::int64_t position = &dimm - inventory.dimms.data();
    return {.name = dimm.text("name"),
            .class_code = class_number::memory,
            .number = dimm_number(inventory.dimms, static_cast<std::size_t>(position)),
            .ordinal = position + 1,
            .affected = affected_dimm(inventory, static_cast<std::size_t>(position)),
            .failed = dimm.text("status") != "Operable"};
  });
}

std::string remove_dimm(Machine &machine, Words words) {
  return removed(machine, change_dimm(machine, words[0], OwnSettings{"present=no"}));
}

std::string insert_dimm(Machine &machine, Words words) {
  return restored(machine, change_dimm(machine, words[0], OwnSettings{"present=yes"}));
}

std::string fail_dimm(Machine &machine, Words words) {
  return failed(machine, change_dimm(machine, words[0], OwnSettings{"status=Inoperable"}, Needs::Presence));
}

std::string repair_dimm(Machine &machine, Words words) {
  return restored(machine, change_dimm(machine, words[0], OwnSettings{"status=Operable"}, Needs::Presence));
}

std::string set_dimm(Machine &machine, Words words) {
  return changed(change_dimm(machine, words[0], words.subspan(1)).name);
}

// Fans, by the name of a sensor.

// The sensor of a fan. Other sensors have no rows, and their faults would be somebody else's.
const Part &find_fan(const Inventory &inventory, const std::string &name) {
  std::vector<std::string_view> known;
  for (const Part &sensor : inventory.sensors) {
    if (is_fan(sensor)) {
      if (sensor.text("name") == name) {
        return sensor;
      }
      known.push_back(sensor.text("name"));
    }
  }
  throw BadInput("there is no fan '" + name + "'; there are " + joined(known));
}

// A fan of a power supply is known by the supply's class. Its index stays clear of the supply's own.
Unit fan_unit(const Inventory &inventory, const Part &sensor) {
  constexpr std::int64_t above_supplies = 100;
  const bool in_supply = is_in_supply(sensor);
  return {.name = sensor.text("name"),
          .class_code = in_supply ? class_number::power_supply_fan : class_number::system_fan,
          .number = fan_number(sensor),
          .ordinal = (in_supply ? above_supplies : 0) + sensor.number("number"),
          .affected = affected_fan(inventory, sensor)};
}

// All the sensors of a fan tell whether it is there.
Unit set_fan_presence(Machine &machine, const std::string &name, std::string_view presence) {
  return machine.change([&](Inventory &inventory) -> Unit {
    const Part &fan = find_fan(inventory, name);
    if (is_in_supply(fan)) {
      throw BadInput(name + " comes and goes with power supply " + std::to_string(fan.number("instance")));
    }
    for (Part &sensor : inventory.sensors) {
      if (sensor.number("entity") == fan.number("entity") && sensor.number("instance") == fan.number("instance")) {
        sensor.set("presence", presence);
      }
    }
    return fan_unit(inventory, fan);
  });
}

// A fan that is there.
Unit present_fan(Machine &machine, const std::string &name) {
  return machine.read([&](const Inventory &inventory) -> Unit {
    const Part &fan = find_fan(inventory, name);
    if (fan.written(*find_field(sensor_kind, "presence")) == "absent") {
      throw BadInput(name + " is removed; insert it first");
    }
    return fan_unit(inventory, fan);
  });
}

std::string remove_fan(Machine &machine, Words words) {
  return removed(machine, set_fan_presence(machine, words[0], "absent"));
}

std::string insert_fan(Machine &machine, Words words) {
  return restored(machine, set_fan_presence(machine, words[0], "present"));
}

std::string fail_fan(Machine &machine, Words words) {
  return failed(machine, present_fan(machine, words[0]));
}

std::string repair_fan(Machine &machine, Words words) {
  return restored(machine, present_fan(machine, words[0]));
}

std::string set_sensor(Machine &machine, Words words) {
  machine.change(
      [&](Inventory &inventory) { change_found_part(inventory.sensors, "number", words[0], words.subspan(1)); });
  return changed("sensor " + words[0]);
}

// Power supplies, by number.

// A supply's own sensors tell whether it is there, too.
Unit change_supply(Machine &machine, const std::string &number, Settings settings, Needs needs = Needs::Nothing) {
  return machine.change([&](Inventory &inventory) -> Unit {
    const std::size_t position = position_of(inventory.supplies, number);
    const auto ordinal = static_cast<std::int64_t>(position) + 1;
    const std::string name = "supply " + std::to_string(ordinal);
    Part &supply = inventory.supplies[position];
    check(needs, supply, name);
    change_part(inventory.supplies, supply, settings);
    for (Part &sensor : inventory.sensors) {
      if (is_in_supply(sensor) && sensor.number("instance") == ordinal) {
        sensor.set("presence", supply.flag("present") ? "present" : "absent");
      }
    }
    return {.name = name,
            .class_code = class_number::power_supply_fan,
            .number = ordinal,
            .ordinal = ordinal,
            .affected = affected_supply(position),
            .failed = supply.number("status") != 0};
  });
}

std::string remove_supply(Machine &machine, Words words) {
  return removed(machine, change_supply(machine, words[0], OwnSettings{"present=no"}));
}

std::string insert_supply(Machine &machine, Words words) {
  return restored(machine, change_supply(machine, words[0], OwnSettings{"present=yes"}));
}

std::string fail_supply(Machine &machine, Words words) {
  constexpr const char *off_and_power_not_good = "status=0x0840";  // two bits of the PMBus status word
  return failed(machine, change_supply(machine, words[0], OwnSettings{off_and_power_not_good}, Needs::Presence));
}

std::string repair_supply(Machine &machine, Words words) {
  return restored(machine, change_supply(machine, words[0], OwnSettings{"status=0"}, Needs::Presence));
}

std::string set_supply(Machine &machine, Words words) {
  return changed(change_supply(machine, words[0], words.subspan(1)).name);
}

// Adapter cards, by slot.

Unit change_adapter(Machine &machine, const std::string &slot, Settings settings) {
  return machine.change([&](Inventory &inventory) -> Unit {
    const Part &adapter = change_found_part(inventory.adapters, "slot", slot, settings);
    const std::int64_t number = adapter.number("slot");
    return {.name = "adapter " + std::to_string(number),
            .class_code = class_number::adaptor,
            .number = number,
            .ordinal = number,
            .affected = affected_adapter(adapter)};
  });
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
    {"processor", "set", "N FIELD=VALUE ...", at_least(2), "change its fields and raise no fault", set_processor,
     &processor_kind},
    {"dimm", "remove", "NAME", exactly(1), "remove a memory module and raise a fault", remove_dimm},
    {"dimm", "insert", "NAME", exactly(1), "put it back and clear the fault", insert_dimm},
    {"dimm", "fail", "NAME", exactly(1), "set its status to Inoperable and raise a fault", fail_dimm},
    {"dimm", "repair", "NAME", exactly(1), "set its status to Operable and clear the fault", repair_dimm},
    {"dimm", "set", "NAME FIELD=VALUE ...", at_least(2), "change its fields and raise no fault", set_dimm, &dimm_kind},
    {"fan", "remove", "SENSOR", exactly(1), "remove the fan with this sensor and raise a fault", remove_fan},
    {"fan", "insert", "SENSOR", exactly(1), "put it back and clear the fault", insert_fan},
    {"fan", "fail", "SENSOR", exactly(1), "raise a fault of this fan", fail_fan},
    {"fan", "repair", "SENSOR", exactly(1), "clear that fault", repair_fan},
    {"sensor", "set", "NUMBER FIELD=VALUE ...", at_least(2), "change an IPMI sensor's fields and raise no fault",
     set_sensor, &sensor_kind},
    {"supply", "remove", "N", exactly(1), "remove a power supply and raise a fault", remove_supply},
    {"supply", "insert", "N", exactly(1), "put it back and clear the fault", insert_supply},
    {"supply", "fail", "N", exactly(1), "set bits in its status word and raise a fault", fail_supply},
    {"supply", "repair", "N", exactly(1), "set its status word to 0 and clear the fault", repair_supply},
    {"supply", "set", "N FIELD=VALUE ...", at_least(2), "change its fields and raise no fault", set_supply,
     &supply_kind},
    {"adapter", "remove", "SLOT", exactly(1), "remove an adapter card and raise a fault", remove_adapter},
    {"adapter", "insert", "SLOT", exactly(1), "put it back and clear the fault", insert_adapter},
    {"adapter", "set", "SLOT FIELD=VALUE ...", at_least(2), "change its fields and raise no fault", set_adapter,
     &adapter_kind},
    {"led", "set", "NAME FIELD=VALUE ...", at_least(2), "change an LED's state=ON|OFF|... or color=GREEN|...", set_led,
     &led_kind},
    {"power", "", "on|off|NUMBER", exactly(1), "change the server's power state", power},
    {"server", "set", "FIELD=VALUE ...", at_least(1), "change the server's own fields", set_server, &server_kind},
    {"environment", "set", "FIELD=VALUE ...", at_least(1), "change readings; drift=SECONDS keeps them changing",
     set_environment, &environment_kind},
});

}  // namespace

std::span<const Command> inventory_commands() {
  return commands;
}

}  // namespace tavo::service
