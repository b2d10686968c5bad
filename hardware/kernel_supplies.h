// Power supplies that the kernel's drivers know: mains adapters (/sys/class/power_supply), and chips of hwmon that are
// in a supply (PMBus).
#pragma once

#include <filesystem>
#include <string>

#include "hardware/register.h"
#include "hardware/supplies.h"

namespace tavo::service {

// Whether a chip with this driver is in a server's power supply. Others of PMBus are regulators on the board.
bool is_supply_driver(const std::string &driver);

// `kept` keeps their numbers, and frees them once they have been gone for long. Nobody misses one that has gone: a
// driver that is not loaded looks the same.
Supplies kernel_supplies(const std::filesystem::path &sys, Register &kept);

}  // namespace tavo::service
