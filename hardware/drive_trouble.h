// Faults of drives, as all sources tell of them that know something of drives.
#pragma once

#include <string>

#include "hardware/source.h"

namespace tavo::service {

// The drives in the register.
inline constexpr const char *drive_group = "drive";

// Names a condition of the drive at this place for ever: "failing".
std::string drive_trouble_key(const std::string &place, const std::string &what);

// A trouble without its severity, and with a description that only names the drive.
Trouble drive_trouble(const std::string &place, const RegisteredPart &drive, const std::string &what);

}  // namespace tavo::service
