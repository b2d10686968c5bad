#include "hardware/disks.h"

#include <algorithm>
#include <string_view>

#include "core/class_number.h"
#include "hardware/drive_place.h"
#include "hardware/drive_trouble.h"
#include "hardware/set_line.h"
#include "hardware/sysfs.h"
#include "hardware/system_controller.h"
#include "platform/storage_client.h"
#include "platform/storage_snapshot.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

// How the storage agent counts: a drive's codes and a controller's use.
constexpr const char *connected = "2";

// The condition of a drive that says so itself.
constexpr const char *failing = "failing";

// That of one that is too hot, and how its fault ends if the drive says so itself.
constexpr const char *hot = "too hot";
constexpr const char *warns_of_heat = " reports a temperature beyond its limits";

// That of one that does not answer, and how often in a row it has not.
constexpr const char *unanswered = "unanswered";
constexpr int most_unanswered = 2;

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

}  // namespace

DiskSource::DiskSource(Roots roots, Register &numbers, std::string smartctl, const DriveReports::Times &times)
    : roots_(std::move(roots)), numbers_(numbers), reports_(std::move(smartctl), times), pci_(roots_.sys) {
  watched_.add(events_.descriptor());
  watched_.add(reports_.descriptor());
  const auto faults = numbers_.faults();
  for (const auto &[place, drive] : numbers_.parts(drive_group)) {
    if (faults.contains(drive_trouble_key(place, failing))) {
      failing_before_.insert(place);
    }
    if (const auto fault = faults.find(drive_trouble_key(place, hot)); fault != faults.end()) {
      auto &before = fault->second.description.ends_with(warns_of_heat) ? warned_before_ : hot_before_;
      before.insert(place);
    }
  }
}

std::vector<RaidController> DiskSource::controllers() {
  std::vector<RaidController> found;
  std::map<std::string, std::string> here;
  const auto slots = pci_.slots();
  for (const PciDevice &device : pci_.devices()) {
    const std::string type = controller_type(device.device_class);
    if (type.empty()) {
      continue;
    }
    here[device.address] = type;
    Part &part = found.emplace_back().part;
    part.set_number("id", numbers_.number_of(controller_group, device.address));
    part.set("mode", shows_no_drives);
    set_line(part, "location", location_of(device.address, slots));
    set_line(part, "description", device.names.device);
    set_line(part, "vendor", device.names.vendor);
    set_line(part, "type", type);
    set_line(part, "revision", device.revision);
  }
  numbers_.free_absent(controller_group, here);
  return found;
}

DriveReport DiskSource::report_of(const Drive &drive) {
  DriveReport report = reports_.of(drive.asked);
  if (report.smart.healthy) {
    failing_before_.erase(drive.place);
  } else if (failing_before_.contains(drive.place)) {
    report.smart.healthy = false;
  }
  return report;
}

Part DiskSource::drive_part(const Drive &drive) {
  const SmartReport &smart = drive.report.smart;
  const std::int64_t blocks = read_number(drive.disk / "size").value_or(0);
  const std::string model = read_attribute(drive.disk / "device/model").value_or("");
  const std::string revision = read_attribute(drive.disk / "device/rev").value_or("");
  Part part(drive_kind);
  // One number for each place of the machine, because the table of drives has one row for each slot.
  part.set_number("slot", numbers_.number_of(drive_group, drive.place));
  part.set("connection", connected);
  part.set("media", read_number(drive.disk / "queue/rotational").value_or(1) != 0 ? "HDD" : "SSD");
  part.set("state", smart.healthy.value_or(true) ? "good" : "failed");
  part.set_number("capacity", blocks * block_size);
  part.set_number("blocks", blocks);
  set_line(part, "name", drive.disk.filename().string());
  set_line(part, "model", smart.model.empty() ? model : smart.model);
  set_line(part, "revision", smart.firmware.empty() ? revision : smart.firmware);
  return part;
}

