// The controller that stands for the operating system: all its drives and arrays are this one's.
//
// The table of drives has one row for each slot number, and each controller that shows drives has a row for each of its
// slots, empty ones too. With several of them, the empty slots of one would hide the drives of another.
#pragma once

#include <string>

#include "service/inventory.h"

namespace tavo::service {

inline constexpr const char *system_location = "SYSTEM";

// The controllers in the register, by their PCI addresses.
inline constexpr const char *controller_group = "controller";

// The name under which the tables know the controller at a location.
inline std::string storage_dn(const std::string &location) {
  return "sys/rack-unit-1/board/storage-SAS-" + location;
}

// The name under which the tables know it.
inline const std::string system_dn = storage_dn(system_location);

// The inventory's; it is added if it is not there yet.
RaidController &system_controller(Inventory &inventory);

}  // namespace tavo::service
