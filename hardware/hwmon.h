// Temperatures, fans, power and power supplies as the kernel's drivers measure them.
#pragma once

#include "hardware/fans.h"
#include "hardware/kernel_events.h"
#include "hardware/limits.h"
#include "hardware/register.h"
#include "hardware/source.h"

namespace tavo::service {

class HwmonSource : public Source {
 public:
  // `numbers` outlives the source. It keeps the places of fans and supplies.
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
  ChipLimits limits_;
  FanPlaces fans_{numbers_, "hwmon-fan"};
};

}  // namespace tavo::service