// In the order of their slots, in which the reader of the list looks for them: it passes over one that comes too late.
std::vector<DiskSource::Drive> DiskSource::drives(Finding &finding) {
  std::vector<Drive> found;
  std::vector<AskedDrive> asked;
  for (const fs::path &disk : entries(roots_.sys / "block")) {
    const fs::path device = device_of(disk);
    if (!is_drive(disk, device)) {
      continue;
    }
    if (found.size() == STOR_DRIVE_CAPACITY) {
      finding.unreadable.push_back(disk.filename().string() + ": there are too many drives");
      break;
    }
    const bool is_on_usb = device.string().find("/usb") != std::string::npos;
    asked.push_back(
        {.device = (roots_.dev / disk.filename()).string(), .number = read_attribute(disk / "diskseq").value_or("")});
    found.push_back({.disk = disk,
                     .device = device,
                     .place = place_of(device),
                     .comes_and_goes = is_on_usb || read_number(disk / "removable").value_or(0) != 0,
                     .asked = asked.back()});
  }
  reports_.ask(asked);
  heat_.forget_all_but(asked);
  for (Drive &drive : found) {
    drive.report = report_of(drive);
    drive.part = drive_part(drive);
    drive.is_too_hot = heat_.is_too_hot(drive.asked, drive.device, drive.report);
    if (drive.is_too_hot) {
      hot_before_.erase(drive.place);
    }
    if (drive.report.smart.has_bad_temperature) {
      warned_before_.erase(drive.place);
    }
  }
  std::ranges::sort(found, {}, [](const Drive &drive) { return drive.part.number("slot"); });
  return found;
}

void DiskSource::find_troubles(const std::vector<Drive> &present, Finding &finding) {
  for (const Drive &drive : present) {
    const SmartReport &smart = drive.report.smart;
    const auto add = [&](const char *what, const char *severity, const char *sentence) {
      const RegisteredPart known{.number = drive.part.number("slot"), .name = name_of(drive.part)};
      Trouble trouble = drive_trouble(drive.place, known, what);
      trouble.severity = severity;
      trouble.description += sentence;
      finding.troubles.push_back(trouble);
    };
    if (!smart.healthy.value_or(true)) {
      add(failing, "major", " reports that it is failing");
    }
    if (drive.is_too_hot.value_or(false)) {
      add(hot, "major", " is at its critical temperature");
    } else if (smart.has_bad_temperature.value_or(false)) {
      add(hot, "major", warns_of_heat);
    } else if (hot_before_.contains(drive.place) || warned_before_.contains(drive.place)) {
      finding.undecided.push_back(drive_trouble_key(drive.place, hot));
    }
    if (drive.report.times_unanswered >= most_unanswered) {
      add(unanswered, "warning", " does not answer");
    } else if (!drive.report.has_answered || drive.report.times_unanswered > 0) {
      finding.undecided.push_back(drive_trouble_key(drive.place, unanswered));
    }
    if (drive.report.is_known && smart.state == SmartReport::State::Silent) {
      finding.unreadable.push_back(drive.part.text("name") + ": " + smart.why_silent);
    }
  }
}

// Another drive that comes in its place is not what it was.
void DiskSource::forget_what_is_gone(const std::vector<Drive> &present) {
  for (std::set<std::string> *before : {&failing_before_, &hot_before_, &warned_before_}) {
    std::erase_if(*before, [&](const std::string &place) {
      return std::ranges::find(present, place, &Drive::place) == present.end();
    });
  }
}

Finding DiskSource::read() {
  events_.take();  // before reading: what changes meanwhile is read next time
  Finding finding;
  const std::vector<Drive> present = drives(finding);
  std::vector<Part> parts;
  std::map<std::string, std::string> here;
  std::map<std::string, std::string> to_stay;  // those of them that are missed once they go
  const auto known = numbers_.parts(drive_group);
  std::int64_t slots = 0;
  for (const Drive &drive : present) {
    parts.push_back(drive.part);
    slots = std::max(slots, drive.part.number("slot"));
    here[drive.place] = name_of(drive.part);
    if (!drive.comes_and_goes || known.contains(drive.place)) {
      to_stay[drive.place] = name_of(drive.part);
    }
  }
  find_troubles(present, finding);
  for (const auto &[place, drive] : missing_parts(numbers_, drive_group, to_stay)) {
    slots = std::max(slots, drive.number);
    finding.troubles.push_back(missing(drive_trouble(place, {drive.number, drive.name}, "gone"), drive));
  }
  numbers_.free_absent(drive_group, here);
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
