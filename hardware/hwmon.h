// Temperatures, fans and power as the kernel's drivers measure them.
#pragma once

#include "hardware/source.h"

namespace tavo::service {

class HwmonSource : public Source {
 public:
  explicit HwmonSource(Roots roots) : roots_(std::move(roots)) {}

  std::string_view name() const override { return "hwmon"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(10); }
  Finding read() override;

 private:
  const Roots roots_;
};

}  // namespace tavo::service
