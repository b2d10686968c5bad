// Where a drive is plugged in.
#pragma once

#include <filesystem>
#include <string>

namespace tavo::service {

// The directory in /sys/devices that an entry of /sys/block stands for; empty if it cannot be told. An NVMe drive that
// may have several controllers is shown by the kernel as a device of its own, beside links to the controllers: the
// directory is then what it would be with the first controller alone.
std::filesystem::path device_of(const std::filesystem::path &disk);

// The place of the drive with this directory, in words that are the same after each boot, whatever is plugged in
// elsewhere: the PCI address of its controller and the way from there, as "0000:00:1f.2 port 3 0:0:0".
std::string place_of(const std::filesystem::path &device);

}  // namespace tavo::service
