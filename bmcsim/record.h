// The machine as it is, as a scenario: for whoever reports a defect, and whoever looks for it in the simulator.
#pragma once

#include "service/inventory.h"

namespace tavo::service {

// Replaces every serial number and the UUID by one that is made up. Equal ones stay equal.
void mask_serials(Inventory &inventory);

}  // namespace tavo::service
