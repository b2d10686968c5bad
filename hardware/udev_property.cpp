#include "hardware/udev_property.h"

#include <libudev.h>

#include <memory>

namespace tavo::service {

std::string udev_property(const std::string &device, const std::string &property) {
  const std::unique_ptr<udev, decltype(&udev_unref)> context(udev_new(), udev_unref);
  if (!context) {
    return "";
  }
  const std::unique_ptr<udev_device, decltype(&udev_device_unref)> found(
      udev_device_new_from_subsystem_sysname(context.get(), "block", device.c_str()), udev_device_unref);
  const char *value = found ? udev_device_get_property_value(found.get(), property.c_str()) : nullptr;
  return value != nullptr ? value : "";
}

}  // namespace tavo::service
