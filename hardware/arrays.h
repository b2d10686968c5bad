// The kernel's RAID arrays (md), as volumes of the operating system's controller.
#pragma once

#include "hardware/register.h"
#include "hardware/source.h"

namespace tavo::service {

class ArraySource : public Source {
 public:
  // `numbers` outlives the source. It keeps each array's number.
  ArraySource(Roots roots, Register &numbers) : roots_(std::move(roots)), numbers_(numbers) {}

  std::string_view name() const override { return "arrays"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(10); }
  Finding read() override;

 private:
  const Roots roots_;
  Register &numbers_;
};

}  // namespace tavo::service
