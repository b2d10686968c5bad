#include "simulator/machine.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "platform/storage_client.h"

namespace tavo::sim {
namespace {

// A step of at most `most` up or down, to a tenth; never below 0.
void step(Part &part, std::string_view field, double most, std::minstd_rand &random) {
  const double now = std::strtod(part.text(field).c_str(), nullptr);
  if (now == 0) {
    return;  // a reading that the server does not have
  }
  const double next = std::fmax(0.1, now + std::uniform_real_distribution(-most, most)(random));
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f", next);
  part.set(field, text.data());
}

}  // namespace

Machine::Machine(Inventory inventory, Surroundings surroundings)
    : surroundings_(std::move(surroundings)), inventory_(std::move(inventory)), faults_(inventory_.faults) {
  write_files();
}

void Machine::damage_snapshot(const SnapshotDamage &damage) {
  const std::lock_guard lock(mutex_);
  damage_ = damage;
  write_files();
}

ToolMode Machine::tool(const std::string &name) {
  const std::lock_guard lock(mutex_);
  return tools_[name];
}

void Machine::set_tool(const std::string &name, const ToolMode &mode) {
  const std::lock_guard lock(mutex_);
  tools_[name] = mode;
}

void Machine::send_storage_event(std::uint32_t type) {
  Record event(STORAGE_EVENT_SIZE);
  for (std::size_t i = 0; i < 4; ++i) {
    event[STORAGE_EVENT_TYPE + i] = static_cast<std::byte>(type >> (8 * i));
  }
  storage_events_.publish(event);
}

bool Machine::announce_sd_change(const std::string &text) const {
  // A daemon whose backlog is full may be slow; one that does not listen refuses at once.
  constexpr std::chrono::seconds time_limit(60);
  const Descriptor connection = connect_to(surroundings_.sd_socket, time_limit);
  return connection && send_all(connection.get(), std::as_bytes(std::span(text)));
}

void Machine::drift(unsigned seconds_passed) {
  const std::lock_guard lock(mutex_);
  const std::int64_t interval = inventory_.environment.number("drift");
  since_drift_ = interval > 0 ? since_drift_ + seconds_passed : 0;
  if (interval <= 0 || since_drift_ < interval) {
    return;
  }
  since_drift_ = 0;
  static std::minstd_rand random;
  step(inventory_.environment, "power", 4, random);
  step(inventory_.environment, "current", 0.1, random);
  step(inventory_.environment, "voltage", 0.1, random);
  for (const std::string_view reading : {"ambient", "front", "iohub1", "iohub2", "rear"}) {
    step(inventory_.environment, reading, 0.6, random);
  }
  for (Part &processor : inventory_.processors) {
    step(processor, "temperature", 1, random);
  }
  for (Part &dimm : inventory_.dimms) {
    step(dimm, "temperature", 0.6, random);
  }
}

}  // namespace tavo::sim
