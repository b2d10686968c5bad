// Adapter cards: the PCI devices in slots, as the firmware or the kernel names these.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "hardware/ethtool.h"
#include "hardware/kernel_events.h"
#include "hardware/limits.h"
#include "hardware/pci.h"
#include "hardware/register.h"
#include "hardware/source.h"
#include "hardware/vital_product_data.h"

namespace tavo::service {

class AdapterSource : public Source {
 public:
  using FirmwareOf = std::function<std::string(const std::string &interface)>;

  // `numbers` outlives the source. It keeps each slot's number, and which slots should have a card. `firmware_of` tells
  // the version of a network interface's firmware.
  AdapterSource(Roots roots, Register &numbers, FirmwareOf firmware_of = interface_firmware);

  std::string_view name() const override { return "adapters"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(30); }
  int watch() const override { return events_.descriptor(); }
  Finding read() override;

 private:
  struct Slot {
    std::string name;
    std::int64_t number;  // on the board; 0: not known
  };
  struct Card {
    Slot slot;
    std::vector<PciDevice> functions;
  };

  // By the address of the card, or of the bridge in front of it. Those of the kernel are without the function.
  using Slots = std::map<std::string, Slot>;

  static Slots::const_iterator slot_of(const PciDevice &device, const Slots &slots);
  const Slots &named_slots();
  Slots slots();
  std::vector<Card> cards();
  const VitalProductData &product_data(const PciDevice &device);
  std::string firmware(const Card &card) const;
  Part adapter_part(const Card &card);

  const Roots roots_;
  Register &numbers_;
  const FirmwareOf firmware_of_;
  PciBus pci_;
  ChipLimits limits_;
  KernelEvents events_{"pci", "net"};
  std::optional<Slots> named_slots_;                      // by SMBIOS; nothing: not read yet
  std::map<std::string, VitalProductData> product_data_;  // of the cards that are there, by address
};

}  // namespace tavo::service
