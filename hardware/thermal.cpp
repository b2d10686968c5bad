#include "hardware/thermal.h"

#include <algorithm>

#include "hardware/decimal.h"
#include "hardware/sysfs.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

// "x86_pkg_temp", "cpu-thermal", "cpu1_thermal", "soc-thermal". Others, such as "acpitz", may be anywhere.
bool is_of_processor(const std::string &type) {
  return type == "x86_pkg_temp" || ((type.starts_with("cpu") || type.starts_with("soc")) && type.ends_with("thermal"));
}

// In thousandths of a degree. A zone that is switched off may read as anything.
std::optional<std::int64_t> temperature_of(const fs::path &zone) {
  constexpr std::int64_t coldest = -60'000;
  constexpr std::int64_t hottest = 200'000;
  const auto now = read_number(zone / "temp");
  return now && *now >= coldest && *now <= hottest ? now : std::nullopt;
}

void enter_temperature(Inventory &inventory, const std::string &degrees) {
  const auto is_present = [](const Part &processor) { return processor.flag("present"); };
  if (std::ranges::count_if(inventory.processors, is_present) == 1) {
    std::ranges::find_if(inventory.processors, is_present)->set("temperature", degrees);
  }
}

}  // namespace

Finding ThermalSource::read() {
  std::optional<std::int64_t> highest;
  for (const fs::path &zone : entries(roots_.sys / "class/thermal", "thermal_zone")) {
    if (is_of_processor(read_attribute(zone / "type").value_or(""))) {
      highest = std::max(highest, temperature_of(zone));
    }
  }
  Finding finding;
  if (highest) {
    finding.accounts[Topic::ProcessorTemperatures] = {
        .enter = [degrees = from_thousandths(*highest)](Inventory &inventory) {
          enter_temperature(inventory, degrees);
        }};
  }
  return finding;
}

}  // namespace tavo::service
