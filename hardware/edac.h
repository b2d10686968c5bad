// Memory errors that the kernel counts (error detection and correction).
#pragma once

#include "hardware/source.h"

namespace tavo::service {

class EdacSource : public Source {
 public:
  explicit EdacSource(Roots roots) : roots_(std::move(roots)) {}

  std::string_view name() const override { return "EDAC"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(10); }
  Finding read() override;

 private:
  const Roots roots_;
};

}  // namespace tavo::service
