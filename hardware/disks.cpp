#include "hardware/disks.h"

#include <algorithm>
#include <array>

#include "hardware/pci.h"
#include "hardware/set_line.h"
#include "hardware/sysfs.h"
#include "hardware/system_controller.h"
#include "platform/storage_client.h"
#include "platform/storage_snapshot.h"
#include "service/causes.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

// Classes of storage faults.
constexpr int drive_class = 209;
constexpr int volume_class = 210;

// How the storage agent counts: a drive's codes and a controller's use.
constexpr const char *connected = "2";
constexpr std::int64_t block_size = 512;  // what the kernel counts in, whatever the drive's own blocks are

// The use of a controller whose drives are listed elsewhere: with the operating system's.
constexpr const char *shows_no_drives = "0";

// "0000:03:00.0"
bool is_pci_address(const std::string &name) {
  constexpr std::string_view form = "0000:00:00.0";
  return name.size() == form.size() && name[4] == ':' && name[7] == ':' && name[10] == '.';
}

bool is_port(const std::string &name) {
  constexpr auto prefixes = std::to_array<std::string_view>({"ata", "target", "nvme", "virtio", "mmc"});
  return std::ranges::any_of(prefixes, [&](std::string_view prefix) {
    return name.starts_with(prefix) && name.size() > prefix.size() &&
           std::isdigit(static_cast<unsigned char>(name[prefix.size()])) != 0;
  });
}

std::string controller_type(std::uint32_t device_class) {
  constexpr std::uint32_t mass_storage = 0x01;
  if (device_class >> 16 != mass_storage) {
    return "";
  }
  switch (device_class >> 8 & 0xff) {
    case 0x00:
      return "SCSI";
    case 0x01:
      return "IDE";
    case 0x04:
      return "RAID";
    case 0x06:
      return "SATA";
    case 0x07:
      return "SAS";
    case 0x08:
      return "NVMe";
    default:
      return "";
  }
}

// "SLOT-4", or the address of a device on the board, of which there may be several.
std::string location_of(const PciDevice &device) {
  return device.slot.empty() ? device.address : "SLOT-" + device.slot;
}

std::string row_oid(std::string_view column, std::int64_t row) {
  return "1.3.6.1.4.1.61453.4.207.1.45." + std::string(column) + '.' + std::to_string(row);
}

// What is not a disk: memory, loops, arrays, and drives with media that come and go.
bool is_drive(const fs::path &disk, const fs::path &device) {
  const bool is_virtual = device.string().find("/devices/virtual/") != std::string::npos;
  const bool is_optical = disk.filename().string().starts_with("sr");
  return !is_virtual && !is_optical && read_number(disk / "size").value_or(0) > 0;
}

}  // namespace

std::string place_of(const fs::path &device) {
  std::string controller;
  std::string port;
  for (const fs::path &element : device) {
    const std::string name = element.string();
    if (is_pci_address(name)) {
      controller = name;
    } else if (is_port(name)) {
      port = name;
    }
  }
  return controller + ' ' + port;
}

DiskSource::DiskSource(Roots roots, Register &numbers, std::string smartctl)
    : roots_(std::move(roots)), numbers_(numbers), smartctl_(std::move(smartctl)) {}

const SmartReport &DiskSource::report_of(const std::string &device) {
  const auto now = std::chrono::steady_clock::now();
  const auto known = asked_.find(device);
  if (known != asked_.end() && now - known->second.when < report_age) {
    return known->second.report;
  }
  SmartReport report = ask_drive(smartctl_, (roots_.dev / device).string());
  // A drive that sleeps is what it was when it last answered.
  if (report.state == SmartReport::State::Sleeps && known != asked_.end()) {
    report = known->second.report;
  }
  return (asked_[device] = {.when = now, .report = std::move(report)}).report;
}

