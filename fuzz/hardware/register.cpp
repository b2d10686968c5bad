// The register, a file that somebody has edited or that is cut off. The first octet is how many keys at the end of the
// input, of an octet each, are entered after it is read.
#include <algorithm>
#include <fstream>
#include <iostream>
#include <set>
#include <string>

#include "fuzz/harness/door.h"
#include "fuzz/harness/scratch_directory.h"
#include "hardware/fault_keeper.h"
#include "hardware/register.h"

namespace tavo::fuzz {
namespace {

constexpr const char *group = "drive";

std::set<std::int64_t> numbers_of(const std::map<std::string, service::RegisteredPart> &parts) {
  std::set<std::int64_t> numbers;
  for (const auto &[place, part] : parts) {
    numbers.insert(part.number);
  }
  return numbers;
}

}  // namespace

void try_input(Octets input) {
  if (input.empty()) {
    return;
  }
  std::cerr.rdbuf(nullptr);  // each input that is no register gets a line
  const std::size_t keys = std::min<std::size_t>(input.front() % 8, input.size() - 1);
  const Octets content = input.subspan(1, input.size() - 1 - keys);
  const ScratchDirectory directory;
  const std::filesystem::path file = directory.path() / "register.json";
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char *>(content.data()), static_cast<std::streamsize>(content.size()));

  service::Register read(file);
  std::set<std::pair<std::int64_t, std::int64_t>> faults;
  for (const service::Part &fault : service::FaultKeeper(read).active()) {
    expect(faults.emplace(fault.number("class"), fault.number("index")).second, "class and index name one fault");
  }
  for (const std::uint8_t key : input.last(keys)) {
    read.keep_part(group, std::string(1, static_cast<char>(key & 0x7f)), "name");
  }
  const auto parts = read.parts(group);
  const std::set<std::int64_t> numbers = numbers_of(parts);
  expect(numbers.size() == parts.size(), "each part has a number of its own");
  expect(numbers.empty() || *numbers.begin() > 0, "numbers begin with 1");

  service::Register again(file);
  expect(again.faults().size() == read.faults().size(), "faults are kept");
  expect(numbers_of(again.parts(group)) == numbers, "numbers are kept");
}

}  // namespace tavo::fuzz
