// What the tool of RAID controllers prints: JSON, or whatever a program of that name prints.
#include <string_view>

#include "fuzz/harness/door.h"
#include "hardware/pci.h"
#include "hardware/raid_report.h"

namespace tavo::fuzz {

void try_input(Octets input) {
  const auto report = service::parse_raid_report({reinterpret_cast<const char *>(input.data()), input.size()});
  if (!report) {
    return;
  }
  std::string before;
  for (const service::RaidBattery &battery : report->batteries) {
    expect(service::is_pci_address(battery.controller), "a battery's controller has an address");
    expect(battery.controller > before, "a controller has one battery, and they are in order");
    before = battery.controller;
  }
}

}  // namespace tavo::fuzz
