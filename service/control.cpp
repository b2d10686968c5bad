#include "service/control.h"

#include <algorithm>
#include <array>

namespace tavo::service {
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

// One word of every command that `matches`, each only once.
template <class Matches>
std::string words_of_commands(std::string_view Command::*word, Matches matches) {
  std::vector<std::string_view> words;
  for (const auto commands : all_commands()) {
    for (const Command &command : commands) {
      if (matches(command) && std::ranges::find(words, command.*word) == words.end()) {
        words.push_back(command.*word);
      }
    }
  }
  return joined(words);
}

[[noreturn]] void refuse_object(const std::string &object) {
  throw BadInput("unknown word '" + object + "'; expected one of " +
                 words_of_commands(&Command::object, [](const Command &) { return true; }));
}

[[noreturn]] void refuse_verb(Words words) {
  const std::string known =
      words_of_commands(&Command::verb, [&](const Command &command) { return command.object == words[0]; });
  if (words.size() == 1) {
    throw BadInput("'" + words[0] + "' needs one of " + known);
  }
  throw BadInput("unknown word '" + words[1] + "' after '" + words[0] + "'; expected one of " + known);
}

const Command &find_command(Words words) {
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
    refuse_object(words[0]);
  }
  refuse_verb(words);
}

void check_server(const Command &command, bool is_real) {
  const std::string words = std::string(command.object) + (command.verb.empty() ? "" : " ") + std::string(command.verb);
  if (command.servers == Servers::Simulated && is_real) {
    throw BadInput("'" + words + "' changes a simulated server; this one is real, and is shown as it is");
  }
  if (command.servers == Servers::Real && !is_real) {
    throw BadInput("'" + words + "' is for a real server; this one is simulated");
  }
}

std::size_t position_of(const std::vector<Part> &parts, std::string_view field, const std::string &wanted) {
  std::vector<std::string> known(parts.size());
  std::ranges::transform(parts, known.begin(),
                         [&](const Part &part) { return part.written(*find_field(part.kind(), field)); });
  const auto found = std::ranges::find(known, wanted);
  if (found == known.end()) {
    throw BadInput("there is no '" + wanted + "'; there are " + joined({known.begin(), known.end()}));
  }
  return static_cast<std::size_t>(found - known.begin());
}

}  // namespace

std::string control(Machine &machine, const std::vector<std::string> &words) {
  if (words.empty()) {
    throw BadInput("a command is missing; 'bmcsim ctl --help' lists them");
  }
  const Command &command = find_command(words);
  const Words arguments = Words(words).subspan(command.verb.empty() ? 1 : 2);
  if (arguments.size() < command.arity.least) {
    throw BadInput("an argument is missing; usage: " + usage(command));
  }
  if (arguments.size() > command.arity.most) {
    throw BadInput("unexpected word '" + arguments[command.arity.most] + "'; usage: " + usage(command));
  }
  check_server(command, machine.real() != nullptr);
  return command.run(machine, arguments);
}

std::string command_help(const std::vector<std::string> &words) {
  if (words.empty()) {
    return control_help();
  }
  if (words.size() > 1) {
    find_command(words);  // refuses an unknown word
  }
  std::string help;
  for (const auto commands : all_commands()) {
    for (const Command &command : commands) {
      const bool is_named = words.size() > 1 || command.verb.empty();
      if (command.object != words[0] || (words.size() > 1 && !command.verb.empty() && command.verb != words[1])) {
        continue;
      }
      help += usage(command) + "\n    " + std::string(command.help) + '\n';
      if (command.kind != nullptr && is_named) {
        help += "Each FIELD is one of\n" + describe_fields(*command.kind);
      }
    }
  }
  if (help.empty()) {
    refuse_object(words[0]);
  }
  return help;
}

std::string control_help() {
  constexpr std::size_t column = 44;
  std::string help;
  for (const auto commands : all_commands()) {
    for (const Command &command : commands) {
      std::string line = "  " + usage(command);
      if (line.size() >= column) {
        help += line + '\n';
        line.clear();
      }
      line.resize(column, ' ');
      help += line + std::string(command.help) + '\n';
    }
  }
  return help;
}

Part &find_part(std::vector<Part> &parts, std::string_view field, const std::string &wanted) {
  return parts[position_of(parts, field, wanted)];
}

Part &change_found_part(std::vector<Part> &parts, std::string_view field, const std::string &wanted,
                        Settings settings) {
  Part &part = find_part(parts, field, wanted);
  change_part(parts, part, settings);
  return part;
}

const Part &find_part(const std::vector<Part> &parts, std::string_view field, const std::string &wanted) {
  return parts[position_of(parts, field, wanted)];
}

}  // namespace tavo::service
