// The file that describes a simulated server.
#pragma once

#include <filesystem>

#include "service/inventory.h"

namespace tavo::service {

// Reads a scenario, a YAML file. Throws BadInput, which names the file, the line, the part and the mistake.
Inventory load_scenario(const std::filesystem::path &file);

}  // namespace tavo::service
