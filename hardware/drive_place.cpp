#include "hardware/drive_place.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>
#include <vector>

#include "hardware/pci.h"
#include "hardware/sysfs.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

bool is_numbered(std::string_view name, std::string_view prefix) {
  return name.starts_with(prefix) && name.size() > prefix.size() &&
         std::isdigit(static_cast<unsigned char>(name[prefix.size()])) != 0;
}

// "2:0:1:0": SCSI host, channel, target and unit.
bool is_scsi_address(std::string_view name) {
  return std::ranges::count(name, ':') == 3 && name.find_first_not_of("0123456789:") == std::string_view::npos;
}

// The text from the first `mark` on, without it; empty if there is none.
std::string after_first(std::string_view text, char mark) {
  const std::size_t at = text.find(mark);
  return at != std::string_view::npos ? std::string(text.substr(at + 1)) : "";
}

// "n1" of nvme0n1; empty for a controller, which has no namespace in its name.
std::string nvme_namespace(std::string_view name) {
  constexpr std::string_view prefix = "nvme";
  const std::string number = after_first(name.substr(prefix.size()), 'n');
  return number.empty() ? "" : 'n' + number;
}

// Of the login to an iSCSI target: "TARGET ADDRESS INTERFACE", as far as the kernel tells, because the same target may
// be reached in several ways; the login's own name if it does not.
std::string iscsi_way(const fs::path &session) {
  const std::string name = session.filename();
  const fs::path told = session / "iscsi_session" / name;
  std::string way = read_attribute(told / "targetname").value_or(name);
  for (const fs::path &connection : entries(session, "connection")) {
    const fs::path connected = connection / "iscsi_connection" / connection.filename();
    way += ' ' + read_attribute(connected / "persistent_address").value_or("");
  }
  return way + ' ' + read_attribute(told / "ifacename").value_or("");
}

// What a directory on the way to a drive says of the drive's place; empty: nothing that lasts. The kernel numbers
// ports, hosts, virtio devices and NVMe controllers in the order in which it comes upon them, which may differ at the
// next boot.
std::string lasting_part(const fs::path &directory) {
  constexpr auto of_this_boot = std::to_array<std::string_view>({"host", "target", "virtio", "mmc"});
  constexpr auto after_their_host = std::to_array<std::string_view>({"rport-", "port-", "end_device-", "expander-"});
  constexpr auto classes = std::to_array<std::string_view>({"block", "nvme", "mmc_host"});
  const std::string name = directory.filename();
  const auto begins_name = [&](std::string_view prefix) { return is_numbered(name, prefix); };
  if (begins_name("ata")) {
    return "port " + read_attribute(directory / "ata_port" / name / "port_no").value_or(name);
  }
  if (begins_name("session")) {
    return iscsi_way(directory);
  }
  if (begins_name("nvme")) {
    return nvme_namespace(name);
  }
  if (is_scsi_address(name)) {
    return after_first(name, ':');
  }
  if (std::ranges::any_of(after_their_host, begins_name)) {
    return name.substr(0, name.find('-') + 1) + after_first(name, ':');
  }
  const bool is_class = std::ranges::find(classes, name) != classes.end();
  return is_class || std::ranges::any_of(of_this_boot, begins_name) ? "" : name;
}

}  // namespace

fs::path device_of(const fs::path &disk) {
  std::error_code error;
  const fs::path device = fs::canonical(disk, error);
  if (error) {
    return {};
  }
  if (device.string().find("/devices/virtual/nvme-subsystem/") == std::string::npos) {
    return device;
  }
  std::vector<fs::path> ways;
  for (const fs::path &entry : entries(device.parent_path(), "nvme")) {
    const fs::path controller = fs::canonical(entry, error);
    if (!error && fs::is_symlink(entry, error)) {
      ways.push_back(controller / device.filename());
    }
  }
  return ways.empty() ? device : std::ranges::min(ways);
}

std::string place_of(const fs::path &device) {
  std::string place;
  fs::path directory;
  for (const fs::path &element : device.parent_path()) {
    directory /= element;
    const std::string name = element;
    if (name == "devices" || is_pci_address(name)) {
      place = name == "devices" ? "" : name;  // whatever leads to the address, it is one device's
      continue;
    }
    const std::string part = lasting_part(directory);
    place += (part.empty() || place.empty() ? "" : " ") + part;
  }
  // The disk's own name lasts no longer, except for the namespace in it.
  const std::string disk = device.filename();
  return is_numbered(disk, "nvme") ? place + ' ' + nvme_namespace(disk) : place;
}

}  // namespace tavo::service
