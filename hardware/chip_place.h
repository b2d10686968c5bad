// Where the chips of hwmon are.
#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace tavo::service {

// The chips in a directory such as /sys/class/hwmon, by their places, which are the same after each start of the
// machine: the device that a chip is, or is part of. Several chips of one device come in the order of their numbers. A
// chip whose I2C bus has no lasting name yet, or is just going, is left out.
std::map<std::string, std::filesystem::path> chips_by_place(const std::filesystem::path &directory);

}  // namespace tavo::service
