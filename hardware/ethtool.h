// What a network interface's driver says of it, which is in no file.
#pragma once

#include <string>

namespace tavo::service {

// The version of the firmware that the interface runs; empty if the driver does not tell.
std::string interface_firmware(const std::string &interface);

}  // namespace tavo::service
