#include "simulator/platform_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <system_error>

#include "platform/storage_snapshot.h"
#include "simulator/unix_socket.h"

namespace tavo::sim {
namespace {

namespace fs = std::filesystem;

// A reader sees the old file or the new one, never a part.
void replace_file(const fs::path &path, std::span<const std::byte> content) {
  const fs::path fresh = path.string() + ".new";
  const Descriptor file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  while (file && !content.empty()) {
    const ssize_t written = write(file.get(), content.data(), content.size());
    if (written < 0) {
      throw std::system_error(errno, std::generic_category(), fresh.string());
    }
    content = content.subspan(static_cast<std::size_t>(written));
  }
  if (!file || rename(fresh.c_str(), path.c_str()) != 0) {
    throw std::system_error(errno, std::generic_category(), path.string());
  }
}

template <std::size_t Size>
void replace_with_integer(const fs::path &path, std::int64_t number) {
  std::array<std::byte, Size> octets{};
  for (std::size_t i = 0; i < Size; ++i) {
    octets[i] = static_cast<std::byte>(static_cast<std::uint64_t>(number) >> (8 * i));
  }
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
    const fs::path directory = pmbus / ("ps" + std::to_string(i));
    if (!supply.flag("present")) {
      fs::remove_all(directory);
      continue;
    }
    fs::create_directories(directory);
    replace_with_integer<2>(directory / "pin", supply.number("input-power"));
    replace_with_integer<2>(directory / "poutmax", supply.number("output-power-max"));
    replace_with_text(directory / "rev", supply.text("revision"), 8);
    replace_with_text(directory / "model", supply.text("model"), 32);
    replace_with_integer<2>(directory / "status", supply.number("status"));
  }
  replace_with_integer<4>(pmbus / "num_psu", static_cast<std::int64_t>(supplies.size()));
}

void append(std::vector<std::byte> &file, std::uint32_t word) {
  for (int i = 0; i < 4; ++i) {
    file.push_back(static_cast<std::byte>(word >> (8 * i)));
  }
}

void put_word(std::span<std::byte> record, std::size_t offset, std::uint32_t word) {
  for (std::size_t i = 0; i < 4; ++i) {
    record[offset + i] = static_cast<std::byte>(word >> (8 * i));
  }
}

void encode_controller(const RaidController &controller, std::span<std::byte> record) {
  controller.part.encode(record);
  if (!controller.part.flag("battery-present")) {
    put_word(record, STOR_BATTERY_STATE, 0);
  }
  std::uint32_t drives = 0;
  for (const Part &drive : controller.drives) {
    if (drive.flag("present")) {
      drive.encode(record.subspan(STOR_CONTROLLER_DRIVES + drives++ * std::size_t{STOR_DRIVE_SIZE}, STOR_DRIVE_SIZE));
    }
  }
  put_word(record, STOR_CONTROLLER_DRIVE_COUNT, drives);
  std::uint32_t volumes = 0;
  for (const Part &volume : controller.volumes) {
    volume.encode(
        record.subspan(STOR_CONTROLLER_VOLUMES + volumes++ * std::size_t{STOR_VOLUME_SIZE}, STOR_VOLUME_SIZE));
  }
  put_word(record, STOR_CONTROLLER_VOLUME_COUNT, volumes);
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

std::vector<std::byte> storage_snapshot(const std::vector<RaidController> &controllers) {
  std::vector<std::byte> file;
  append(file, static_cast<std::uint32_t>(controllers.size()));
  for (const RaidController &controller : controllers) {
    const std::size_t start = file.size();
    file.resize(start + STOR_CONTROLLER_SIZE);
    encode_controller(controller, std::span(file).subspan(start));
  }
  return file;
}

void write_platform_files(const Inventory &inventory, const SnapshotDamage &damage, const fs::path &var) {
  const fs::path pmbus = var / "pmbus";
  const fs::path dimms = var / "vessa" / "dimms";
  fs::create_directories(pmbus);
  fs::create_directories(dimms);
  write_supplies(inventory.supplies, pmbus);
  const std::string voltage = std::to_string(inventory.server.number("low-voltage-memory")) + '\n';
  replace_file(dimms / "low_voltage_support", std::as_bytes(std::span(voltage)));
  write_snapshot(inventory.controllers, damage, var / "stor_info_data");
}

}  // namespace tavo::sim
