// Fans in the inventory. A fan is two sensors there: its speed, and whether it is there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "service/inventory.h"

namespace tavo::service {

struct Fan {
  bool has_failed = false;
  std::string_view presence = "present";  // as a sensor's field of that name is written
};

// Adds all fans of the server's own, in the order of their positions from 0.
void enter_fans(Inventory &inventory, const std::vector<Fan> &fans);

// The number by which a fan's faults know it.
std::int64_t fan_unit(std::size_t position, std::size_t count);

// Adds the fan of the power supply with this number, from 1. To be called after enter_fans().
void enter_supply_fan(Inventory &inventory, std::int64_t supply, std::string_view presence);

}  // namespace tavo::service
