#include <algorithm>
#include <array>
#include <limits>
#include <nlohmann/json.hpp>

#include "service/control.h"

namespace tavo::service {
namespace {

std::string describe_all(const std::vector<Part> &parts) {
  std::string text;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    text += describe(parts[i], std::to_string(i + 1));
  }
  return text;
}

std::string describe_controllers(const Inventory &inventory) {
  std::string text;
  for (const RaidController &controller : inventory.controllers) {
    text += describe(controller.part, "");
    for (const Part &drive : controller.drives) {
      text += "  " + describe(drive, "");
    }
    for (std::size_t i = 0; i < controller.volumes.size(); ++i) {
      text += "  " + describe(controller.volumes[i], std::to_string(i));
    }
  }
  return text;
}

using nlohmann::ordered_json;

ordered_json list_json(const std::vector<Part> &parts) {
  auto list = ordered_json::array();
  for (const Part &part : parts) {
    list.push_back(to_json(part));
  }
  return list;
}

ordered_json controllers_json(const Inventory &inventory) {
  auto list = ordered_json::array();
  for (const RaidController &controller : inventory.controllers) {
    ordered_json fields = to_json(controller.part);
    fields["drives"] = list_json(controller.drives);
    fields["volumes"] = list_json(controller.volumes);
    list.push_back(std::move(fields));
  }
  return list;
}

struct Group {
  std::string_view name;
  std::string (*show)(const Inventory &);
  ordered_json (*json)(const Inventory &);
};

constexpr auto groups = std::to_array<Group>({
    {.name = "server",
     .show = [](const Inventory &i) { return describe(i.server, ""); },
     .json = [](const Inventory &i) { return to_json(i.server); }},
    {.name = "environment",
     .show = [](const Inventory &i) { return describe(i.environment, ""); },
     .json = [](const Inventory &i) { return to_json(i.environment); }},
    {.name = "processors",
     .show = [](const Inventory &i) { return describe_all(i.processors); },
     .json = [](const Inventory &i) { return list_json(i.processors); }},
    {.name = "dimms",
     .show = [](const Inventory &i) { return describe_all(i.dimms); },
     .json = [](const Inventory &i) { return list_json(i.dimms); }},
    {.name = "sensors",
     .show = [](const Inventory &i) { return describe_all(i.sensors); },
     .json = [](const Inventory &i) { return list_json(i.sensors); }},
    {.name = "supplies",
     .show = [](const Inventory &i) { return describe_all(i.supplies); },
     .json = [](const Inventory &i) { return list_json(i.supplies); }},
    {.name = "adapters",
     .show = [](const Inventory &i) { return describe_all(i.adapters); },
     .json = [](const Inventory &i) { return list_json(i.adapters); }},
    {.name = "leds",
     .show = [](const Inventory &i) { return describe_all(i.leds); },
     .json = [](const Inventory &i) { return list_json(i.leds); }},
    {.name = "raid-controllers", .show = describe_controllers, .json = controllers_json},
    {.name = "sd-cards",
     .show =
         [](const Inventory &i) {
           return describe(i.sd.controller, "") + describe_all(i.sd.cards) + describe_all(i.sd.partitions);
         },
     .json =
         [](const Inventory &i) {
           return ordered_json{{"controller", to_json(i.sd.controller)},
                               {"cards", list_json(i.sd.cards)},
                               {"partitions", list_json(i.sd.partitions)}};
         }},
});

std::string show_faults(Machine &machine) {
  return describe_faults(machine) + "broadcaster: " + std::to_string(machine.faults().broadcaster().followers()) +
         " listeners\nstorage events: " + std::to_string(machine.storage_events().followers()) + " listeners\n";
}

// The faults are no part of the inventory.
void check_group(const std::string &wanted) {
  std::vector<std::string_view> known(groups.size());
  std::ranges::transform(groups, known.begin(), &Group::name);
  known.push_back("faults");
  if (std::ranges::find(known, wanted) == known.end()) {
    throw BadInput("unknown word '" + wanted + "' after 'show'; expected one of " + joined(known));
  }
}

std::string show_text(Machine &machine, const std::string &wanted) {
  std::string text;
  for (const Group &group : groups) {
    if (wanted.empty() || wanted == group.name) {
      text += machine.read(group.show);
    }
  }
  return wanted.empty() || wanted == "faults" ? text + show_faults(machine) : text;
}

std::string show(Machine &machine, Words words) {
  const bool as_json = !words.empty() && words[0] == "--json";
  const Words rest = words.subspan(as_json ? 1 : 0);
  if (rest.size() > 1) {
    throw BadInput("unexpected word '" + rest[1] + "'; usage: show [--json] [WHAT]");
  }
  const std::string wanted = rest.empty() ? "" : rest[0];
  if (!wanted.empty()) {
    check_group(wanted);
  }
  if (!as_json) {
    return show_text(machine, wanted);
  }
  return scenario_of(machine.read([](const Inventory &inventory) { return inventory; }), machine.faults().active(),
                     wanted);
}

struct ModeName {
  std::string_view name;
  ToolMode::Kind kind;
  std::string_view argument = {};  // empty: the mode takes none
};

constexpr auto modes = std::to_array<ModeName>({
    {.name = "ok", .kind = ToolMode::Kind::Works},
    {.name = "missing", .kind = ToolMode::Kind::Missing},
    {.name = "slow", .kind = ToolMode::Kind::Slow, .argument = "SECONDS"},
    {.name = "silent", .kind = ToolMode::Kind::Silent},
    {.name = "garbled", .kind = ToolMode::Kind::Garbled},
    {.name = "prints", .kind = ToolMode::Kind::Prints, .argument = "FILE"},
    {.name = "hangs", .kind = ToolMode::Kind::Hangs},
    {.name = "floods", .kind = ToolMode::Kind::Floods},
    {.name = "forks", .kind = ToolMode::Kind::Forks},
    {.name = "killed", .kind = ToolMode::Kind::Killed},
});

std::string mode_names() {
  std::vector<std::string_view> names(modes.size());
  std::ranges::transform(modes, names.begin(), &ModeName::name);
  return joined(names);
}

std::string set_tool(Machine &machine, Words words) {
  if (std::ranges::find(tool_names, words[0]) == tool_names.end()) {
    throw BadInput("unknown tool '" + words[0] + "'; expected one of " +
                   joined({tool_names.begin(), tool_names.end()}));
  }
  const auto found = std::ranges::find(modes, words[1], &ModeName::name);
  if (found == modes.end()) {
    throw BadInput("unknown word '" + words[1] + "' after the tool; expected one of " + mode_names());
  }
  const std::size_t wanted = found->argument.empty() ? 0 : 1;
  if (words.size() - 2 != wanted) {
    throw BadInput("'" + words[1] + "' takes " + (wanted == 0 ? "no argument" : std::string(found->argument)));
  }
  ToolMode mode{.kind = found->kind, .seconds = 0, .file = ""};
  if (mode.kind == ToolMode::Kind::Slow) {
    mode.seconds = static_cast<unsigned>(parse_number(words[2], "seconds", 0, 86'400));
  } else if (mode.kind == ToolMode::Kind::Prints) {
    mode.file = words[2];
  }
  machine.set_tool(words[0], mode);
  return words[0] + ": " + words[1] + '\n';
}

std::string forget(Machine &machine, Words words) {
  constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max();
  machine.real()->forget(words[0], parse_number(words[1], "number", 0, most));
  return words[0] + ' ' + words[1] + " forgotten; its fault is cleared within a minute\n";
}

constexpr auto commands = std::to_array<Command>({
    {"ping", "", "", exactly(0), "succeed if the simulator serves",
     [](Machine &, Words) -> std::string { return "bmcsim serves\n"; }, nullptr, Servers::Any},
    {"show", "", "[--json] [WHAT]", from_to(0, 2), "show the whole server, or one group of its parts", show, nullptr,
     Servers::Any},
    {"tool", "", "NAME ok|missing|slow SECONDS|silent|garbled|prints FILE|hangs|floods|forks|killed", from_to(2, 3),
     "make a query tool misbehave", set_tool},
    {"forget", "", "drive|array|raid-battery|sd-card|adapter|fan|supply|processor|module NUMBER", exactly(2),
     "miss a part of a real server no longer", forget, nullptr, Servers::Real},
});

}  // namespace

std::string scenario_of(const Inventory &inventory, const std::vector<Part> &faults, const std::string &wanted) {
  auto shown = ordered_json::object();
  for (const Group &group : groups) {
    if (wanted.empty() || wanted == group.name) {
      shown[std::string(group.name)] = group.json(inventory);
    }
  }
  if (wanted.empty() || wanted == "faults") {
    shown["faults"] = list_json(faults);
  }
  return shown.dump(2, ' ', false, ordered_json::error_handler_t::replace) + '\n';
}

std::span<const Command> machine_commands() {
  return commands;
}

}  // namespace tavo::service
