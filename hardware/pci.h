// PCI devices as the kernel knows them, with the names that the machine's list of PCI identifiers has for them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tavo::service {

struct PciDevice {
  std::string address;         // "0000:03:00.0"
  std::uint32_t device_class;  // three octets: class, subclass, programming interface
  std::string vendor;          // in words, or four hexadecimal digits if the list has no name
  std::string device;
  std::string revision;  // two hexadecimal digits
  std::string slot;      // the name of the slot that it is in; empty: it is on the board
};

// All devices, in the order of their addresses. `sys` is where sysfs is.
std::vector<PciDevice> pci_devices(const std::filesystem::path &sys);

}  // namespace tavo::service