std::vector<RaidController> DiskSource::controllers() {
  std::vector<RaidController> found;
  for (const PciDevice &device : pci_devices(roots_.sys)) {
    const std::string type = controller_type(device.device_class);
    if (type.empty()) {
      continue;
    }
    Part &part = found.emplace_back().part;
    part.set_number("id", numbers_.number_of("controller", device.address));
    part.set("mode", shows_no_drives);
    set_line(part, "location", location_of(device));
    set_line(part, "description", device.device);
    set_line(part, "vendor", device.vendor);
    set_line(part, "type", type);
    set_line(part, "revision", device.revision);
  }
  return found;
}

Part DiskSource::drive_part(const fs::path &disk, const std::string &place, Finding &finding) {
  const std::string device = disk.filename();
  const SmartReport &report = report_of(device);
  if (report.state == SmartReport::State::Silent) {
    finding.unreadable.push_back(device + ": " + report.why_silent);
  }
  const std::int64_t blocks = read_number(disk / "size").value_or(0);
  const std::string model = read_attribute(disk / "device/model").value_or("");
  const std::string revision = read_attribute(disk / "device/rev").value_or("");
  Part part(drive_kind);
  // One number for each place of the machine, because the table of drives has one row for each slot.
  part.set_number("slot", numbers_.number_of("slot", place));
  part.set("connection", connected);
  part.set("media", read_number(disk / "queue/rotational").value_or(1) != 0 ? "HDD" : "SSD");
  part.set("state", report.healthy.value_or(true) ? "good" : "failed");
  part.set_number("capacity", blocks * block_size);
  part.set_number("blocks", blocks);
  set_line(part, "name", device);
  set_line(part, "model", report.model.empty() ? model : report.model);
  set_line(part, "revision", report.firmware.empty() ? revision : report.firmware);
  return part;
}

std::vector<Part> DiskSource::drives(Finding &finding) {
  std::vector<Part> found;
  present_.clear();
  for (const fs::path &disk : entries(roots_.sys / "block")) {
    std::error_code error;
    const fs::path device = fs::canonical(disk, error);
    if (error || !is_drive(disk, device)) {
      continue;
    }
    if (found.size() == STOR_DRIVE_CAPACITY) {
      finding.unreadable.push_back(disk.filename().string() + ": there are too many drives");
      break;
    }
    const std::string place = place_of(device);
    const Part &drive = found.emplace_back(drive_part(disk, place, finding));
    seen_[place] = {.slot = drive.number("slot"), .name = drive.text("name") + " (" + drive.text("model") + ')'};
    present_.insert(place);
    if (drive.written(*find_field(drive_kind, "state")) == "failed") {
      finding.troubles.push_back(trouble(place, "failing", "major", cause::failed, " reports that it is failing"));
    }
  }
  return found;
}

Trouble DiskSource::trouble(const std::string &place, const std::string &what, const std::string &severity, int cause,
                            const std::string &sentence) const {
  const Seen &drive = seen_.at(place);
  const std::string slot = std::to_string(drive.slot);
  return {.key = "drive " + place + ' ' + what,
          .class_code = drive_class,
          .unit = drive.slot,
          .severity = severity,
          .cause = cause,
          .description = "Drive " + drive.name + " in slot " + slot + sentence,
          .affected = system_dn + "/pd-" + slot,
          .affected_oid = row_oid("4.1.2", drive.slot)};
}

Finding DiskSource::read() {
  Finding finding;
  const std::vector<Part> drives_now = drives(finding);
  std::int64_t slots = 0;
  for (const auto &[place, drive] : seen_) {
    slots = std::max(slots, drive.slot);
    if (!present_.contains(place)) {
      finding.troubles.push_back(trouble(place, "gone", "warning", cause::missing, " is missing"));
    }
  }
  finding.enter = [controllers = controllers(), drives_now, slots](Inventory &inventory) {
    // The table of drives shows as many slots as the server says that it has.
    inventory.server.set_number("drive-slots", slots);
    inventory.controllers.insert(inventory.controllers.end(), controllers.begin(), controllers.end());
    if (!drives_now.empty()) {
      system_controller(inventory).drives = drives_now;
    }
  };
  return finding;
}

}  // namespace tavo::service
