#include "hardware/drive_heat.h"

#include <algorithm>
#include <string>

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

void DriveHeat::take_report(Known &known, const SmartReport &smart) {
  if (smart.state == SmartReport::State::Answers) {
    // A drive without such a limit may state 0.
    const bool is_told = smart.temperature && smart.critical_temperature.value_or(0) > 0;
    const auto degrees = [](std::int64_t temperature) { return static_cast<double>(temperature); };
    known.by_report = is_told && is_reached(degrees(*smart.temperature) - degrees(*smart.critical_temperature),
                                            hysteresis, known.by_report.value_or(false));
  } else if (smart.state == SmartReport::State::Sleeps && known.by_report) {
    known.by_report = false;
  }
}

void DriveHeat::measure(Known &known, const fs::path &device) {
  const auto chips = chips_of(device);
  bool any = false;
  for (const fs::path &chip : chips) {
    any = known.limits.is_any_critical(chip) || any;
  }
  known.by_chips = chips.empty() ? known.by_chips : any;
}

// A drive that does not answer is not measured: the kernel might wait for it as long.
std::optional<bool> DriveHeat::is_too_hot(const AskedDrive &drive, const fs::path &device, const DriveReport &report) {
  Known &known = known_[drive];
  const bool is_new = report.count != known.count;
  const bool is_nvme = device.filename().string().starts_with("nvme");
  const bool sleeps = report.smart.state == SmartReport::State::Sleeps && !is_nvme;
  if (is_new) {
    take_report(known, report.smart);
    known.count = report.count;
  }
  if (sleeps && known.by_chips) {
    known.by_chips = false;
    known.limits = {};
  } else if (!sleeps && (is_new || is_nvme) && report.is_known && report.times_unanswered == 0) {
    measure(known, device);
  }
  return known.by_report || known.by_chips
             ? std::optional(known.by_report.value_or(false) || known.by_chips.value_or(false))
             : std::nullopt;
}

void DriveHeat::forget_all_but(const std::vector<AskedDrive> &drives) {
  std::erase_if(known_, [&](const auto &entry) { return std::ranges::find(drives, entry.first) == drives.end(); });
}

}  // namespace tavo::service
