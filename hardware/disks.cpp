#include "hardware/disks.h"

#include <algorithm>
#include <string_view>

#include "hardware/drive_place.h"
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

// How the storage agent counts: a drive's codes and a controller's use.
constexpr const char *connected = "2";
constexpr std::int64_t block_size = 512;  // what the kernel counts in, whatever the drive's own blocks are

// The drives in the register.
constexpr const char *drive_group = "drive";

// The condition of a drive that says so itself.
constexpr const char *failing = "failing";

// The use of a controller whose drives are listed elsewhere: with the operating system's.
constexpr const char *shows_no_drives = "0";

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
std::string location_of(const PciDevice &device, const std::map<std::string, std::string> &slots) {
  const auto slot = slots.find(without_function(device.address));
  return slot == slots.end() ? device.address : "SLOT-" + slot->second;
}

std::string row_oid(std::string_view column, std::int64_t row) {
  return "1.3.6.1.4.1.61453.4.207.1.45." + std::string(column) + '.' + std::to_string(row);
}

// What is not a drive: memory, loops, arrays, media that come and go in a drive, SD cards, the parts of a flash chip
// that only its own firmware uses, and the single ways to a drive that the kernel shows as one besides.
bool is_drive(const fs::path &disk, const fs::path &device) {
  const std::string name = disk.filename();
  const bool is_virtual = device.empty() || device.string().find("/devices/virtual/") != std::string::npos;
  const bool has_media = name.starts_with("sr") || name.starts_with("fd");
  constexpr std::string_view chip = "mmcblk";
  const bool is_part_of_chip =
      name.starts_with(chip) && name.find_first_not_of("0123456789", chip.size()) != std::string::npos;
  const bool is_sd_card = read_attribute(disk / "device/type") == "SD";
  const bool is_hidden = read_number(disk / "hidden").value_or(0) != 0;
  return !is_virtual && !has_media && !is_part_of_chip && !is_sd_card && !is_hidden &&
         read_number(disk / "size").value_or(0) > 0;
}

std::string name_of(const Part &drive) {
  return drive.text("name") + " (" + drive.text("model") + ')';
}

std::string trouble_key(const std::string &place, const std::string &what) {
  return "drive " + place + ' ' + what;
}

// Without its severity, and with a description that only names the drive.
Trouble trouble(const std::string &place, std::int64_t number, const std::string &name, const std::string &what) {
  const std::string slot = std::to_string(number);
  return {.key = trouble_key(place, what),
          .class_code = drive_class,
          .unit = number,
          .description = "Drive " + name + " in slot " + slot,
          .affected = system_dn + "/pd-" + slot,
          .affected_oid = row_oid("4.1.2", number)};
}

// Fills in what a drive has left out this time, because it sleeps or is about to die, with what it told last.
void complete(SmartReport &report, const SmartReport &last) {
  if (!report.healthy) {
    report.healthy = last.healthy;
  }
  if (report.firmware.empty()) {
    report.firmware = last.firmware;
  }
  if (report.model.empty()) {
    report.model = last.model;
  }
}

}  // namespace

DiskSource::DiskSource(Roots roots, Register &numbers, std::string smartctl, std::chrono::seconds report_age)
    : roots_(std::move(roots)),
      numbers_(numbers),
      smartctl_(std::move(smartctl)),
      report_age_(report_age),
      pci_(roots_.sys) {
  const auto faults = numbers_.faults();
  for (const auto &[place, drive] : numbers_.parts(drive_group)) {
    if (faults.contains(trouble_key(place, failing))) {
      failing_before_.insert(place);
    }
  }
}

const SmartReport &DiskSource::report_of(const fs::path &disk, const std::string &place) {
  const auto now = std::chrono::steady_clock::now();
  const std::string device = disk.filename();
  const std::string drive = read_attribute(disk / "diskseq").value_or("");
  const auto known = asked_.find(device);
  const bool is_same = known != asked_.end() && known->second.drive == drive;
  if (is_same && now - known->second.when < report_age_) {
    return known->second.report;
  }
  SmartReport report = smartctl_.ask((roots_.dev / device).string());
  if (is_same) {
    complete(report, known->second.report);
  }
  if (report.healthy) {
    failing_before_.erase(place);
  } else if (failing_before_.contains(place)) {
    report.healthy = false;
  }
  return (asked_[device] = {.when = now, .drive = drive, .report = std::move(report)}).report;
}

