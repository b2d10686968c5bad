#include "hardware/system_controller.h"

#include <algorithm>

namespace tavo::service {

RaidController &system_controller(Inventory &inventory) {
  const auto found = std::ranges::find_if(inventory.controllers, [](const RaidController &controller) {
    return controller.part.text("location") == system_location;
  });
  if (found != inventory.controllers.end()) {
    return *found;
  }
  RaidController &controller = inventory.controllers.emplace_back();
  controller.part.set("id", "0");
  controller.part.set("mode", "2");
  controller.part.set("location", system_location);
  controller.part.set("description", "Drives and arrays of the operating system");
  return controller;
}

}  // namespace tavo::service
