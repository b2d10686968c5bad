// What udevd's rules have found out about a device.
#pragma once

#include <string>

namespace tavo::service {

// A property of the block device with the kernel's name "md0"; empty if udevd does not run or knows none of that name.
std::string udev_property(const std::string &device, const std::string &property);

}  // namespace tavo::service
