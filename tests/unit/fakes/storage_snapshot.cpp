#include "tests/unit/fakes/storage_snapshot.h"

#include <cstddef>

namespace fakes {

StorDrive drive_in(std::uint32_t slot) {
  return StorDrive().number(STOR_DRIVE_SLOT, slot).text(STOR_DRIVE_NAME, "drive " + std::to_string(slot));
}

StorRecord controller(const std::string &location, const std::vector<StorDrive> &drives,
                      const std::vector<StorVolume> &volumes) {
  StorRecord record;
  record.number(STOR_CONTROLLER_MODE, 2)
      .text(STOR_CONTROLLER_LOCATION, location)
      .number(STOR_CONTROLLER_DRIVE_COUNT, drives.size())
      .number(STOR_CONTROLLER_VOLUME_COUNT, volumes.size());
  for (std::size_t i = 0; i < drives.size(); ++i) {
    record.part(STOR_CONTROLLER_DRIVES + i * STOR_DRIVE_SIZE, drives[i]);
  }
  for (std::size_t i = 0; i < volumes.size(); ++i) {
    record.part(STOR_CONTROLLER_VOLUMES + i * STOR_VOLUME_SIZE, volumes[i]);
  }
  return record;
}

std::string snapshot(const std::vector<StorRecord> &controllers) {
  return snapshot(static_cast<std::int32_t>(controllers.size()), controllers);
}

std::string snapshot(std::int32_t count, const std::vector<StorRecord> &controllers) {
  std::string file;
  for (unsigned int shift = 0; shift < 32; shift += 8) {
    file.push_back(static_cast<char>(static_cast<std::uint32_t>(count) >> shift));
  }
  for (const StorRecord &record : controllers) {
    file.append(reinterpret_cast<const char *>(record.octets.data()), record.octets.size());
  }
  return file;
}

}  // namespace fakes
