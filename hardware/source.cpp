#include "hardware/source.h"

namespace tavo::service {

// A warning: whoever has taken the part out for good knows, and says so.
Trouble missing(Trouble part, const MissingPart &missing) {
  part.severity = "warning";
  part.cause = cause::missing;
  part.description += " is missing";
  part.missing = missing;
  return part;
}

Inventory unknown_server() {
  Inventory inventory;
  for (const std::string_view field : {"description", "product-name", "product-id", "serial", "uuid"}) {
    inventory.server.set(field, "");
  }
  inventory.server.set("board-readable", "no");
  inventory.sd.controller.set("present", "no");
  return inventory;
}

}  // namespace tavo::service
