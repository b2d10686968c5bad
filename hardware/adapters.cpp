#include "hardware/adapters.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <set>
#include <system_error>

#include "core/class_number.h"
#include "core/descriptor.h"
#include "hardware/set_line.h"
#include "hardware/smbios.h"
#include "hardware/sysfs.h"
#include "service/affected.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

// The adapters in the register.
constexpr const char *adapter_group = "adapter";

// What is in a slot but is no adapter: bridges, and drives, which have a table of their own.
bool is_adapter(const PciDevice &device) {
  constexpr std::uint32_t bridge = 0x06;
  constexpr std::uint32_t nvme_drive = 0x0108;
  return device.device_class >> 16 != bridge && device.device_class >> 8 != nvme_drive;
}

// The number that a text is; 0 if it is none.
std::int64_t number_in(const std::string &text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? number : 0;
}

VitalProductData read_product_data(const fs::path &file) {
  constexpr std::size_t most = 32 * 1024;
  std::vector<std::byte> octets(most);
  const Descriptor opened = open_for_reading(file.c_str());
  octets.resize(opened ? read_up_to(opened, octets) : 0);
  return parse_vital_product_data(octets);
}

// The version that the driver of a storage or InfiniBand adapter tells.
std::string told_by_driver(const fs::path &device) {
  constexpr auto scsi_files =
      std::to_array<const char *>({"version_fw", "firmware_version", "firmware_revision", "fw_version", "fwrev"});
  for (const fs::path &adapter : entries(device / "infiniband")) {
    if (const auto version = read_attribute(adapter / "fw_ver")) {
      return *version;
    }
  }
  for (const fs::path &host : entries(device, "host")) {
    for (const char *file : scsi_files) {
      if (const auto version = read_attribute(host / "scsi_host" / host.filename() / file)) {
        return *version;
      }
    }
  }
  return "";
}

bool is_too_hot(const fs::path &device, ChipLimits &limits) {
  bool any = false;
  for (const fs::path &chip : entries(device / "hwmon", "hwmon")) {
    any = limits.is_any_critical(chip) || any;
  }
  return any;
}

// Without its severity, and with a description that only names the card.
Trouble trouble(const std::string &slot, std::int64_t number, const std::string &name, const std::string &what) {
  return {.key = "adapter " + slot + ' ' + what,
          .class_code = class_number::adaptor,
          .unit = number,
          .description = "Adapter " + std::to_string(number) + " (" + name + ", slot " + slot + ')'};
}

Trouble missing_card(const std::string &slot, const MissingPart &card) {
  Trouble gone = missing(trouble(slot, card.number, card.name, "gone"), card);
  // There is no row for it: the identifier is the server's.
  gone.affected = affected_server().dn + "/adaptor-" + std::to_string(card.number);
  gone.affected_oid = affected_server().oid;
  return gone;
}

}  // namespace

AdapterSource::AdapterSource(Roots roots, Register &numbers, FirmwareOf firmware_of)
    : roots_(std::move(roots)), numbers_(numbers), firmware_of_(std::move(firmware_of)), pci_(roots_.sys) {}

// The table never changes.
const AdapterSource::Slots &AdapterSource::named_slots() {
  if (named_slots_) {
    return *named_slots_;
  }
  named_slots_.emplace();
  try {
    for (const SystemSlot &slot : system_slots(smbios_table(roots_))) {
      const std::string name = slot.name.empty() ? slot.address : slot.name;
      (*named_slots_)[slot.address] = {.name = name, .number = slot.number};
    }
  } catch (const std::system_error &) {
    // The source of what else is in the table tells why it cannot be read.
  }
  return *named_slots_;
}

// A card is known by its slot's name, which must not depend on the other cards. The firmware's slots never change, and
// those of the kernel, which come and go with its drivers, have each a name of their own among themselves.
AdapterSource::Slots AdapterSource::slots() {
  Slots slots;
  std::set<std::string> names;
  std::set<std::string> devices;
  for (const auto &[address, slot] : named_slots()) {
    const bool is_free = names.insert(slot.name).second;
    slots[address] = {.name = is_free ? slot.name : slot.name + " (" + address + ')', .number = slot.number};
    devices.insert(without_function(address));
  }
  for (const auto &[address, name] : pci_.slots()) {
    if (!devices.contains(address)) {
      slots[address] = {.name = names.contains(name) ? name + " (" + address + ')' : name, .number = number_in(name)};
    }
  }
  return slots;
}

