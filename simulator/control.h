// `bmcsim ctl`: what changes the simulated server while it runs.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/machine.h"

namespace tavo::sim {

using Words = std::span<const std::string>;

// One command: an object and a verb (empty where the object says it all), then arguments.
struct Command {
  std::string_view object;
  std::string_view verb = {};
  std::string_view arguments = {};  // as the help shows them
  std::size_t least = 0;            // arguments that it needs
  std::size_t most = 0;             // and that it takes
  std::string_view help;
  std::string (*run)(Machine &machine, Words arguments);  // what is printed
};

inline constexpr std::size_t any_number = SIZE_MAX;

std::span<const Command> fault_commands();
std::span<const Command> inventory_commands();
std::span<const Command> storage_commands();
std::span<const Command> machine_commands();

// Runs the command that the words say. Throws BadInput that names the wrong word and the right ones.
std::string control(Machine &machine, const std::vector<std::string> &words);

// Every command with its help, or those of one object.
std::string control_help(std::string_view object = "");

// Finds a part by what a user calls it, or throws BadInput that lists what there is.
std::size_t part_position(const std::vector<Part> &parts, std::string_view field, const std::string &wanted);
inline Part &find_part(std::vector<Part> &parts, std::string_view field, const std::string &wanted) {
  return parts[part_position(parts, field, wanted)];
}
// The same by position, from 1.
Part &find_numbered(std::vector<Part> &parts, const std::string &number);

}  // namespace tavo::sim
