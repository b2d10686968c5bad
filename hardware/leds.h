// The server's own lights, where the kernel drives them.
#pragma once

#include "hardware/source.h"

namespace tavo::service {

class LedSource : public Source {
 public:
  explicit LedSource(Roots roots) : roots_(std::move(roots)) {}

  std::string_view name() const override { return "LEDs"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(10); }
  Finding read() override;

 private:
  const Roots roots_;
};

}  // namespace tavo::service
