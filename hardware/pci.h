// PCI devices as the kernel knows them, with the names that the machine's list of PCI identifiers has for them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tavo::service {

// What the list of identifiers says.
struct PciNames {
  std::string vendor;  // in words, or its number if the list has no name
  std::string device;
  std::string card;  // the product that the device is part of; empty: the list has no name
};

struct PciDevice {
  std::string address;              // "0000:03:00.0"
  std::filesystem::path directory;  // in /sys/devices, below those of the bridges that lead to it
  std::uint32_t device_class;       // three octets: class, subclass, programming interface
  PciNames names;
  std::string revision;  // two hexadecimal digits
};

// Whether it has the form of a device's address; the number of the domain may be longer.
bool is_pci_address(std::string_view name);

// The address without the function: "0000:03:00".
std::string without_function(const std::string &address);

// "SLOT-4", by the slots that PciBus tells of, or the address of a device on the board, of which there may be several.
std::string location_of(const std::string &address, const std::map<std::string, std::string> &slots);

class PciBus {
 public:
  // `sys` is where sysfs is.
  explicit PciBus(std::filesystem::path sys) : sys_(std::move(sys)) {}

  // All devices, in the order of their addresses. The list of identifiers is long, so it is read only when there is a
  // device whose like has not been seen.
  std::vector<PciDevice> devices();

  // The slots that the kernel knows: their names, by the address that a device in them has, without the function.
  std::map<std::string, std::string> slots() const;

 private:
  using Numbers = std::vector<std::uint32_t>;  // vendor, device, and those of the card

  const std::filesystem::path sys_;
  std::map<Numbers, PciNames> known_;
};

}  // namespace tavo::service
