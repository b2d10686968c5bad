// Temperatures, fans and power as the kernel's drivers measure them.
#pragma once

#include "hardware/kernel_events.h"
#include "hardware/register.h"
#include "hardware/source.h"

namespace tavo::service {

// What some chip measures at the moment.
struct Measured {
  bool fans;
  bool processors;  // their temperatures
};

// Says of what the kernel's drivers already tell, so that another source need not show it a second time.
Measured measured_by_hwmon(const std::filesystem::path &sys);

class HwmonSource : public Source {
 public:
  // `numbers` outlives the source. It keeps the place of each fan.
  HwmonSource(Roots roots, Register &numbers) : roots_(std::move(roots)), numbers_(numbers) {}

  std::string_view name() const override { return "hwmon"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(10); }
  // Chips that come and go, and the alarms that some drivers tell of.
  int watch() const override { return events_.descriptor(); }
  Finding read() override;

 private:
  const Roots roots_;
  Register &numbers_;
  KernelEvents events_{"hwmon"};
  std::int64_t places_ = 0;  // of fans, also of those that have gone
};

}  // namespace tavo::service
