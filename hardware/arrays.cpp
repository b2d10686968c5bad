#include "hardware/arrays.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>
#include <string_view>

#include "core/class_number.h"
#include "hardware/drive_place.h"
#include "hardware/drive_trouble.h"
#include "hardware/sysfs.h"
#include "hardware/system_controller.h"
#include "platform/storage_snapshot.h"
#include "service/affected.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

// The arrays in the register.
constexpr const char *array_group = "array";

struct Array {
  std::int64_t position;  // in the controller's list, from 0
  std::string key;        // in the register
  std::string name;       // "md0"
  std::string state;      // as a scenario writes it
  std::int64_t blocks;
};

// A drive that an array consists of, wholly or in part.
struct Member {
  std::string array;  // "md0"
  std::string drive;  // "sda"
  bool has_failed;
  bool is_rebuilt;
};

// Neither an array that is not set up yet, nor the container of others that firmware describes: that one is never
// active. The arrays in it say "external:/md127/0".
bool is_array(const fs::path &md) {
  std::error_code error;
  const std::string metadata = read_attribute(md / "metadata_version").value_or("");
  const bool is_container = metadata.starts_with("external:") && !metadata.starts_with("external:/");
  return fs::exists(md, error) && read_attribute(md / "array_state") != "clear" && !is_container;
}

std::string state_of(const fs::path &md) {
  const std::string state = read_attribute(md / "array_state").value_or("");
  if (state.empty() || state == "inactive" || state == "broken") {
    return "offline";
  }
  return read_number(md / "degraded").value_or(0) > 0 ? "degraded" : "optimal";
}

// The digits of a UUID, which the kernel and udevd divide differently. Empty if it is none, such as that of an array
// without metadata, which is 0.
std::string uuid_digits(const std::string &text) {
  constexpr std::size_t length = 32;
  std::string digits;
  for (const unsigned char c : text) {
    if (std::isxdigit(c) != 0) {
      digits += static_cast<char>(std::tolower(c));
    }
  }
  return digits.size() == length && digits.find_first_not_of('0') != std::string::npos ? digits : "";
}

// The drive that a block device is, or is a partition of: "sda".
std::string drive_of(const fs::path &block) {
  std::error_code error;
  const fs::path device = fs::canonical(block, error);
  const bool is_partition = !error && fs::exists(device / "partition", error);
  return (is_partition ? device.parent_path() : device).filename();
}

std::vector<Member> members_of(const fs::path &disk) {
  const fs::path md = disk / "md";
  const bool is_recovering = read_attribute(md / "sync_action") == "recover";
  std::vector<Member> members;
  for (const fs::path &member : entries(md, "dev-")) {
    const std::string states = ',' + read_attribute(member / "state").value_or("") + ',';
    const bool has_place = read_number(member / "slot").has_value();
    members.push_back({.array = disk.filename(),
                       .drive = drive_of(member / "block"),
                       .has_failed = states.find(",faulty,") != std::string::npos,
                       .is_rebuilt = is_recovering && has_place && states.find(",spare,") != std::string::npos});
  }
  return members;
}

void enter_volumes(RaidController &controller, const std::vector<Array> &arrays) {
  std::vector<Part> &volumes = controller.volumes;
  for (const Array &array : arrays) {
    const auto position = static_cast<std::size_t>(array.position);
    while (volumes.size() <= position) {
      volumes.emplace_back(volume_kind).set("state", "none");
    }
    Part &volume = volumes[position];
    volume.set("type", "0");
    volume.set("state", array.state);
    volume.set_number("capacity", array.blocks * block_size);
    volume.set_number("blocks", array.blocks);
  }
}

// A drive that says of itself that it is failing stays one that has failed.
void enter_members(RaidController &controller, const std::vector<Member> &members) {
  const Part good(drive_kind);
  for (const Member &member : members) {
    const auto drive =
        std::ranges::find_if(controller.drives, [&](const Part &part) { return part.text("name") == member.drive; });
    if (drive == controller.drives.end()) {
      continue;
    }
    if (member.has_failed) {
      drive->set("state", "failed");
    } else if (member.is_rebuilt && drive->number("state") == good.number("state")) {
      drive->set("state", "rebuilding");
    }
  }
}