std::vector<RaidController> DiskSource::controllers() {
  std::vector<RaidController> found;
  const auto slots = pci_.slots();
  for (const PciDevice &device : pci_.devices()) {
    const std::string type = controller_type(device.device_class);
    if (type.empty()) {
      continue;
    }
    Part &part = found.emplace_back().part;
    part.set_number("id", numbers_.number_of("controller", device.address));
    part.set("mode", shows_no_drives);
    set_line(part, "location", location_of(device, slots));
    set_line(part, "description", device.names.device);
    set_line(part, "vendor", device.names.vendor);
    set_line(part, "type", type);
    set_line(part, "revision", device.revision);
  }
  return found;
}

Part DiskSource::drive_part(const fs::path &disk, const std::string &place, Finding &finding) {
  const std::string device = disk.filename();
  const SmartReport &report = report_of(disk, place);
  if (report.state == SmartReport::State::Silent) {
    finding.unreadable.push_back(device + ": " + report.why_silent);
  }
  const std::int64_t blocks = read_number(disk / "size").value_or(0);
  const std::string model = read_attribute(disk / "device/model").value_or("");
  const std::string revision = read_attribute(disk / "device/rev").value_or("");
  Part part(drive_kind);
  // One number for each place of the machine, because the table of drives has one row for each slot.
  part.set_number("slot", numbers_.number_of(drive_group, place));
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

// In the order of their slots, in which the reader of the list looks for them: it passes over one that comes too late.
std::vector<DiskSource::Drive> DiskSource::drives(Finding &finding) {
  std::vector<Drive> found;
  for (const fs::path &disk : entries(roots_.sys / "block")) {
    const fs::path device = device_of(disk);
    if (!is_drive(disk, device)) {
      continue;
    }
    if (found.size() == STOR_DRIVE_CAPACITY) {
      finding.unreadable.push_back(disk.filename().string() + ": there are too many drives");
      break;
    }
    const std::string place = place_of(device);
    const bool is_on_usb = device.string().find("/usb") != std::string::npos;
    found.push_back({.part = drive_part(disk, place, finding),
                     .place = place,
                     .comes_and_goes = is_on_usb || read_number(disk / "removable").value_or(0) != 0});
  }
  std::ranges::sort(found, {}, [](const Drive &drive) { return drive.part.number("slot"); });
  return found;
}

void DiskSource::find_troubles(const std::vector<Drive> &present, Finding &finding) {
  for (const Drive &drive : present) {
    if (drive.part.written(*find_field(drive_kind, "state")) == "failed") {
      Trouble failed = trouble(drive.place, drive.part.number("slot"), name_of(drive.part), failing);
      failed.severity = "major";
      failed.description += " reports that it is failing";
      finding.troubles.push_back(failed);
    }
  }
}

// Another drive that comes in its place is not what it was.
void DiskSource::forget_what_is_gone(const std::vector<Drive> &present) {
  std::erase_if(failing_before_, [&](const std::string &place) {
    return std::ranges::find(present, place, &Drive::place) == present.end();
  });
  std::erase_if(asked_, [&](const auto &asked) {
    return std::ranges::none_of(present, [&](const Drive &drive) { return drive.part.text("name") == asked.first; });
  });
}

Finding DiskSource::read() {
  events_.take();  // before reading: what changes meanwhile is read next time
  Finding finding;
  const std::vector<Drive> present = drives(finding);
  std::vector<Part> parts;
  std::map<std::string, std::string> to_stay;
  std::int64_t slots = 0;
  for (const Drive &drive : present) {
    parts.push_back(drive.part);
    slots = std::max(slots, drive.part.number("slot"));
    if (!drive.comes_and_goes) {
      to_stay[drive.place] = name_of(drive.part);
    }
  }
  find_troubles(present, finding);
  for (const auto &[place, drive] : missing_parts(numbers_, drive_group, to_stay)) {
    slots = std::max(slots, drive.number);
    finding.troubles.push_back(missing(trouble(place, drive.number, drive.name, "gone"), drive));
  }
  forget_what_is_gone(present);
  finding.enter = [controllers = controllers(), parts, slots](Inventory &inventory) {
    // The table of drives shows as many slots as the server says that it has.
    inventory.server.set_number("drive-slots", slots);
    inventory.controllers.insert(inventory.controllers.end(), controllers.begin(), controllers.end());
    if (!parts.empty()) {
      system_controller(inventory).drives = parts;
    }
  };
  return finding;
}

}  // namespace tavo::service
