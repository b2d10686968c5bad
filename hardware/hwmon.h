// Temperatures, fans and power as the kernel's drivers measure them.
#pragma once

#include "hardware/fans.h"
#include "hardware/kernel_events.h"
#include "hardware/limits.h"
#include "hardware/register.h"
#include "hardware/source.h"

namespace tavo::service {

class HwmonSource : public Source {
 public:
  // `numbers` outlives the source. It keeps the place of each fan.
  HwmonSource(Roots roots, Register &numbers) : roots_(std::move(roots)), fans_(numbers, "hwmon-fan") {}

  std::string_view name() const override { return "hwmon"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(10); }
  // Chips that come and go, and the alarms that some drivers tell of.
  int watch() const override { return events_.descriptor(); }
  Finding read() override;

 private:
  const Roots roots_;
  KernelEvents events_{"hwmon"};
  ChipLimits limits_;
  FanPlaces fans_;
};

}  // namespace tavo::service
