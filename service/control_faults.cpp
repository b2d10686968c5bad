#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <limits>

#include "platform/fault_engine.h"
#include "service/control.h"

namespace tavo::service {
namespace {

constexpr std::int64_t word_most = std::numeric_limits<std::uint32_t>::max();

// The indexes below are those of a real server's own faults, which only the server raises and clears.
constexpr std::int64_t least_by_hand = 100'000;

std::uint32_t index_of(const Machine &machine, const std::string &word) {
  const std::int64_t least = machine.real() != nullptr ? least_by_hand : 0;
  const char *what = least > 0 ? "fault index (a real server's own are lower)" : "fault index";
  return static_cast<std::uint32_t>(parse_number(word, what, least, word_most));
}

std::string raise(Machine &machine, Words words) {
  machine.raise_fault(index_of(machine, words[0]), words.subspan(1));
  return "fault " + words[0] + " raised\n";
}

std::string update(Machine &machine, Words words) {
  machine.faults().update(index_of(machine, words[0]), words.subspan(1));
  return "fault " + words[0] + " updated\n";
}

std::string clear(Machine &machine, Words words) {
  const auto class_code = class_in(words.subspan(1));
  if (words.size() > 1 && !class_code) {
    throw BadInput("'" + words[1] + "' is not of the form class=CLASS");
  }
  if (!machine.faults().clear(index_of(machine, words[0]), class_code)) {
    throw BadInput("no active fault has the index " + words[0]);
  }
  return "fault " + words[0] + " cleared\n";
}

std::string list(Machine &machine, Words) {
  const std::string lines = describe_faults(machine);
  return lines.empty() ? "no active faults\n" : lines;
}

std::string storm(Machine &machine, Words words) {
  const auto records = parse_number(words[0], "number of records", 1, 100'000'000);
  const auto indexes = words.size() > 1 ? parse_number(words[1], "number of indexes", 1, 100'000) : 1000;
  const StormResult result = machine.faults().storm(
      static_cast<std::size_t>(records), static_cast<std::size_t>(indexes), [&machine] { return machine.stopping(); });
  const std::size_t sent = result.raised + result.updated + result.cleared;
  std::array<char, 200> text{};
  std::snprintf(
      text.data(), text.size(),
      "%zu records: %zu raised, %zu updated, %zu cleared; taken in %.3f s, %.0f a second; %zu faults active\n", sent,
      result.raised, result.updated, result.cleared, result.seconds, static_cast<double>(sent) / result.seconds,
      machine.faults().count());
  return text.data();
}

std::string send(Machine &machine, Words words) {
  machine.faults().send(FaultEngine::bare_fault(index_of(machine, words[0]), words.subspan(1)).encoded());
  return "record sent\n";
}

std::string send_file(Machine &machine, Words words) {
  std::ifstream file(words[0], std::ios::binary);
  const std::string content{std::istreambuf_iterator<char>(file), {}};
  if (!file.is_open() || content.size() != FAULT_RECORD_SIZE) {
    throw BadInput(words[0] + ": not a file of " + std::to_string(FAULT_RECORD_SIZE) + " octets");
  }
  const auto octets = std::as_bytes(std::span(content));
  machine.faults().send(Record(octets.begin(), octets.end()));
  return "record sent\n";
}

std::string close(Machine &machine, Words) {
  return std::to_string(machine.faults().broadcaster().close_all()) + " connections closed\n";
}

std::string refuse(Machine &machine, Words) {
  machine.faults().broadcaster().refuse(true);
  return "the broadcaster refuses connections\n";
}

std::string accept(Machine &machine, Words) {
  machine.faults().broadcaster().refuse(false);
  return "the broadcaster accepts connections\n";
}

std::string refuse_next(Machine &machine, Words words) {
  const auto times = parse_number(words[0], "number of connections", 0, word_most);
  machine.faults().broadcaster().refuse_next(static_cast<std::size_t>(times));
  return "the broadcaster refuses the next " + words[0] + " connections\n";
}

constexpr auto commands = std::to_array<Command>({
    {"fault", "raise", "INDEX class=CLASS [FIELD=VALUE ...]", at_least(2), "raise a fault, or raise it again", raise,
     &fault_kind, Servers::Any},
    {"fault", "update", "INDEX [class=CLASS] [FIELD=VALUE ...]", at_least(1), "change an active fault", update,
     &fault_kind, Servers::Any},
    {"fault", "clear", "INDEX [class=CLASS]", from_to(1, 2), "clear an active fault", clear, nullptr, Servers::Any},
    {"fault", "list", "", exactly(0), "show the active faults", list, nullptr, Servers::Any},
    {"fault", "storm", "RECORDS [INDEXES]", from_to(1, 2), "raise, update and clear at random, as fast as possible",
     storm},
    {"fault", "send", "INDEX [FIELD=VALUE ...]", at_least(1), "broadcast a record only; no fault becomes active", send,
     &fault_kind, Servers::Any},
    {"fault", "send-file", "FILE", exactly(1), "broadcast the file's 960 octets as a record", send_file},
    {"broadcaster", "close", "", exactly(0), "drop every listener", close, nullptr, Servers::Any},
    {"broadcaster", "refuse", "", exactly(0), "refuse new listeners", refuse, nullptr, Servers::Any},
    {"broadcaster", "accept", "", exactly(0), "accept new listeners again", accept, nullptr, Servers::Any},
    {"broadcaster", "fail", "N", exactly(1), "refuse the next N listeners", refuse_next, nullptr, Servers::Any},
});

}  // namespace

std::span<const Command> fault_commands() {
  return commands;
}

std::string describe_faults(Machine &machine) {
  std::string lines;
  for (const Part &fault : machine.faults().active()) {
    lines += describe(fault, "");
  }
  return lines;
}

}  // namespace tavo::service
