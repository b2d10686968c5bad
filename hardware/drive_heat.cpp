#include "hardware/drive_heat.h"

#include <string>
#include <string_view>
#include <vector>

#include "hardware/sysfs.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

constexpr double hysteresis = 3;  // degrees

// The chips of a drive (drivetemp), or of the controller that is part of it (NVMe).
std::vector<fs::path> chips_of(const fs::path &device) {
  std::vector<fs::path> chips;
  for (const fs::path &owner : {device.parent_path(), device.parent_path().parent_path()}) {
    for (const fs::path &directory : {owner, owner / "hwmon"}) {
      for (const fs::path &chip : entries(directory, "hwmon")) {
        chips.push_back(chip);
      }
    }
  }
  return chips;
}

}  // namespace

// Each sensor is read every time, so that its limit knows what it was before.
bool DriveHeat::is_measured_too_hot(const fs::path &device) {
  constexpr std::string_view input = "_input";
  bool any = false;
  for (const fs::path &chip : chips_of(device)) {
    for (const fs::path &file : entries(chip, "temp")) {
      const std::string name = file.filename();
      if (name.ends_with(input)) {
        any = limits_.is_critical(chip, name.substr(0, name.size() - input.size())) || any;
      }
    }
  }
  return any;
}

bool DriveHeat::is_too_hot(const fs::path &device, const DriveReport &report) {
  Known &known = known_[device];
  const SmartReport &smart = report.smart;
  if (smart.state == SmartReport::State::Answers && report.answered != known.answered) {
    const bool is_told = smart.temperature && smart.critical_temperature;
    const auto degrees = [](std::int64_t temperature) { return static_cast<double>(temperature); };
    known.by_report = is_told && is_reached(degrees(*smart.temperature) - degrees(*smart.critical_temperature),
                                            hysteresis, known.by_report);
    known.by_chips = is_measured_too_hot(device);
    known.answered = report.answered;
  }
  return known.by_report || known.by_chips;
}

}  // namespace tavo::service
