// The table in which the firmware describes the machine, with structures that are cut off or lie about their length.
#include <algorithm>
#include <cstddef>
#include <set>
#include <string>

#include "fuzz/harness/door.h"
#include "hardware/smbios.h"
#include "service/inventory.h"

namespace tavo::fuzz {
namespace {

bool is_line(const std::string &text) {
  return std::ranges::all_of(text, [](unsigned char c) { return c >= ' ' && c != 0x7f; });
}

// Names tell the parts of a list apart.
void check(const std::vector<service::Part> &parts, const char *name) {
  std::set<std::string> names;
  for (const service::Part &part : parts) {
    expect(is_line(part.text(name)), "names are lines");
    names.insert(part.text(name));
  }
  expect(names.size() == parts.size(), "no two parts have one name");
}

}  // namespace

void try_input(Octets input) {
  const std::span<const std::byte> table = std::as_bytes(input);
  std::size_t octets = 0;
  for (const service::SmbiosStructure &structure : service::smbios_structures(table)) {
    const std::size_t length = structure.octet(1);
    expect(structure.octets(0, length).size() == length, "a structure is as long as it says");
    octets += length;
  }
  expect(octets <= table.size(), "structures do not overlap");
  for (const service::SystemSlot &slot : service::system_slots(table)) {
    expect(slot.address.size() == std::string_view("0000:00:00.0").size(), "an address has its form");
  }
  service::Inventory inventory;
  inventory.server.set("board-readable", "no");
  service::enter_smbios(inventory, table);
  expect(is_line(inventory.server.text("serial")) && is_line(inventory.server.text("uuid")), "texts are lines");
  check(inventory.processors, "socket");
  check(inventory.dimms, "name");
}

}  // namespace tavo::fuzz
