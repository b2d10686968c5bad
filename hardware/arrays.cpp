#include "hardware/arrays.h"

#include "hardware/sysfs.h"
#include "hardware/system_controller.h"
#include "platform/storage_snapshot.h"
#include "service/causes.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

constexpr int volume_class = 210;
constexpr std::int64_t block_size = 512;

struct Array {
  std::int64_t position;  // in the controller's list, from 0
  std::string name;       // "md0"
  std::string state;      // as a scenario writes it
  std::int64_t blocks;
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

void enter(Inventory &inventory, const std::vector<Array> &arrays) {
  std::vector<Part> &volumes = system_controller(inventory).volumes;
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

Trouble trouble_of(const Array &array) {
  const bool is_offline = array.state == "offline";
  return {.key = "array " + array.name,
          .class_code = volume_class,
          .unit = array.position,
          .severity = is_offline ? "critical" : "major",
          .cause = cause::failed,
          .description = "Array " + array.name + " is " + array.state,
          .affected = system_dn + "/vd-" + std::to_string(array.position),
          .affected_oid = "1.3.6.1.4.1.61453.4.207.1.45.8.1.2." + std::to_string(array.position + 1)};
}

}  // namespace

Finding ArraySource::read() {
  events_.take();
  Finding finding;
  std::vector<Array> arrays;
  for (const fs::path &disk : entries(roots_.sys / "block", "md")) {
    if (!is_array(disk / "md")) {
      continue;
    }
    const std::string name = disk.filename();
    const std::int64_t position = numbers_.number_of("array", name) - 1;
    if (position >= STOR_VOLUME_CAPACITY) {
      finding.unreadable.push_back(name + ": there are too many arrays");
      continue;
    }
    arrays.push_back({.position = position,
                      .name = name,
                      .state = state_of(disk / "md"),
                      .blocks = read_number(disk / "size").value_or(0)});
    if (arrays.back().state != "optimal") {
      finding.troubles.push_back(trouble_of(arrays.back()));
    }
  }
  if (!arrays.empty()) {
    finding.enter = [arrays](Inventory &inventory) { enter(inventory, arrays); };
  }
  return finding;
}

}  // namespace tavo::service
