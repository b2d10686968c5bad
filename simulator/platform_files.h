// The files that the platform's daemons keep for their readers: under pmbus/, the storage snapshot, the memory voltage.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "simulator/inventory.h"

namespace tavo::sim {

// How the storage snapshot is damaged on purpose.
struct SnapshotDamage {
  enum class Kind { None, Missing, Empty, Truncated, WrongCount };
  Kind kind = Kind::None;
  std::int64_t number = 0;  // Truncated: octets left; WrongCount: the count that is written
};

// The whole snapshot file, as platform/storage_snapshot.h tells.
std::vector<std::byte> storage_snapshot(const std::vector<RaidController> &controllers);

// Writes everything under `var` ("/var" on a controller). Throws std::system_error when a file cannot be written.
void write_platform_files(const Inventory &inventory, const SnapshotDamage &damage, const std::filesystem::path &var);

}  // namespace tavo::sim
