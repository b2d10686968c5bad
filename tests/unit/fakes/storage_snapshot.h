// The storage snapshot as the storage agent writes it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/storage_snapshot.h"
#include "tests/unit/fakes/record.h"

namespace fakes {

using StorDrive = PlatformRecord<STOR_DRIVE_SIZE>;
using StorVolume = PlatformRecord<STOR_VOLUME_SIZE>;
using StorRecord = PlatformRecord<STOR_CONTROLLER_SIZE>;

// A drive with a name in this slot.
StorDrive drive_in(std::uint32_t slot);

// A controller that shows its drives (mode 2), with these in it and their numbers in its counts.
StorRecord controller(const std::string &location, const std::vector<StorDrive> &drives = {},
                      const std::vector<StorVolume> &volumes = {});

// The file with these records, and with their number as its count unless another is given.
std::string snapshot(const std::vector<StorRecord> &controllers);
std::string snapshot(std::int32_t count, const std::vector<StorRecord> &controllers);

}  // namespace fakes
