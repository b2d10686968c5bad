// What an adapter says of itself: the vital product data of a PCI device.
#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace tavo::service {

// As told_text() gives them; empty if they are not there.
struct VitalProductData {
  std::string product;
  std::string part_number;
  std::string serial;
};

// Reads as far as the octets make sense.
VitalProductData parse_vital_product_data(std::span<const std::byte> octets);

}  // namespace tavo::service
