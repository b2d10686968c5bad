// Whether drives are too hot, as the kernel measures them or they say themselves.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <vector>

#include "hardware/drive_reports.h"
#include "hardware/limits.h"

namespace tavo::service {

class DriveHeat {
 public:
  // Whether the drive with this directory in /sys/devices is at its critical temperature, or above. It is good again
  // below the limit's hysteresis; by its report, 3 degrees below. Nothing if neither it nor the kernel has told yet.
  // An NVMe drive is measured each time. Another one is measured when it has been asked for its report, and is good
  // while it sleeps: measuring it may keep it awake. One that does not answer stays as it was.
  std::optional<bool> is_too_hot(const AskedDrive &drive, const std::filesystem::path &device,
                                 const DriveReport &report);

  // Another drive that comes in the place of one of these is not what it was.
  void forget_all_but(const std::vector<AskedDrive> &drives);

 private:
  struct Known {
    int count = 0;  // of the reports, when it was last looked at
    std::optional<bool> by_report = {};
    std::optional<bool> by_chips = {};
    ChipLimits limits = {};
  };

  static void take_report(Known &known, const SmartReport &smart);
  static void measure(Known &known, const std::filesystem::path &device);

  std::map<AskedDrive, Known> known_;
};

}  // namespace tavo::service
