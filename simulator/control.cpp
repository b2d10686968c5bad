#include "simulator/control.h"

#include <algorithm>
#include <array>

namespace tavo::sim {
namespace {

std::array<std::span<const Command>, 4> all_commands() {
  return {machine_commands(), fault_commands(), inventory_commands(), storage_commands()};
}

std::string usage(const Command &command) {
  std::string line(command.object);
  for (const std::string_view word : {command.verb, command.arguments}) {
    line += word.empty() ? "" : " ";
    line += word;
  }
  return line;
}

template <class Matches, class Name>
std::string names_of_commands(Matches matches, Name name) {
  std::vector<std::string_view> names;
  for (const auto commands : all_commands()) {
    for (const Command &command : commands) {
      const std::string_view word = name(command);
      if (matches(command) && std::ranges::find(names, word) == names.end()) {
        names.push_back(word);
      }
    }
  }
  return listed(names);
}

const Command &find_command(const std::vector<std::string> &words) {
  bool object_known = false;
  for (const auto commands : all_commands()) {
    for (const Command &command : commands) {
      if (command.object == words[0]) {
        object_known = true;
        if (command.verb.empty() || (words.size() > 1 && command.verb == words[1])) {
          return command;
        }
      }
    }
  }
  if (!object_known) {
    throw BadInput("unknown word '" + words[0] + "'; known are " +
                   names_of_commands([](const Command &) { return true; }, [](const Command &c) { return c.object; }));
  }
  const std::string known = names_of_commands([&](const Command &c) { return c.object == words[0]; },
                                              [](const Command &c) { return c.verb; });
  if (words.size() == 1) {
    throw BadInput("'" + words[0] + "' needs one of " + known);
  }
  throw BadInput("unknown word '" + words[1] + "' after '" + words[0] + "'; known are " + known);
}

}  // namespace

std::string control(Machine &machine, const std::vector<std::string> &words) {
  if (words.empty()) {
    throw BadInput("a command is missing; 'bmcsim ctl --help' lists them");
  }
  const Command &command = find_command(words);
  const Words arguments = Words(words).subspan(command.verb.empty() ? 1 : 2);
  if (arguments.size() < command.least) {
    throw BadInput("something is missing; the command is: " + usage(command));
  }
  if (arguments.size() > command.most) {
    throw BadInput("'" + arguments[command.most] + "' is one word too many; the command is: " + usage(command));
  }
  return command.run(machine, arguments);
}

std::string control_help(std::string_view object) {
  constexpr std::size_t column = 44;
  std::string help;
  for (const auto commands : all_commands()) {
    for (const Command &command : commands) {
      if (object.empty() || command.object == object) {
        std::string line = "  " + usage(command);
        line.append(line.size() < column ? column - line.size() : 2, ' ');
        help += line + std::string(command.help) + '\n';
      }
    }
  }
  return help;
}

std::size_t part_position(const std::vector<Part> &parts, std::string_view field, const std::string &wanted) {
  std::vector<std::string> known;
  known.reserve(parts.size());
  for (const Part &part : parts) {
    known.push_back(part.written(*std::ranges::find(part.kind().fields, field, &Field::name)));
  }
  const auto found = std::ranges::find(known, wanted);
  if (found == known.end()) {
    throw BadInput("there is no '" + wanted + "'; there are " + listed({known.begin(), known.end()}));
  }
  return static_cast<std::size_t>(found - known.begin());
}

Part &find_numbered(std::vector<Part> &parts, const std::string &number) {
  if (parts.empty()) {
    throw BadInput("the server has none");
  }
  const auto position = parse_number(number, "number", 1, static_cast<std::int64_t>(parts.size()));
  return parts[static_cast<std::size_t>(position - 1)];
}

}  // namespace tavo::sim
