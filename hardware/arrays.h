// The kernel's RAID arrays (md), as volumes of the operating system's controller.
#pragma once

#include "hardware/file_events.h"
#include "hardware/register.h"
#include "hardware/source.h"

namespace tavo::service {

class ArraySource : public Source {
 public:
  // `numbers` outlives the source. It keeps each array's number.
  ArraySource(Roots roots, Register &numbers)
      : roots_(std::move(roots)), numbers_(numbers), events_(roots_.proc / "mdstat") {}

  std::string_view name() const override { return "arrays"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(10); }
  int watch() const override { return events_.descriptor(); }
  Finding read() override;

 private:
  const Roots roots_;
  Register &numbers_;
  FileEvents events_;
};

}  // namespace tavo::service
