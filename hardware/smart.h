// What a drive says of its own health, by smartctl of smartmontools.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tavo::service {

struct SmartReport {
  enum class State { Answers, Sleeps, Silent };
  State state = State::Silent;
  std::string why_silent;       // Silent
  std::optional<bool> healthy;  // nothing: the drive does not tell
  // An NVMe drive says so itself: hotter than its limit, or colder. That alone does not make it one that is failing.
  std::optional<bool> has_bad_temperature;
  std::optional<std::int64_t> temperature;  // degrees Celsius
  std::optional<std::int64_t> critical_temperature;
  std::string firmware;  // empty: not known, like the next
  std::string model;
};

// What smartctl's JSON says. Never throws: what is no JSON, or lacks everything, is a silent drive.
SmartReport parse_smart(std::string_view json);

}  // namespace tavo::service
