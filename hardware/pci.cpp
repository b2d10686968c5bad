#include "hardware/pci.h"

extern "C" {
#include <pci/pci.h>
}

#include <array>
#include <cstdlib>
#include <map>

#include "hardware/sysfs.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

void ignore(char *, ...) {}

// No function that is called here calls it.
[[noreturn]] void give_up(char *, ...) {
  std::abort();
}

// Names come from files only. pci_init(), which would look for a way to the devices and ends the program if there is
// none, is not called, so its messages' handlers are ours.
struct Names {
  Names() : access(pci_alloc()) {
    access->debug = ignore;
    access->warning = ignore;
    access->error = give_up;
  }
  Names(const Names &) = delete;
  Names &operator=(const Names &) = delete;
  ~Names() { pci_cleanup(access); }

  pci_access *access;
};

// A number that the kernel writes in hexadecimal, after "0x"; 0 if it cannot be read.
std::uint32_t hexadecimal(const fs::path &file) {
  return static_cast<std::uint32_t>(std::strtoul(read_attribute(file).value_or("").c_str(), nullptr, 16));
}

std::string without_prefix(const std::string &number) {
  return number.starts_with("0x") ? number.substr(2) : number;
}

// The name that the list has, or the number.
std::string look_up(const Names &names, int what, std::uint32_t vendor, std::uint32_t device) {
  std::array<char, 256> text{};
  const char *name = pci_lookup_name(names.access, text.data(), static_cast<int>(text.size()), what,
                                     static_cast<int>(vendor), static_cast<int>(device));
  return name != nullptr ? name : "";
}

// The slots' names by the address that a device in them has, which lacks the function.
std::map<std::string, std::string> slots_by_address(const fs::path &sys) {
  std::map<std::string, std::string> slots;
  for (const fs::path &slot : entries(sys / "bus/pci/slots")) {
    slots[read_attribute(slot / "address").value_or("")] = slot.filename();
  }
  return slots;
}

}  // namespace

std::vector<PciDevice> pci_devices(const fs::path &sys) {
  const Names names;
  const auto slots = slots_by_address(sys);
  std::vector<PciDevice> devices;
  for (const fs::path &entry : entries(sys / "bus/pci/devices")) {
    const std::uint32_t vendor = hexadecimal(entry / "vendor");
    const std::uint32_t device = hexadecimal(entry / "device");
    const std::string address = entry.filename();
    const auto slot = slots.find(address.substr(0, address.find('.')));
    devices.push_back({.address = address,
                       .device_class = hexadecimal(entry / "class"),
                       .vendor = look_up(names, PCI_LOOKUP_VENDOR, vendor, device),
                       .device = look_up(names, PCI_LOOKUP_DEVICE, vendor, device),
                       .revision = without_prefix(read_attribute(entry / "revision").value_or("")),
                       .slot = slot != slots.end() ? slot->second : ""});
  }
  return devices;
}

}  // namespace tavo::service
