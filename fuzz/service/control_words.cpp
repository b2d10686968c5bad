// The words of `bmcsim ctl`: a command for each line, and then everything that the server can be asked for.
#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz/harness/door.h"
#include "fuzz/harness/simulated_server.h"
#include "service/control.h"

namespace tavo::fuzz {
namespace {

// Commands that repeat something as often as they are told, up to a hundred million times.
bool repeats(const std::vector<std::string> &words) {
  return std::ranges::any_of(words, [](const std::string &word) {
    return word == "storm" || word == "storage-event" || word == "sd-trigger" || word == "send-file";
  });
}

}  // namespace

void try_input(Octets input) {
  constexpr std::size_t most_commands = 8;
  service::Machine machine(service::small_inventory(), service::temporary_surroundings());
  std::istringstream lines(std::string(input.begin(), input.end()));
  std::string line;
  for (std::size_t i = 0; i < most_commands && std::getline(lines, line); ++i) {
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word;) {
      words.push_back(word);
    }
    if (repeats(words)) {
      continue;
    }
    try {
      service::control(machine, words);
    } catch (const service::BadInput &) {
    }
  }
  service::ask_for_everything(machine);
}

}  // namespace tavo::fuzz
