#include "simulator/machine.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "platform/storage_client.h"
#include "simulator/affected.h"
#include "simulator/little_endian.h"
#include "simulator/unix_socket.h"

namespace tavo::sim {
namespace {

// Moves a reading up or down by at most `most`, but not below 0.1. A reading of 0 is one that the server lacks, and
// stays.
void step(Part &part, std::string_view field, double most, std::minstd_rand &random) {
  const double now = std::strtod(part.text(field).c_str(), nullptr);
  if (now == 0) {
    return;
  }
  constexpr double least = 0.1;
  const double next = std::fmax(least, now + std::uniform_real_distribution(-most, most)(random));
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f", next);
  part.set(field, text.data());
}

std::vector<Part> named_faults(const Inventory &inventory) {
  std::vector<Part> faults = inventory.faults;
  for (Part &fault : faults) {
    name_affected(fault, inventory);
  }
  return faults;
}

}  // namespace

Machine::Machine(Inventory inventory, Surroundings surroundings)
    : surroundings_(std::move(surroundings)), inventory_(std::move(inventory)), faults_(named_faults(inventory_)) {
  write_files();
}

void Machine::raise_fault(std::uint32_t index, Settings settings) {
  if (!class_in(settings)) {
    throw BadInput("a fault needs class=...");
  }
  Part fault = FaultEngine::bare_fault(index, settings);
  read([&](const Inventory &inventory) { name_affected(fault, inventory); });
  faults_.raise(fault, settings);
}

void Machine::damage_snapshot(const SnapshotDamage &damage) {
  const std::lock_guard lock(mutex_);
  damage_ = damage;
  write_files();
}

ToolMode Machine::tool(const std::string &name) {
  const std::lock_guard lock(mutex_);
  const auto found = tools_.find(name);
  return found != tools_.end() ? found->second : ToolMode{};
}

void Machine::set_tool(const std::string &name, const ToolMode &mode) {
  const std::lock_guard lock(mutex_);
  tools_[name] = mode;
}

void Machine::send_storage_event(std::uint32_t type) {
  Record event(STORAGE_EVENT_SIZE);
  put_little_endian(std::span(event).subspan(STORAGE_EVENT_TYPE, sizeof type), type);
  storage_events_.publish(event);
}

bool Machine::announce_sd_change(const std::string &text) const {
  // A daemon whose backlog is full may be slow; one that does not listen refuses at once.
  constexpr std::chrono::seconds time_limit(60);
  const Descriptor connection = connect_to(surroundings_.sd_socket, time_limit);
  return connection && send_all(connection.get(), std::as_bytes(std::span(text)));
}

void Machine::drift(unsigned seconds) {
  const std::lock_guard lock(mutex_);
  const std::int64_t interval = inventory_.environment.number("drift");
  seconds_since_drift_ = interval > 0 ? seconds_since_drift_ + seconds : 0;
  if (interval <= 0 || seconds_since_drift_ < interval) {
    return;
  }
  seconds_since_drift_ = 0;
  step(inventory_.environment, "power", 4, random_);
  step(inventory_.environment, "current", 0.1, random_);
  step(inventory_.environment, "voltage", 0.1, random_);
  for (const std::string_view reading : {"ambient", "front", "iohub1", "iohub2", "rear"}) {
    step(inventory_.environment, reading, 0.6, random_);
  }
  for (Part &processor : inventory_.processors) {
    step(processor, "temperature", 1, random_);
  }
  for (Part &dimm : inventory_.dimms) {
    step(dimm, "temperature", 0.6, random_);
  }
}

}  // namespace tavo::sim
