// Whether the server is on, and its locator LED.
#pragma once

#include <optional>

#include "hardware/ipmi_device.h"
#include "service/inventory.h"

namespace tavo::service {

enum class Locator { NotTold, Off, Lit };

struct IpmiChassis {
  bool is_on;
  Locator locator;
};

// From the answer to "get chassis status"; nothing if it is cut short.
std::optional<IpmiChassis> decode_chassis(const IpmiOctets &answer);

// Throws IpmiSilence. Nothing if the controller refuses.
std::optional<IpmiChassis> read_chassis(IpmiDevice &device);

void enter_chassis(Inventory &inventory, const IpmiChassis &chassis);

}  // namespace tavo::service
