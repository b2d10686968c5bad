// Limits that a reading reaches, and leaves only once it is some way back: the hysteresis. A reading that wavers around
// its limit is one condition.
#pragma once

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>

namespace tavo::service {

// `distance` is how far the reading is beyond the limit: 0 at the limit, negative before it. `before` is whether it was
// reached at the last reading.
bool is_reached(double distance, double hysteresis, bool before);

// The limits that chips of hwmon state for what they measure, and which of them were reached at the last reading.
class ChipLimits {
 public:
  // Whether the temperature, such as "temp1", is at its critical limit, or above. It is good again below the limit's
  // hysteresis or, if the chip states none, 3 degrees below the limit. A chip without the limit has no critical
  // temperature, and a temperature that cannot be read stays what it was.
  bool is_critical(const std::filesystem::path &chip, const std::string &sensor);

  // Whether any temperature of the chip is, or the chip has an alarm that says so.
  bool is_any_critical(const std::filesystem::path &chip);

  // Whether the fan, such as "fan1", has failed by its chip's alarm, or turns more slowly than its lowest speed. It is
  // good again without the alarm, and 5 % above that speed.
  bool is_too_slow(const std::filesystem::path &chip, const std::string &fan, std::int64_t turns);

 private:
  // Notes whether the limit of a sensor is reached.
  bool note(const std::filesystem::path &key, double distance, double hysteresis);

  std::set<std::filesystem::path> reached_;
};

}  // namespace tavo::service
