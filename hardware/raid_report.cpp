#include "hardware/raid_report.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

#include "hardware/printed_json.h"

namespace tavo::service {
namespace {

using nlohmann::json;

// The tool divides the four numbers of an address by colons: "00:03:00:00". Empty if it is none.
std::string kernels_address(std::string_view told) {
  constexpr std::array<unsigned, 4> most{0xffffffff, 0xff, 0x1f, 0x7};
  std::array<unsigned, 4> numbers{};
  const char *at = told.data();
  const char *const end = told.data() + told.size();
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    const auto [next, error] = std::from_chars(at, end, numbers[i], 16);
    const bool is_last = i + 1 == numbers.size();
    if (error != std::errc() || numbers[i] > most[i] || (is_last ? next != end : next == end || *next != ':')) {
      return "";
    }
    at = next + (is_last ? 0 : 1);
  }
  std::array<char, 64> address{};
  std::snprintf(address.data(), address.size(), "%04x:%02x:%02x.%x", numbers[0], numbers[1], numbers[2], numbers[3]);
  return address.data();
}

// The first one listed. A controller has one of either kind.
std::optional<RaidBattery> battery_in(const json &controller) {
  for (const char *kind : {"BBU_Info", "Cachevault_Info"}) {
    const json *listed = find_printed(controller, {"Response Data", kind});
    if (listed != nullptr && listed->is_array() && !listed->empty()) {
      const std::string state = printed_text(listed->front(), {"State"});
      return RaidBattery{.controller = "",
                         .model = printed_text(listed->front(), {"Model"}),
                         .state = state == "-" || state == "N/A" ? "" : state};
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<RaidReport> parse_raid_report(std::string_view text) {
  const json printed = parse_printed(text);
  const json *controllers = find_printed(printed, {"Controllers"});
  if (controllers == nullptr || !controllers->is_array()) {
    return std::nullopt;
  }
  RaidReport report;
  for (const json &controller : *controllers) {
    const std::string address = kernels_address(printed_text(controller, {"Response Data", "Basics", "PCI Address"}));
    if (printed_text(controller, {"Command Status", "Status"}) != "Success" || address.empty()) {
      const std::string why = printed_text(controller, {"Command Status", "Description"});
      report.failures.push_back("a controller: " + (why.empty() || why == "None" ? "no PCI address" : why));
      continue;
    }
    if (auto battery = battery_in(controller)) {
      battery->controller = address;
      report.batteries.push_back(*battery);
    }
  }
  std::ranges::sort(report.batteries, {}, &RaidBattery::controller);
  const auto is_of_same = [](const RaidBattery &a, const RaidBattery &b) { return a.controller == b.controller; };
  const auto again = std::unique(report.batteries.begin(), report.batteries.end(), is_of_same);
  report.batteries.erase(again, report.batteries.end());
  return report;
}

}  // namespace tavo::service
