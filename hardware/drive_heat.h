// Whether drives are too hot, as the kernel measures them or they say themselves.
#pragma once

#include <chrono>
#include <filesystem>
#include <map>

#include "hardware/drive_reports.h"
#include "hardware/limits.h"

namespace tavo::service {

class DriveHeat {
 public:
  // Whether the drive with this directory in /sys/devices is at its critical temperature, or above. It is good again
  // below the limit's hysteresis; by its report, 3 degrees below. A drive is measured when it has answered, not more
  // often and not while it sleeps: measuring it may keep it awake.
  bool is_too_hot(const std::filesystem::path &device, const DriveReport &report);

 private:
  struct Known {
    std::chrono::steady_clock::time_point answered = {};
    bool by_report = false;
    bool by_chips = false;
  };

  bool is_measured_too_hot(const std::filesystem::path &device);

  ChipLimits limits_;
  std::map<std::filesystem::path, Known> known_;
};

}  // namespace tavo::service
