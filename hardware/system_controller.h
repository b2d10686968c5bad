// The controller that stands for the operating system: all its drives and arrays are this one's.
//
// The table of drives has one row for each slot number, and each controller that shows drives has a row for each of its
// slots, empty ones too. With several of them, the empty slots of one would hide the drives of another.
#pragma once

#include "service/inventory.h"

namespace tavo::service {

inline constexpr const char *system_location = "SYSTEM";

// The name under which the tables know it.
inline const std::string system_dn = std::string("sys/rack-unit-1/board/storage-SAS-") + system_location;

// The inventory's; it is added if it is not there yet.
RaidController &system_controller(Inventory &inventory);

}  // namespace tavo::service
