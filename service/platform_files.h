// The files that the platform's daemons keep up to date: the power supplies' readings, the storage snapshot and the
// memory voltage.
#pragma once

#include <cstdint>
#include <filesystem>

#include "service/inventory.h"

namespace tavo::service {

// Damage done to the storage snapshot on purpose.
struct SnapshotDamage {
  enum class Kind { None, Missing, Empty, Truncated, WrongCount };
  Kind kind = Kind::None;
  std::int64_t number = 0;  // Truncated: the octets that are left; WrongCount: the count of controllers to write
};

// Writes all of these files under `var`, which is /var on a controller. Throws std::system_error if a file cannot be
// written.
void write_platform_files(const Inventory &inventory, const SnapshotDamage &damage, const std::filesystem::path &var);

}  // namespace tavo::service
