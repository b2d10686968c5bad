#include "hardware/pci.h"

extern "C" {
#include <pci/pci.h>
}

#include <array>
#include <cstdlib>
#include <optional>
#include <system_error>

#include "hardware/sysfs.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

void ignore(char *, ...) {}

// No function that is called here calls it.
[[gnu::noreturn]] void give_up(char *, ...) {
  std::abort();
}

// Names come from files only. pci_init(), which would look for a way to the devices and ends the program if there is
// none, is not called, so its messages' handlers are ours.
struct List {
  List() : access(pci_alloc()) {
    access->debug = ignore;
    access->warning = ignore;
    access->error = give_up;
  }
  List(const List &) = delete;
  List &operator=(const List &) = delete;
  ~List() { pci_cleanup(access); }

  pci_access *access;
};

// A number that the kernel writes in hexadecimal, after "0x"; 0 if it cannot be read.
std::uint32_t hexadecimal(const fs::path &file) {
  return static_cast<std::uint32_t>(std::strtoul(read_attribute(file).value_or("").c_str(), nullptr, 16));
}

std::string without_prefix(const std::string &number) {
  return number.starts_with("0x") ? number.substr(2) : number;
}

// The name of what these numbers stand for; empty if the list has none and the numbers are not wanted in its place.
template <class... Numbers>
std::string look_up(const List &list, int what, Numbers... numbers) {
  std::array<char, 256> text{};
  const char *name = pci_lookup_name(list.access, text.data(), static_cast<int>(text.size()), what, numbers...);
  return name != nullptr ? name : "";
}

}  // namespace

bool is_pci_address(std::string_view name) {
  constexpr std::string_view form = "0000:00:00.0";
  if (name.size() < form.size()) {
    return false;
  }
  const std::string_view end = name.substr(name.size() - form.size());
  return end[4] == ':' && end[7] == ':' && end[10] == '.';
}

std::string without_function(const std::string &address) {
  return address.substr(0, address.find('.'));
}

std::string location_of(const std::string &address, const std::map<std::string, std::string> &slots) {
  const auto slot = slots.find(without_function(address));
  return slot == slots.end() ? address : "SLOT-" + slot->second;
}

std::vector<PciDevice> PciBus::devices() {
  std::optional<List> list;
  std::vector<PciDevice> devices;
  for (const fs::path &entry : entries(sys_ / "bus/pci/devices")) {
    Numbers numbers;
    for (const char *file : {"vendor", "device", "subsystem_vendor", "subsystem_device"}) {
      numbers.push_back(hexadecimal(entry / file));
    }
    if (!known_.contains(numbers)) {
      if (!list) {
        list.emplace();
      }
      constexpr int card = PCI_LOOKUP_DEVICE | PCI_LOOKUP_SUBSYSTEM | PCI_LOOKUP_NO_NUMBERS;
      known_[numbers] = {.vendor = look_up(*list, PCI_LOOKUP_VENDOR, numbers[0]),
                         .device = look_up(*list, PCI_LOOKUP_DEVICE, numbers[0], numbers[1]),
                         .card = look_up(*list, card, numbers[0], numbers[1], numbers[2], numbers[3])};
    }
    std::error_code error;
    const fs::path directory = fs::canonical(entry, error);
    devices.push_back({.address = entry.filename(),
                       .directory = error ? entry : directory,
                       .device_class = hexadecimal(entry / "class"),
                       .names = known_[numbers],
                       .revision = without_prefix(read_attribute(entry / "revision").value_or(""))});
  }
  return devices;
}

std::map<std::string, std::string> PciBus::slots() const {
  std::map<std::string, std::string> slots;
  for (const fs::path &slot : entries(sys_ / "bus/pci/slots")) {
    slots[read_attribute(slot / "address").value_or("")] = slot.filename();
  }
  return slots;
}

}  // namespace tavo::service
