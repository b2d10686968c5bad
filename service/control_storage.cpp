#include <array>
#include <limits>

#include "platform/storage_client.h"
#include "service/control.h"

namespace tavo::service {
namespace {

constexpr std::int64_t word_most = std::numeric_limits<std::uint32_t>::max();

// RAID controllers, by id, with their drives, volumes and batteries.

RaidController &find_controller(Inventory &inventory, const std::string &id) {
  std::vector<std::string> known;
  for (RaidController &controller : inventory.controllers) {
    known.push_back(std::to_string(controller.part.number("id")));
    if (known.back() == id) {
      return controller;
    }
  }
  throw BadInput("there is no controller '" + id + "'; there are " + joined({known.begin(), known.end()}));
}

// The fields of the controllers are changed in a copy of the list, beside those of the others.
void change_controller_part(Inventory &inventory, const std::string &id, Settings settings) {
  RaidController &controller = find_controller(inventory, id);
  std::vector<Part> parts = parts_of(inventory.controllers);
  controller.part = change_found_part(parts, "id", id, settings);
}

std::string announce_storage(Machine &machine, const std::string &what) {
  machine.send_storage_event(STORAGE_EVENT_CONFIGURATION_CHANGED);
  return what + "; storage event " + std::to_string(STORAGE_EVENT_CONFIGURATION_CHANGED) + " sent\n";
}

// Changes a controller and announces `what`, by which time the snapshot is written.
template <class Change>
std::string change_controller(Machine &machine, const std::string &id, const std::string &what, Change change) {
  machine.change([&](Inventory &inventory) { change(find_controller(inventory, id)); });
  return announce_storage(machine, what);
}

std::string set_controller(Machine &machine, Words words) {
  machine.change([&](Inventory &inventory) { change_controller_part(inventory, words[0], words.subspan(1)); });
  return announce_storage(machine, "controller " + words[0] + " changed");
}

std::string add_controller(Machine &machine, Words words) {
  machine.change([&](Inventory &inventory) {
    RaidController controller;
    controller.part.set("id", words[0]);
    apply_settings(controller.part, words.subspan(1));
    check_identity(controller.part, parts_of(inventory.controllers));
    inventory.controllers.push_back(std::move(controller));
  });
  return announce_storage(machine, "controller " + words[0] + " added");
}

std::string remove_controller(Machine &machine, Words words) {
  machine.change([&](Inventory &inventory) {
    const std::int64_t id = find_controller(inventory, words[0]).part.number("id");
    std::erase_if(inventory.controllers, [&](const RaidController &c) { return c.part.number("id") == id; });
  });
  return announce_storage(machine, "controller " + words[0] + " removed");
}

std::string change_drive(Machine &machine, Words words, const std::string &what, Settings settings) {
  return change_controller(
      machine, words[0], "drive " + words[1] + " of controller " + words[0] + what,
      [&](RaidController &controller) { change_found_part(controller.drives, "slot", words[1], settings); });
}

std::string pull_drive(Machine &machine, Words words) {
  return change_drive(machine, words, " pulled", OwnSettings{"present=no"});
}

std::string insert_drive(Machine &machine, Words words) {
  return change_drive(machine, words, " inserted", OwnSettings{"present=yes"});
}

std::string set_drive(Machine &machine, Words words) {
  return change_drive(machine, words, " changed", words.subspan(2));
}

std::string change_volume(Machine &machine, Words words, const std::string &what, Settings settings) {
  return change_controller(machine, words[0], "volume " + words[1] + " of controller " + words[0] + what,
                           [&](RaidController &controller) {
                             const auto last = static_cast<std::int64_t>(controller.volumes.size()) - 1;
                             const auto number = parse_number(words[1], "volume", 0, last);
                             apply_settings(controller.volumes[static_cast<std::size_t>(number)], settings);
                           });
}

std::string degrade_volume(Machine &machine, Words words) {
  return change_volume(machine, words, " degraded", OwnSettings{"state=degraded"});
}

std::string rebuild_volume(Machine &machine, Words words) {
  return change_volume(machine, words, " rebuilt", OwnSettings{"state=optimal"});
}

std::string set_volume(Machine &machine, Words words) {
  return change_volume(machine, words, " changed", words.subspan(2));
}

// A battery's fields are its controller's.
std::string change_battery(Machine &machine, Words words, const std::string &what, Settings settings) {
  return change_controller(machine, words[0], "battery of controller " + words[0] + what,
                           [&](RaidController &controller) { apply_settings(controller.part, settings); });
}

std::string fail_battery(Machine &machine, Words words) {
  return change_battery(machine, words, " failed", OwnSettings{"battery-state=failed"});
}

std::string repair_battery(Machine &machine, Words words) {
  return change_battery(machine, words, " repaired", OwnSettings{"battery-state=operable"});
}

std::string remove_battery(Machine &machine, Words words) {
  return change_battery(machine, words, " removed", OwnSettings{"battery-present=no"});
}

std::string insert_battery(Machine &machine, Words words) {
  return change_battery(machine, words, " inserted", OwnSettings{"battery-present=yes"});
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

// The storage snapshot.

std::string damage_snapshot(Machine &machine, const SnapshotDamage &damage, const std::string &what) {
  machine.damage_snapshot(damage);
  return "the storage snapshot " + what + '\n';
}

std::string remove_snapshot(Machine &machine, Words) {
  return damage_snapshot(machine, {.kind = SnapshotDamage::Kind::Missing}, "is missing");
}

std::string empty_snapshot(Machine &machine, Words) {
  return damage_snapshot(machine, {.kind = SnapshotDamage::Kind::Empty}, "is empty");
}

std::string truncate_snapshot(Machine &machine, Words words) {
  const auto octets = parse_number(words[0], "octets", 0, word_most);
  return damage_snapshot(machine, {.kind = SnapshotDamage::Kind::Truncated, .number = octets},
                         "is cut to " + words[0] + " octets");
}

std::string miscount_snapshot(Machine &machine, Words words) {
  using Count = std::numeric_limits<std::int32_t>;
  const auto count = parse_number(words[0], "count", Count::min(), Count::max());
  return damage_snapshot(machine, {.kind = SnapshotDamage::Kind::WrongCount, .number = count},
                         "claims to hold " + words[0] + " controllers");
}

std::string repair_snapshot(Machine &machine, Words) {
  return damage_snapshot(machine, {.kind = SnapshotDamage::Kind::None}, "is intact");
}

// SD cards, by slot, their partitions, by number, and their controller.

// Does what the SD-card service does after a change.
std::string announce_sd(Machine &machine, const std::string &what) {
  const bool heard = machine.announce_sd_change(what);
  return what + (heard ? "; announced at " : "; nobody listens at ") + machine.sd_socket() + '\n';
}

std::string change_card(Machine &machine, Words words, const std::string &what, Settings settings) {
  machine.change([&](Inventory &inventory) { change_found_part(inventory.sd.cards, "slot", words[0], settings); });
  return announce_sd(machine, "SD card " + words[0] + what);
}

std::string pull_card(Machine &machine, Words words) {
  return change_card(machine, words, " pulled", OwnSettings{"present=no"});
}

std::string insert_card(Machine &machine, Words words) {
  return change_card(machine, words, " inserted", OwnSettings{"present=yes"});
}

std::string set_card(Machine &machine, Words words) {
  return change_card(machine, words, " changed", words.subspan(1));
}

std::string set_partition(Machine &machine, Words words) {
  machine.change(
      [&](Inventory &inventory) { change_found_part(inventory.sd.partitions, "number", words[0], words.subspan(1)); });
  return announce_sd(machine, "SD partition " + words[0] + " changed");
}

std::string set_sd_controller(Machine &machine, Words words) {
  machine.change([&](Inventory &inventory) { apply_settings(inventory.sd.controller, words); });
  return announce_sd(machine, "SD controller changed");
}

std::string set_sd_mode(Machine &machine, Words words) {
  machine.change([&](Inventory &inventory) { inventory.sd.controller.set("mode", words[0]); });
  return announce_sd(machine, "SD mode " + words[0]);
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

constexpr auto commands = std::to_array<Command>({
    {"controller", "add", "ID [FIELD=VALUE ...]", at_least(1), "add a RAID controller without drives", add_controller,
     &controller_kind},
    {"controller", "remove", "ID", exactly(1), "remove a RAID controller", remove_controller},
    {"controller", "set", "ID FIELD=VALUE ...", at_least(2), "change its fields", set_controller, &controller_kind},
    {"drive", "pull", "ID SLOT", exactly(2), "pull a drive of controller ID", pull_drive},
    {"drive", "insert", "ID SLOT", exactly(2), "put it back", insert_drive},
    {"drive", "set", "ID SLOT FIELD=VALUE ...", at_least(3), "change its fields", set_drive, &drive_kind},
    {"volume", "degrade", "ID N", exactly(2), "degrade volume N (from 0) of controller ID", degrade_volume},
    {"volume", "rebuild", "ID N", exactly(2), "make it optimal again", rebuild_volume},
    {"volume", "set", "ID N FIELD=VALUE ...", at_least(3), "change its fields", set_volume, &volume_kind},
    {"battery", "fail", "ID", exactly(1), "make the battery of controller ID fail", fail_battery},
    {"battery", "repair", "ID", exactly(1), "make it operable again", repair_battery},
    {"battery", "remove", "ID", exactly(1), "remove it", remove_battery},
    {"battery", "insert", "ID", exactly(1), "put it back", insert_battery},
    {"storage-event", "", "TYPE [COUNT]", from_to(1, 2), "send storage events; 7 is a configuration change",
     send_events, nullptr, Servers::Any},
    {"snapshot", "missing", "", exactly(0), "remove the storage snapshot", remove_snapshot},
    {"snapshot", "empty", "", exactly(0), "leave it without contents", empty_snapshot},
    {"snapshot", "truncate", "OCTETS", exactly(1), "cut it off", truncate_snapshot},
    {"snapshot", "count", "N", exactly(1), "write a wrong number of controllers into it", miscount_snapshot},
    {"snapshot", "ok", "", exactly(0), "repair it", repair_snapshot},
    {"sd-card", "pull", "SLOT", exactly(1), "pull an SD card", pull_card},
    {"sd-card", "insert", "SLOT", exactly(1), "put it back", insert_card},
    {"sd-card", "set", "SLOT FIELD=VALUE ...", at_least(2), "change its fields", set_card, &sd_card_kind},
    {"sd-partition", "set", "N FIELD=VALUE ...", at_least(2), "change a partition's fields", set_partition,
     &sd_partition_kind},
    {"sd-controller", "set", "FIELD=VALUE ...", at_least(1), "change the SD-card controller's fields",
     set_sd_controller, &sd_controller_kind},
    {"sd-mode", "", "N", exactly(1), "change the SD-card controller's mode", set_sd_mode},
    {"sd-trigger", "", "[TIMES] [TEXT]", from_to(0, 2), "connect to the SD-card socket, and send TEXT if given",
     trigger_sd, nullptr, Servers::Any},
});

}  // namespace

std::span<const Command> storage_commands() {
  return commands;
}

}  // namespace tavo::service
