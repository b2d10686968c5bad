// The kernel's sensors: each line is a file of a chip, "CHIP NAME VALUE". The word "then" on a line of its own ends a
// reading; files of the next one are added to those that are there.
#include <algorithm>
#include <fstream>
#include <string>
#include <string_view>

#include "fuzz/harness/door.h"
#include "fuzz/harness/lying_controller.h"
#include "fuzz/harness/scratch_directory.h"
#include "hardware/hwmon.h"

namespace tavo::fuzz {
namespace {

std::string_view take_until(char end, std::string_view &rest) {
  const std::string_view taken = rest.substr(0, rest.find(end));
  rest.remove_prefix(std::min(taken.size() + 1, rest.size()));
  return taken;
}

// The kernel gives its files plain names, whatever is in them.
bool is_plain(std::string_view name) {
  constexpr std::size_t most = 32;
  return !name.empty() && name.size() <= most &&
         std::ranges::all_of(name, [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_'; });
}

}  // namespace

void try_input(Octets input) {
  const ScratchDirectory directory;
  const std::filesystem::path chips = directory.path() / "class/hwmon";
  std::filesystem::create_directories(chips);
  service::Register nothing_kept("");
  service::HwmonSource source({.sys = directory.path(), .dev = "/nonexistent", .proc = "/nonexistent"}, nothing_kept);
  std::string_view rest(reinterpret_cast<const char *>(input.data()), input.size());
  while (!rest.empty()) {
    std::string_view line = take_until('\n', rest);
    if (line == "then") {
      check_finding(source.read());
      continue;
    }
    const std::string_view chip = take_until(' ', line);
    const std::string_view name = take_until(' ', line);
    if (is_plain(chip) && is_plain(name)) {
      std::filesystem::create_directory(chips / chip);
      std::ofstream(chips / chip / name, std::ios::binary) << line;
    }
  }
  check_finding(source.read());
}

}  // namespace tavo::fuzz