// A card's functions are at the address of its slot, or behind the bridge at that address. The functions of a card
// share its slot, but the ports of a bridge, which are functions as well, have a slot each.
AdapterSource::Slots::const_iterator AdapterSource::slot_of(const PciDevice &device, const Slots &slots) {
  auto slot = slots.end();
  for (const fs::path &element : device.directory) {
    for (const std::string &address : {without_function(element), element.string()}) {
      const auto found = slots.find(address);
      slot = found != slots.end() ? found : slot;
    }
  }
  const std::string card = without_function(device.address);
  const auto first = slots.lower_bound(card);
  const bool is_there =
      slots.contains(device.address) || first == slots.end() || without_function(first->first) != card;
  return is_there ? slot : first;
}

std::vector<AdapterSource::Card> AdapterSource::cards() {
  const auto known = slots();
  std::map<std::string, Card> by_slot;
  for (const PciDevice &device : pci_.devices()) {
    const auto slot = slot_of(device, known);
    if (slot != known.end() && is_adapter(device)) {
      Card &card = by_slot[slot->first];
      card.slot = slot->second;
      card.functions.push_back(device);
    }
  }
  std::vector<Card> cards;
  for (auto &[address, card] : by_slot) {
    cards.push_back(std::move(card));
  }
  // Slots with a number of their own come first, before another slot gets it.
  std::stable_partition(cards.begin(), cards.end(), [](const Card &card) { return card.slot.number != 0; });
  return cards;
}

const VitalProductData &AdapterSource::product_data(const PciDevice &device) {
  const auto known = product_data_.find(device.address);
  return known != product_data_.end() ? known->second
                                      : product_data_[device.address] = read_product_data(device.directory / "vpd");
}

std::string AdapterSource::firmware(const Card &card) const {
  for (const PciDevice &function : card.functions) {
    for (const fs::path &interface : entries(function.directory / "net")) {
      const std::string version = firmware_of_(interface.filename());
      if (!version.empty()) {
        return version;
      }
    }
    const std::string version = told_by_driver(function.directory);
    if (!version.empty()) {
      return version;
    }
  }
  return "";
}

Part AdapterSource::adapter_part(const Card &card) {
  const PciDevice &first = card.functions.front();
  const VitalProductData &data = product_data(first);
  const PciNames &names = first.names;
  const std::string &own_name = data.product.empty() ? names.device : data.product;
  Part part(adapter_kind);
  part.set_number("slot", numbers_.number_of(adapter_group, card.slot.name, card.slot.number));
  set_line(part, "product-id", names.card.empty() ? own_name : names.card);
  set_line(part, "serial", data.serial);
  set_line(part, "part-number", data.part_number);
  set_line(part, "running-version", firmware(card));
  bool hot = false;
  for (const PciDevice &function : card.functions) {
    hot = is_too_hot(function.directory, limits_) || hot;
  }
  part.set("over-temperature", hot ? "yes" : "no");
  return part;
}

Finding AdapterSource::read() {
  events_.take();
  Finding finding;
  std::vector<Part> parts;
  std::map<std::string, std::string> present;
  std::set<std::string> addresses;
  for (const Card &card : cards()) {
    addresses.insert(card.functions.front().address);
    const Part &part = parts.emplace_back(adapter_part(card));
    present[card.slot.name] = part.text("product-id");
    if (part.flag("over-temperature")) {
      Trouble hot = trouble(card.slot.name, part.number("slot"), part.text("product-id"), "too hot");
      hot.severity = "major";
      hot.description += " is at its critical temperature";
      finding.troubles.push_back(hot);
    }
  }
  for (const auto &[slot, card] : missing_parts(numbers_, adapter_group, present)) {
    finding.troubles.push_back(missing_card(slot, card));
  }
  // A card that takes another's place is read anew.
  std::erase_if(product_data_, [&](const auto &known) { return !addresses.contains(known.first); });
  std::ranges::sort(parts, {}, [](const Part &part) { return part.number("slot"); });
  finding.enter = [parts](Inventory &inventory) { inventory.adapters = parts; };
  return finding;
}

}  // namespace tavo::service
