// The storage agent's snapshot: its count, its records' counts and contents, and where it ends.
#include <algorithm>
#include <cstring>
#include <string>

#include "fuzz/harness/platform.h"
#include "fuzz/harness/tables.h"
#include "platform/storage_snapshot.h"
#include "refresh/storage_reload.h"
#include "sources/stor_info.h"
#include "tables/storage/tavoStorageControllerTable.h"
#include "tables/storage/tavoStorageLocalDiskTable.h"
#include "tables/storage/tavoStorageLocalLunTable.h"
#include "tables/storage/tavoStorageRaidBatteryTable.h"

namespace tavo::fuzz {
namespace {

// Places where something begins that the tables read.
constexpr auto offsets = std::to_array<std::size_t>({
    STOR_CONTROLLER_ID,
    STOR_CONTROLLER_MODE,
    STOR_CONTROLLER_LOCATION,
    STOR_CONTROLLER_FAULTY,
    STOR_CONTROLLER_VENDOR,
    STOR_CONTROLLER_DESCRIPTION,
    STOR_CONTROLLER_WORD_232,
    STOR_CONTROLLER_SERIAL,
    STOR_CONTROLLER_TYPE,
    STOR_CONTROLLER_REVISION,
    STOR_CONTROLLER_VOLUME_COUNT,
    STOR_CONTROLLER_DRIVE_COUNT,
    STOR_CONTROLLER_DRIVES,
    STOR_CONTROLLER_DRIVES + STOR_DRIVE_SIZE,
    STOR_CONTROLLER_DRIVES + (STOR_DRIVE_CAPACITY - 1) * STOR_DRIVE_SIZE,
    STOR_CONTROLLER_VOLUMES,
    STOR_CONTROLLER_VOLUMES + STOR_VOLUME_SIZE,
    STOR_CONTROLLER_VOLUMES + (STOR_VOLUME_CAPACITY - 1) * STOR_VOLUME_SIZE,
    STOR_BATTERY_TYPE,
    STOR_BATTERY_PRESENT,
    STOR_BATTERY_STATE,
});

void put(std::string &file, std::size_t offset, const std::string &octets) {
  if (offset < file.size()) {
    file.replace(offset, std::min(octets.size(), file.size() - offset), octets, 0,
                 std::min(octets.size(), file.size() - offset));
  }
}

std::string snapshot(FuzzedDataProvider &input) {
  const auto records = input.ConsumeIntegralInRange<std::size_t>(0, 3);
  std::string file(STOR_CONTROLLER_RECORDS + records * STOR_CONTROLLER_SIZE, '\0');
  const auto count = input.ConsumeBool() ? input.ConsumeIntegral<std::int32_t>() : static_cast<std::int32_t>(records);
  std::memcpy(file.data(), &count, sizeof count);
  const bool is_cut = input.ConsumeIntegral<std::uint8_t>() == 0;
  const auto end = is_cut ? input.ConsumeIntegralInRange<std::size_t>(0, file.size()) : file.size();
  while (input.remaining_bytes() > 0) {
    const auto record = input.ConsumeIntegralInRange<std::size_t>(0, 2);
    const std::size_t offset = input.PickValueInArray(offsets) + input.ConsumeIntegral<std::uint8_t>();
    put(file, STOR_CONTROLLER_RECORDS + record * STOR_CONTROLLER_SIZE + offset, input.ConsumeRandomLengthString(130));
  }
  file.resize(end);
  return file;
}

// Twice is as good as never.
void expect_conversion_to_be_its_own_inverse(std::string record) {
  const std::string before = record;
  convert_host_to_network(record.data());
  convert_host_to_network(record.data());
  expect(record == before, "converting to network order twice changes nothing");
}

}  // namespace

void try_input(Octets input) {
  Platform platform(input);
  platform.files["/var/getNumOfHDD"] = "hdd: " + platform.answers.ConsumeRandomLengthString(12) + "\n";
  const std::string file = snapshot(platform.answers);
  platform.files["/var/stor_info_data"] = file;
  const auto tables = {&tavoStorageControllerTable_table, &tavoStorageLocalDiskTable_table,
                       &tavoStorageLocalLunTable_table, &tavoStorageRaidBatteryTable_table};
  reinit_stor_table(1);
  expect(head_stor_ptr == nullptr, "the snapshot is freed");
  serve(tables);
  empty(tables);
  if (file.size() >= STOR_CONTROLLER_RECORDS + STOR_CONTROLLER_SIZE) {
    expect_conversion_to_be_its_own_inverse(file.substr(STOR_CONTROLLER_RECORDS, STOR_CONTROLLER_SIZE));
  }
}

}  // namespace tavo::fuzz
