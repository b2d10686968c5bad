// The daemon's command line: a word for each line.
#include "host/options.h"

#include <sstream>
#include <string>
#include <vector>

#include "fuzz/harness/door.h"

namespace tavo::fuzz {

void try_input(Octets input) {
  constexpr std::size_t most_words = 12;  // more only take time
  std::vector<std::string> words = {"snmp-subagentd"};
  std::istringstream lines(std::string(input.begin(), input.end()));
  for (std::string line; words.size() <= most_words && std::getline(lines, line);) {
    words.push_back(line);
  }
  std::vector<const char *> arguments;
  for (const std::string &word : words) {
    arguments.push_back(word.c_str());
  }
  const CommandLine parsed = parse_command_line(static_cast<int>(arguments.size()), arguments.data());
  expect(!parsed.leave || !parsed.text.empty(), "whoever is sent away is told why");
  if (parsed.leave) {
    return;
  }
  const Options &options = parsed.options;
  expect(options.notification_limit >= 1 && options.notification_limit <= 1'000'000, "the limit is in its range");
  expect(options.tool_timeout.count() >= 0 && options.answer_within.count() >= 0, "no time is negative");
  // The daemon looks at each one's first letter.
  for (const std::vector<std::string> &log : options.log) {
    expect(!log.empty() && !log[0].empty(), "-L has a letter");
  }
  options.logs_to_output();
}

}  // namespace tavo::fuzz
