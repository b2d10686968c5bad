// What the platform's query tools print.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/inventory.h"

namespace tavo::service {

// What `datactl get=KEY` prints: JSON. Nothing if the key is unknown.
std::optional<std::string> query(const Inventory &inventory, std::string_view key);
// Every key, with a placeholder where a key contains a slot number.
std::vector<std::string_view> query_keys();

// What `flatkv` prints for that JSON: " name: value" for each field, on a line of its own. The lines of several units
// follow each other. Nothing if `json` is not JSON; what is nested more than 64 levels deep is left out.
std::optional<std::string> flattened(std::string_view json);

// What `slotutil -L` prints: the adapter cards.
std::string adapter_list(const Inventory &inventory);

// What `ipmitool fru` prints: the server's identity.
std::string fru_list(const Inventory &inventory);

}  // namespace tavo::service
