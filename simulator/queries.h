// What the platform's query tools print.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/inventory.h"

namespace tavo::sim {

// What `datactl get=KEY` prints, JSON; nothing for an unknown key.
std::optional<std::string> query(const Inventory &inventory, std::string_view key);
std::vector<std::string_view> query_keys();

// What `flatkv` makes of it: one line a field, a blank, the name, a colon, a blank and the value. The fields of several
// units follow each other. Nothing when `json` is not JSON.
std::optional<std::string> flattened(std::string_view json);

// What `slotutil -L` prints: the adapter cards.
std::string adapter_list(const Inventory &inventory);

// What `ipmitool fru` prints: the server's identity.
std::string fru_list(const Inventory &inventory);

}  // namespace tavo::sim