// Without its severity.
Trouble trouble_of(const std::string &key, std::int64_t position, const std::string &description) {
  return {.key = key,
          .class_code = class_number::volume,
          .unit = position,
          .description = description,
          .affected = system_dn + "/vd-" + std::to_string(position),
          .affected_oid = dn_oid(dn_column::volume, position + 1)};
}

Trouble trouble_of(const Array &array) {
  Trouble trouble = trouble_of("array " + array.key, array.position, "Array " + array.name + " is " + array.state);
  trouble.severity = array.state == "offline" ? "critical" : "major";
  return trouble;
}

Trouble missing_array(const std::string &key, const MissingPart &array) {
  Trouble gone = missing(trouble_of("array " + key + " gone", array.number - 1,
                                    "Array " + std::to_string(array.number) + " (" + array.name + ')'),
                         array);
  gone.severity = "major";  // what is on it cannot be reached
  // There is no row for it: the identifier is the server's.
  gone.affected_oid = affected_server().oid;
  return gone;
}

// A drive whose partitions are in several arrays may have failed in each of them, and is still one drive. Drives that
// nobody has listed, or would miss, have no fault of their own.
std::vector<Trouble> failed_members(const std::vector<Member> &members, const fs::path &sys, Register &numbers) {
  std::map<std::string, std::set<std::string_view>> arrays;  // by the drive's place
  for (const Member &member : members) {
    if (member.has_failed) {
      arrays[place_of(device_of(sys / "block" / member.drive))].insert(member.array);
    }
  }
  const auto drives = numbers.parts(drive_group);
  std::vector<Trouble> troubles;
  for (const auto &[place, names] : arrays) {
    const auto drive = drives.find(place);
    if (drive != drives.end()) {
      Trouble &failed = troubles.emplace_back(drive_trouble(place, drive->second, "failed in its array"));
      failed.severity = "major";
      failed.description += (names.size() > 1 ? " has failed in arrays " : " has failed in array ") +
                            joined({names.begin(), names.end()});
    }
  }
  return troubles;
}

}  // namespace

// An array is known by its UUID, because the kernel's number may be another one after each boot. Where nobody tells the
// UUID, because the array has none or udevd has not come to it yet, the name must do.
std::string ArraySource::key_of(const fs::path &disk) {
  std::string name = disk.filename();
  std::string uuid = uuid_digits(read_attribute(disk / "md/uuid").value_or(""));
  if (uuid.empty()) {
    uuid = uuid_digits(property_of_(name, "MD_UUID"));
  }
  if (!uuid.empty()) {
    std::string key = "uuid " + uuid;
    numbers_.rename(array_group, name, key);
    return key;
  }
  if (read_attribute(disk / "md/metadata_version") != "none") {
    for (const auto &[key, array] : numbers_.parts(array_group)) {
      if (array.name == name) {
        return key;
      }
    }
  }
  return name;
}

Finding ArraySource::read() {
  events_.take();
  Finding finding;
  std::vector<Array> arrays;
  std::vector<Member> members;
  std::map<std::string, std::string> present;
  for (const fs::path &disk : entries(roots_.sys / "block", "md")) {
    if (!is_array(disk / "md")) {
      continue;
    }
    const std::string name = disk.filename();
    const std::string key = key_of(disk);
    const std::int64_t position = numbers_.number_of(array_group, key) - 1;
    present[key] = name;
    if (position >= STOR_VOLUME_CAPACITY) {
      finding.unreadable.push_back(name + ": there are too many arrays");
      continue;
    }
    arrays.push_back({.position = position,
                      .key = key,
                      .name = name,
                      .state = state_of(disk / "md"),
                      .blocks = read_number(disk / "size").value_or(0)});
    if (arrays.back().state != "optimal") {
      finding.troubles.push_back(trouble_of(arrays.back()));
    }
    std::ranges::move(members_of(disk), std::back_inserter(members));
  }
  std::ranges::move(failed_members(members, roots_.sys, numbers_), std::back_inserter(finding.troubles));
  for (const auto &[key, array] : missing_parts(numbers_, array_group, present)) {
    finding.troubles.push_back(missing_array(key, array));
  }
  numbers_.free_absent(array_group, present);
  if (!arrays.empty()) {
    finding.enter = [arrays, members](Inventory &inventory) {
      RaidController &controller = system_controller(inventory);
      enter_volumes(controller, arrays);
      enter_members(controller, members);
    };
  }
  return finding;
}

}  // namespace tavo::service
