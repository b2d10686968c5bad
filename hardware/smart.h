// What a drive says of its own health, by smartctl of smartmontools.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tavo::service {

struct SmartReport {
  enum class State { Answers, Sleeps, Silent };
  State state = State::Silent;
  std::string why_silent;       // Silent
  std::optional<bool> healthy;  // nothing: the drive does not tell
  std::string serial;           // empty: not known, like the next two
  std::string firmware;
  std::string model;
  std::optional<int> temperature;  // degrees Celsius
};

// What smartctl's JSON says. Never throws: what is no JSON, or lacks everything, is a silent drive.
SmartReport parse_smart(std::string_view json);

// Asks a drive, and does not wake it if it sleeps. Waits for as long as the drive takes. `program` is searched in PATH.
SmartReport ask_drive(const std::string &program, const std::string &device);

}  // namespace tavo::service
