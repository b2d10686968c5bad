#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <limits>

#include "platform/fault_engine.h"
#include "simulator/control.h"

namespace tavo::sim {
namespace {

constexpr std::int64_t word_most = std::numeric_limits<std::uint32_t>::max();

std::uint32_t index_of(const std::string &word) {
  return static_cast<std::uint32_t>(parse_number(word, "fault index", 0, word_most));
}

std::string raise(Machine &machine, Words words) {
  machine.faults().raise(index_of(words[0]), words.subspan(1));
  return "fault " + words[0] + " raised\n";
}

std::string update(Machine &machine, Words words) {
  machine.faults().update(index_of(words[0]), words.subspan(1));
  return "fault " + words[0] + " updated\n";
}

std::string clear(Machine &machine, Words words) {
  std::optional<std::int64_t> class_code;
  if (words.size() > 1) {
    constexpr std::string_view prefix = "class=";
    if (!words[1].starts_with(prefix)) {
      throw BadInput("'" + words[1] + "' is not of the form class=CLASS");
    }
    Part probe(fault_kind);
    probe.set("class", std::string_view(words[1]).substr(prefix.size()));
    class_code = probe.number("class");
  }
  if (!machine.faults().clear(index_of(words[0]), class_code)) {
    throw BadInput("no active fault has the index " + words[0]);
  }
  return "fault " + words[0] + " cleared\n";
}

std::string list(Machine &machine, Words) {
  std::string text;
  for (const Part &fault : machine.faults().active()) {
    text += describe(fault, "");
  }
  return text.empty() ? "no active faults\n" : text;
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
  machine.faults().send(FaultEngine::bare_fault(index_of(words[0]), words.subspan(1)).encoded());
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

std::string fail_next(Machine &machine, Words words) {
  const auto times = parse_number(words[0], "number of connections", 0, word_most);
  machine.faults().broadcaster().refuse_next(static_cast<std::size_t>(times));
  return "the broadcaster refuses the next " + words[0] + " connections\n";
}

constexpr auto commands = std::to_array<Command>({
    {.object = "fault",
     .verb = "raise",
     .arguments = "INDEX class=CLASS [FIELD=VALUE ...]",
     .least = 2,
     .most = any_number,
     .help = "raise a fault, or an active one again",
     .run = raise},
    {.object = "fault",
     .verb = "update",
     .arguments = "INDEX [class=CLASS] [FIELD=VALUE ...]",
     .least = 1,
     .most = any_number,
     .help = "change an active fault",
     .run = update},
    {.object = "fault",
     .verb = "clear",
     .arguments = "INDEX [class=CLASS]",
     .least = 1,
     .most = 2,
     .help = "clear an active fault",
     .run = clear},
    {.object = "fault", .verb = "list", .help = "show the active faults", .run = list},
    {.object = "fault",
     .verb = "storm",
     .arguments = "RECORDS [INDEXES]",
     .least = 1,
     .most = 2,
     .help = "raise, update and clear at random, as fast as it is taken",
     .run = storm},
    {.object = "fault",
     .verb = "send",
     .arguments = "INDEX [FIELD=VALUE ...]",
     .least = 1,
     .most = any_number,
     .help = "broadcast a record as it is; the table stays",
     .run = send},
    {.object = "fault",
     .verb = "send-file",
     .arguments = "FILE",
     .least = 1,
     .most = 1,
     .help = "broadcast the file's 960 octets",
     .run = send_file},
    {.object = "broadcaster", .verb = "close", .help = "drop every listener", .run = close},
    {.object = "broadcaster",
     .verb = "refuse",
     .least = 0,
     .most = 0,
     .help = "turn new listeners away",
     .run = refuse},
    {.object = "broadcaster", .verb = "accept", .help = "take listeners again", .run = accept},
    {.object = "broadcaster",
     .verb = "fail",
     .arguments = "N",
     .least = 1,
     .most = 1,
     .help = "turn the next N listeners away",
     .run = fail_next},
});

}  // namespace

std::span<const Command> fault_commands() {
  return commands;
}

}  // namespace tavo::sim
