#include "service/platform_files.h"

#include <algorithm>
#include <array>
#include <string>

#include "platform/storage_snapshot.h"
#include "service/little_endian.h"
#include "service/replaced_file.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

template <std::size_t Size>
void replace_with_integer(const fs::path &path, std::int64_t number) {
  std::array<std::byte, Size> octets{};
  put_little_endian(octets, static_cast<std::uint64_t>(number));
  replace_file(path, octets);
}

void replace_with_text(const fs::path &path, const std::string &text, std::size_t size) {
  std::string field = text;
  field.resize(size, '\0');
  replace_file(path, std::as_bytes(std::span(field)));
}

void write_supplies(const std::vector<Part> &supplies, const fs::path &pmbus) {
  for (std::size_t i = 0; i < supplies.size(); ++i) {
    const Part &supply = supplies[i];
    const fs::path directory = pmbus / ("ps" + std::to_string(i));  // these names count from 0
    if (!supply.flag("present")) {
      fs::remove_all(directory);
      continue;
    }
    fs::create_directories(directory);
    replace_with_integer<2>(directory / "pin", supply.number("input-power"));
    replace_with_integer<2>(directory / "poutmax", supply.number("output-power-max"));
    replace_with_text(directory / "rev", supply.text("revision"), supply_revision_size);
    replace_with_text(directory / "model", supply.text("model"), supply_model_size);
    replace_with_integer<2>(directory / "status", supply.number("status"));
  }
  replace_with_integer<4>(pmbus / "num_psu", static_cast<std::int64_t>(supplies.size()));
}

void put_word(std::span<std::byte> record, std::size_t offset, std::uint32_t word) {
  put_little_endian(record.subspan(offset, sizeof word), word);
}

// Writes a drive or a volume into the controller's list that begins at `offset`.
void encode_item(const Part &item, std::span<std::byte> record, std::size_t offset, std::size_t position) {
  const std::size_t size = item.kind().record_size;
  item.encode(record.subspan(offset + position * size, size));
}

void encode_controller(const RaidController &controller, std::span<std::byte> record) {
  controller.part.encode(record);
  if (!controller.part.flag("battery-present")) {
    put_word(record, STOR_BATTERY_STATE, 0);
  }
  std::uint32_t drives = 0;
  for (const Part &drive : controller.drives) {
    if (drive.flag("present")) {
      encode_item(drive, record, STOR_CONTROLLER_DRIVES, drives++);
    }
  }
  put_word(record, STOR_CONTROLLER_DRIVE_COUNT, drives);
  std::uint32_t volumes = 0;
  for (const Part &volume : controller.volumes) {
    encode_item(volume, record, STOR_CONTROLLER_VOLUMES, volumes++);
  }
  put_word(record, STOR_CONTROLLER_VOLUME_COUNT, volumes);
}

std::vector<std::byte> storage_snapshot(const std::vector<RaidController> &controllers) {
  std::vector<std::byte> file(STOR_CONTROLLER_RECORDS + controllers.size() * STOR_CONTROLLER_SIZE);
  put_word(file, STOR_CONTROLLER_COUNT, static_cast<std::uint32_t>(controllers.size()));
  for (std::size_t i = 0; i < controllers.size(); ++i) {
    encode_controller(controllers[i], std::span(file).subspan(STOR_CONTROLLER_RECORDS + i * STOR_CONTROLLER_SIZE));
  }
  return file;
}

void write_snapshot(const std::vector<RaidController> &controllers, const SnapshotDamage &damage,
                    const fs::path &path) {
  using enum SnapshotDamage::Kind;
  std::vector<std::byte> file = storage_snapshot(controllers);
  switch (damage.kind) {
    case None:
      break;
    case Missing:
      fs::remove(path);
      return;
    case Empty:
      file.clear();
      break;
    case Truncated:
      file.resize(std::min(file.size(), static_cast<std::size_t>(damage.number)));
      break;
    case WrongCount:
      put_word(file, STOR_CONTROLLER_COUNT, static_cast<std::uint32_t>(damage.number));
      break;
  }
  replace_file(path, file);
}

}  // namespace

void write_platform_files(const Inventory &inventory, const SnapshotDamage &damage, const fs::path &var) {
  const fs::path pmbus = var / "pmbus";
  const fs::path dimms = var / "vessa/dimms";
  fs::create_directories(pmbus);
  fs::create_directories(dimms);
  write_supplies(inventory.supplies, pmbus);
  const std::string voltage = std::to_string(inventory.server.number("low-voltage-memory")) + '\n';
  replace_file(dimms / "low_voltage_support", std::as_bytes(std::span(voltage)));
  write_snapshot(inventory.controllers, damage, var / "stor_info_data");
}

}  // namespace tavo::service
