// `bmcsim ctl`: the commands that show and change the running server.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "service/machine.h"

namespace tavo::service {

using Words = std::span<const std::string>;
using OwnSettings = std::vector<std::string>;  // settings that a command makes up itself

// How many arguments a command takes.
struct Arity {
  std::size_t least;
  std::size_t most;
};
constexpr Arity exactly(std::size_t count) {
  return {.least = count, .most = count};
}
constexpr Arity from_to(std::size_t least, std::size_t most) {
  return {.least = least, .most = most};
}
constexpr Arity at_least(std::size_t least) {
  return {.least = least, .most = SIZE_MAX};
}

// Which servers take a command. A real one is shown as it is.
enum class Servers { Simulated, Real, Any };

// A command is an object, a verb (empty if the object alone names the command) and arguments.
struct Command {
  std::string_view object;
  std::string_view verb;
  std::string_view arguments;  // as the help shows them
  Arity arity;
  std::string_view help;
  std::string (*run)(Machine &machine, Words arguments);  // returns what to print
  const PartKind *kind = nullptr;                         // the part whose fields FIELD stands for; null: none
  Servers servers = Servers::Simulated;
};

std::span<const Command> fault_commands();
std::span<const Command> inventory_commands();
std::span<const Command> storage_commands();
std::span<const Command> machine_commands();

// Runs a command and returns what to print. Throws BadInput, which quotes the wrong word and lists the right ones.
std::string control(Machine &machine, const std::vector<std::string> &words);

// A line for every command.
std::string control_help();

// What there is to know about the commands that begin with these words: usage, purpose and fields. Throws BadInput, as
// control() does, if there are none.
std::string command_help(const std::vector<std::string> &words);

// The part whose `field` reads `wanted`. Throws BadInput, which lists what there is.
Part &find_part(std::vector<Part> &parts, std::string_view field, const std::string &wanted);
const Part &find_part(const std::vector<Part> &parts, std::string_view field, const std::string &wanted);

// Changes that part of the list, which keeps an identity of its own, and returns it.
Part &change_found_part(std::vector<Part> &parts, std::string_view field, const std::string &wanted, Settings settings);

// What a scenario would say of the server: JSON, which is YAML, so it is one. `wanted` is the key of one group; empty:
// all of it.
std::string scenario_of(const Inventory &inventory, const std::vector<Part> &faults, const std::string &wanted = "");

// A line for each active fault.
std::string describe_faults(Machine &machine);

}  // namespace tavo::service
