#include "hardware/limits.h"

#include <string_view>

#include "hardware/sysfs.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t default_hysteresis = 3000;  // thousandths of a degree
constexpr std::int64_t percent_for_fans = 5;

}  // namespace

bool is_reached(double distance, double hysteresis, bool before) {
  return distance >= 0 || (before && distance > -hysteresis);
}

bool ChipLimits::note(const fs::path &key, double distance, double hysteresis) {
  const bool reached = is_reached(distance, hysteresis, reached_.contains(key));
  if (reached) {
    reached_.insert(key);
  } else {
    reached_.erase(key);
  }
  return reached;
}

bool ChipLimits::is_critical(const fs::path &chip, const std::string &sensor) {
  const fs::path key = chip / sensor;
  const auto now = read_number(chip / (sensor + "_input"));
  const auto limit = read_number(chip / (sensor + "_crit"));
  if (!now) {
    return reached_.contains(key);
  }
  if (!limit || *limit <= 0) {
    reached_.erase(key);
    return false;
  }
  const std::int64_t good = read_number(chip / (sensor + "_crit_hyst")).value_or(0);
  const std::int64_t hysteresis = good > 0 && good <= *limit ? *limit - good : default_hysteresis;
  return note(key, static_cast<double>(*now - *limit), static_cast<double>(hysteresis));
}

// Each sensor is read every time, so that its limit knows what it was before.
bool ChipLimits::is_any_critical(const fs::path &chip) {
  constexpr std::string_view input = "_input";
  bool any = false;
  for (const fs::path &file : entries(chip, "temp")) {
    const std::string name = file.filename();
    if (name.ends_with(input)) {
      const std::string sensor = name.substr(0, name.size() - input.size());
      const bool alarm = is_set(chip / (sensor + "_crit_alarm"));
      any = is_critical(chip, sensor) || alarm || any;
    }
  }
  return any;
}

bool ChipLimits::is_too_slow(const fs::path &chip, const std::string &fan, std::int64_t turns) {
  const std::int64_t least = read_number(chip / (fan + "_min")).value_or(0);
  const bool alarm = is_set(chip / (fan + "_alarm")) || is_set(chip / (fan + "_fault"));
  const double below = least > 0 ? static_cast<double>(least - turns) - 1 : -1;  // at the lowest speed it is good
  return note(chip / fan, alarm ? 0 : below, static_cast<double>(least * percent_for_fans) / 100);
}

}  // namespace tavo::service
