// The kernel's RAID arrays (md), as volumes of the operating system's controller.
#pragma once

#include <functional>
#include <string>

#include "hardware/file_events.h"
#include "hardware/register.h"
#include "hardware/source.h"
#include "hardware/udev_property.h"

namespace tavo::service {

class ArraySource : public Source {
 public:
  using PropertyOf = std::function<std::string(const std::string &device, const std::string &property)>;

  // `numbers` outlives the source. It keeps each array's number, and which arrays should be there. `property_of` tells
  // what udevd knows of a device.
  ArraySource(Roots roots, Register &numbers, PropertyOf property_of = udev_property)
      : roots_(std::move(roots)),
        numbers_(numbers),
        property_of_(std::move(property_of)),
        events_(roots_.proc / "mdstat") {}

  std::string_view name() const override { return "arrays"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(10); }
  int watch() const override { return events_.descriptor(); }
  Finding read() override;

 private:
  std::string key_of(const std::filesystem::path &disk);

  const Roots roots_;
  Register &numbers_;
  const PropertyOf property_of_;
  FileEvents events_;
};

}  // namespace tavo::service
