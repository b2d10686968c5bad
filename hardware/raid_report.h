// What the tool of RAID controllers says of their batteries.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavo::service {

// A battery, or a capacitor with flash memory, that keeps a controller's cache over a power failure.
struct RaidBattery {
  std::string controller;  // its PCI address, as the kernel writes it: "0000:03:00.0"
  std::string model;
  std::string state;  // "Optimal"; empty: it does not tell

  bool is_good() const { return state.empty() || state == "Optimal" || state == "Optl"; }
};

struct RaidReport {
  std::vector<RaidBattery> batteries;  // at most one of a controller, in the order of their addresses
  std::vector<std::string> failures;   // what the tool could not tell and why, a line each
};

// What `storcli /call show all J nolog` has printed. Nothing if that is no such report.
std::optional<RaidReport> parse_raid_report(std::string_view json);

}  // namespace tavo::service
