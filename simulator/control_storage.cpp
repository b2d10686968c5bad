#include <array>
#include <limits>

#include "platform/storage_client.h"
#include "simulator/control.h"

namespace tavo::sim {
namespace {

constexpr std::int64_t word_most = std::numeric_limits<std::uint32_t>::max();

RaidController &find_controller(Inventory &inventory, const std::string &id) {
  std::vector<std::string> known;
  for (RaidController &controller : inventory.controllers) {
    known.push_back(std::to_string(controller.part.number("id")));
    if (known.back() == id) {
      return controller;
    }
  }
  throw BadInput("there is no controller '" + id + "'; there are " + listed({known.begin(), known.end()}));
}

// Changes a controller; then the snapshot stands anew and the storage clients are told.
template <class Change>
std::string change_controller(Machine &machine, const std::string &id, const std::string &what, Change change) {
  machine.change([&](Inventory &inventory) { change(find_controller(inventory, id)); });
  machine.send_storage_event(STORAGE_EVENT_CONFIGURATION_CHANGED);
  return what + "; storage event 7 sent\n";
}

std::string change_drive(Machine &machine, Words words, const std::string &what, Words settings) {
  return change_controller(
      machine, words[0], "drive " + words[1] + " of controller " + words[0] + what,
      [&](RaidController &controller) { apply_settings(find_part(controller.drives, "slot", words[1]), settings); });
}

std::string pull_drive(Machine &machine, Words words) {
  return change_drive(machine, words, " pulled", std::array<std::string, 1>{"present=no"});
}

std::string insert_drive(Machine &machine, Words words) {
  return change_drive(machine, words, " inserted", std::array<std::string, 1>{"present=yes"});
}

std::string set_drive(Machine &machine, Words words) {
  return change_drive(machine, words, " changed", words.subspan(2));
}

std::string change_volume(Machine &machine, Words words, const std::string &what, Words settings) {
  return change_controller(machine, words[0], "volume " + words[1] + " of controller " + words[0] + what,
                           [&](RaidController &controller) {
                             const auto last = static_cast<std::int64_t>(controller.volumes.size()) - 1;
                             const auto number = parse_number(words[1], "volume", 0, last);
                             apply_settings(controller.volumes[static_cast<std::size_t>(number)], settings);
                           });
}

std::string degrade_volume(Machine &machine, Words words) {
  return change_volume(machine, words, " degraded", std::array<std::string, 1>{"state=degraded"});
}

std::string rebuild_volume(Machine &machine, Words words) {
  return change_volume(machine, words, " rebuilt", std::array<std::string, 1>{"state=optimal"});
}

std::string set_volume(Machine &machine, Words words) {
  return change_volume(machine, words, " changed", words.subspan(2));
}

std::string change_battery(Machine &machine, Words words, const std::string &what, std::string setting) {
  return change_controller(
      machine, words[0], "battery of controller " + words[0] + what,
      [&](RaidController &controller) { apply_settings(controller.part, std::array{std::move(setting)}); });
}

std::string fail_battery(Machine &machine, Words words) {
  return change_battery(machine, words, " failed", "battery-state=failed");
}

std::string repair_battery(Machine &machine, Words words) {
  return change_battery(machine, words, " repaired", "battery-state=operable");
}

std::string remove_battery(Machine &machine, Words words) {
  return change_battery(machine, words, " removed", "battery-present=no");
}

std::string insert_battery(Machine &machine, Words words) {
  return change_battery(machine, words, " inserted", "battery-present=yes");
}

std::string set_controller(Machine &machine, Words words) {
  return change_controller(machine, words[0], "controller " + words[0] + " changed",
                           [&](RaidController &controller) { apply_settings(controller.part, words.subspan(1)); });
}

std::string add_controller(Machine &machine, Words words) {
  machine.change([&](Inventory &inventory) {
    RaidController controller;
    controller.part.set("id", words[0]);
    apply_settings(controller.part, words.subspan(1));
    for (const RaidController &other : inventory.controllers) {
      if (other.part.number("id") == controller.part.number("id")) {
        throw BadInput("there is already a controller '" + words[0] + "'");
      }
    }
    inventory.controllers.push_back(std::move(controller));
  });
  machine.send_storage_event(STORAGE_EVENT_CONFIGURATION_CHANGED);
  return "controller " + words[0] + " added; storage event 7 sent\n";
}

std::string remove_controller(Machine &machine, Words words) {
  machine.change([&](Inventory &inventory) {
    const std::int64_t id = find_controller(inventory, words[0]).part.number("id");
    std::erase_if(inventory.controllers, [&](const RaidController &c) { return c.part.number("id") == id; });
  });
  machine.send_storage_event(STORAGE_EVENT_CONFIGURATION_CHANGED);
  return "controller " + words[0] + " removed; storage event 7 sent\n";
}

std::string send_events(Machine &machine, Words words) {
  const auto type = static_cast<std::uint32_t>(parse_number(words[0], "event type", 0, word_most));
  const auto count = words.size() > 1 ? parse_number(words[1], "number of events", 1, 1'000'000) : 1;
  for (std::int64_t i = 0; i < count && !machine.stopping(); ++i) {
    machine.storage_events().wait_for_room();
    machine.send_storage_event(type);
  }
  return std::to_string(count) + " storage events of type " + words[0] + " sent to " +
         std::to_string(machine.storage_events().followers()) + " listeners\n";
}

std::string damage_snapshot(Machine &machine, SnapshotDamage::Kind kind, std::int64_t number, const std::string &what) {
  machine.damage_snapshot({.kind = kind, .number = number});
  return "the storage snapshot is " + what + '\n';
}

std::string lose_snapshot(Machine &machine, Words) {
  return damage_snapshot(machine, SnapshotDamage::Kind::Missing, 0, "missing");
}

std::string empty_snapshot(Machine &machine, Words) {
  return damage_snapshot(machine, SnapshotDamage::Kind::Empty, 0, "empty");
}

std::string truncate_snapshot(Machine &machine, Words words) {
  return damage_snapshot(machine, SnapshotDamage::Kind::Truncated, parse_number(words[0], "octets", 0, word_most),
                         "cut to " + words[0] + " octets");
}

std::string miscount_snapshot(Machine &machine, Words words) {
  constexpr std::int64_t least = std::numeric_limits<std::int32_t>::min();
  constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max();
  return damage_snapshot(machine, SnapshotDamage::Kind::WrongCount, parse_number(words[0], "count", least, most),
                         "said to hold " + words[0] + " controllers");
}

std::string repair_snapshot(Machine &machine, Words) {
  return damage_snapshot(machine, SnapshotDamage::Kind::None, 0, "whole");
}

// What the SD-card service does after a change.
std::string announce(Machine &machine, const std::string &what) {
  const bool heard = machine.announce_sd_change(what);
  return what + (heard ? "; announced at " : "; nobody listens at ") + machine.sd_socket() + '\n';
}

std::string change_card(Machine &machine, Words words, const std::string &what, Words settings) {
  machine.change(
      [&](Inventory &inventory) { apply_settings(find_part(inventory.sd.cards, "slot", words[0]), settings); });
  return announce(machine, "SD card " + words[0] + what);
}

std::string pull_card(Machine &machine, Words words) {
  return change_card(machine, words, " pulled", std::array<std::string, 1>{"present=no"});
}

std::string insert_card(Machine &machine, Words words) {
  return change_card(machine, words, " inserted", std::array<std::string, 1>{"present=yes"});
}

std::string set_card(Machine &machine, Words words) {
  return change_card(machine, words, " changed", words.subspan(1));
}

std::string set_partition(Machine &machine, Words words) {
  machine.change([&](Inventory &inventory) {
    apply_settings(find_part(inventory.sd.partitions, "number", words[0]), words.subspan(1));
  });
  return announce(machine, "SD partition " + words[0] + " changed");
}

std::string set_sd_controller(Machine &machine, Words words) {
  machine.change([&](Inventory &inventory) { apply_settings(inventory.sd.controller, words); });
  return announce(machine, "SD controller changed");
}

std::string set_sd_mode(Machine &machine, Words words) {
  machine.change([&](Inventory &inventory) { inventory.sd.controller.set("mode", words[0]); });
  return announce(machine, "SD mode " + words[0]);
}

std::string trigger_sd(Machine &machine, Words words) {
  const auto times = words.empty() ? 1 : parse_number(words[0], "number of connections", 1, 1'000'000);
  const std::string text = words.size() > 1 ? words[1] : "";
  std::int64_t heard = 0;
  for (std::int64_t i = 0; i < times && !machine.stopping(); ++i) {
    heard += machine.announce_sd_change(text) ? 1 : 0;
  }
  return std::to_string(heard) + " of " + std::to_string(times) + " connections to " + machine.sd_socket() + " made\n";
}

using Run = std::string (*)(Machine &, Words);

constexpr Command fixed(std::string_view object, std::string_view verb, std::string_view arguments, std::size_t count,
                        std::string_view help, Run run) {
  return {
      .object = object, .verb = verb, .arguments = arguments, .least = count, .most = count, .help = help, .run = run};
}

constexpr Command open(std::string_view object, std::string_view verb, std::string_view arguments, std::size_t least,
                       std::size_t most, std::string_view help, Run run) {
  return {
      .object = object, .verb = verb, .arguments = arguments, .least = least, .most = most, .help = help, .run = run};
}

constexpr auto commands = std::to_array<Command>({
    open("controller", "add", "ID [FIELD=VALUE ...]", 1, any_number, "fit a RAID controller without drives",
         add_controller),
    fixed("controller", "remove", "ID", 1, "take a RAID controller out", remove_controller),
    open("controller", "set", "ID FIELD=VALUE ...", 2, any_number, "change what it says of itself", set_controller),
    fixed("drive", "pull", "ID SLOT", 2, "pull a drive of controller ID", pull_drive),
    fixed("drive", "insert", "ID SLOT", 2, "put it back", insert_drive),
    open("drive", "set", "ID SLOT FIELD=VALUE ...", 3, any_number, "change what it says of itself", set_drive),
    fixed("volume", "degrade", "ID N", 2, "volume N (from 0) of controller ID loses a drive", degrade_volume),
    fixed("volume", "rebuild", "ID N", 2, "it is whole again", rebuild_volume),
    open("volume", "set", "ID N FIELD=VALUE ...", 3, any_number, "change what it says of itself", set_volume),
    fixed("battery", "fail", "ID", 1, "the battery of controller ID fails", fail_battery),
    fixed("battery", "repair", "ID", 1, "it is operable again", repair_battery),
    fixed("battery", "remove", "ID", 1, "take it out", remove_battery),
    fixed("battery", "insert", "ID", 1, "put it back", insert_battery),
    open("storage-event", "", "TYPE [COUNT]", 1, 2, "send storage events; 7 is a configuration change", send_events),
    fixed("snapshot", "missing", "", 0, "remove /var/stor_info_data", lose_snapshot),
    fixed("snapshot", "empty", "", 0, "leave nothing in it", empty_snapshot),
    fixed("snapshot", "truncate", "OCTETS", 1, "cut it", truncate_snapshot),
    fixed("snapshot", "count", "N", 1, "write another number of controllers into it", miscount_snapshot),
    fixed("snapshot", "ok", "", 0, "write it whole again", repair_snapshot),
    fixed("sd-card", "pull", "SLOT", 1, "pull an SD card", pull_card),
    fixed("sd-card", "insert", "SLOT", 1, "put it back", insert_card),
    open("sd-card", "set", "SLOT FIELD=VALUE ...", 2, any_number, "change what it says of itself", set_card),
    open("sd-partition", "set", "N FIELD=VALUE ...", 2, any_number, "change a partition", set_partition),
    open("sd-controller", "set", "FIELD=VALUE ...", 1, any_number, "change the SD-card controller", set_sd_controller),
    fixed("sd-mode", "", "N", 1, "change the SD-card controller's mode", set_sd_mode),
    open("sd-trigger", "", "[TIMES] [TEXT]", 0, 2, "connect to the SD-card socket, with nothing or a text to say",
         trigger_sd),
});

}  // namespace

std::span<const Command> storage_commands() {
  return commands;
}

}  // namespace tavo::sim
