#include <algorithm>
#include <array>

#include "simulator/control.h"

namespace tavo::sim {
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

struct Group {
  std::string_view name;
  std::string (*show)(const Inventory &);
};

constexpr auto groups = std::to_array<Group>({
    {.name = "server", .show = [](const Inventory &i) { return describe(i.server, ""); }},
    {.name = "environment", .show = [](const Inventory &i) { return describe(i.environment, ""); }},
    {.name = "processors", .show = [](const Inventory &i) { return describe_all(i.processors); }},
    {.name = "dimms", .show = [](const Inventory &i) { return describe_all(i.dimms); }},
    {.name = "sensors", .show = [](const Inventory &i) { return describe_all(i.sensors); }},
    {.name = "supplies", .show = [](const Inventory &i) { return describe_all(i.supplies); }},
    {.name = "adapters", .show = [](const Inventory &i) { return describe_all(i.adapters); }},
    {.name = "leds", .show = [](const Inventory &i) { return describe_all(i.leds); }},
    {.name = "raid-controllers", .show = describe_controllers},
    {.name = "sd-cards",
     .show =
         [](const Inventory &i) {
           return describe(i.sd.controller, "") + describe_all(i.sd.cards) + describe_all(i.sd.partitions);
         }},
});

std::string show_faults(Machine &machine) {
  return describe_faults(machine) + "broadcaster: " + std::to_string(machine.faults().broadcaster().followers()) +
         " listeners\nstorage events: " + std::to_string(machine.storage_events().followers()) + " listeners\n";
}

std::string show(Machine &machine, Words words) {
  std::vector<std::string_view> known;
  std::string text;
  for (const Group &group : groups) {
    known.push_back(group.name);
    if (words.empty() || words[0] == group.name) {
      text += machine.read(group.show);
    }
  }
  known.push_back("faults");
  if (words.empty() || words[0] == "faults") {
    return text + show_faults(machine);
  }
  if (std::ranges::find(known, words[0]) == known.end()) {
    throw BadInput("unknown word '" + words[0] + "' after 'show'; expected one of " + joined(known));
  }
  return text;
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

constexpr auto commands = std::to_array<Command>({
    {"ping", "", "", exactly(0), "succeed if the simulator serves",
     [](Machine &, Words) -> std::string { return "bmcsim serves\n"; }},
    {"show", "", "[WHAT]", from_to(0, 1), "show the whole server, or one group of its parts", show},
    {"tool", "", "NAME ok|missing|slow SECONDS|silent|garbled|prints FILE|hangs|floods|forks|killed", from_to(2, 3),
     "make a query tool misbehave", set_tool},
});

}  // namespace

std::span<const Command> machine_commands() {
  return commands;
}

}  // namespace tavo::sim
