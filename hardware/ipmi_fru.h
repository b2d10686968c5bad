// FRU areas: what a part says of itself (IPMI Platform Management FRU Information Storage Definition).
#pragma once

#include <optional>
#include <string>

#include "hardware/ipmi_device.h"

namespace tavo::service {

// Texts are one line, and empty if the area lacks them.
struct IpmiFru {
  std::string board_manufacturer{};
  std::string board_product{};
  std::string board_serial{};
  std::string product_name{};
  std::string product_part{};
  std::string product_version{};
  std::string product_serial{};
  std::optional<unsigned> supply_capacity{};  // watts

  bool operator==(const IpmiFru &) const = default;
};

// As much as can be read: a part of the area that is cut short, or has a wrong checksum, says nothing.
IpmiFru decode_fru(const IpmiOctets &area);

}  // namespace tavo::service
