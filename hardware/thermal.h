// Thermal zones of the kernel: temperatures of processors on machines without a driver of hwmon for them.
#pragma once

#include "hardware/source.h"

namespace tavo::service {

// Zones have no numbers of processors, so they tell of a server with one processor only. They raise no fault: at a
// zone's critical temperature, the kernel switches the machine off.
class ThermalSource : public Source {
 public:
  explicit ThermalSource(Roots roots) : roots_(std::move(roots)) {}

  std::string_view name() const override { return "thermal"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(30); }
  Finding read() override;

 private:
  const Roots roots_;
};

}  // namespace tavo::service
