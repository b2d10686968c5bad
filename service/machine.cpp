#include "service/machine.h"

#include "platform/storage_client.h"
#include "service/affected.h"
#include "service/little_endian.h"
#include "service/unix_socket.h"

namespace tavo::service {
namespace {

std::vector<Part> named_faults(const Inventory &inventory) {
  std::vector<Part> faults = inventory.faults;
  for (Part &fault : faults) {
    name_affected(fault, inventory);
  }
  return faults;
}

}  // namespace

Machine::Machine(Inventory inventory, Surroundings surroundings, RealServer *real)
    : surroundings_(std::move(surroundings)),
      real_(real),
      inventory_(std::move(inventory)),
      faults_(named_faults(inventory_)) {
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

bool Machine::announce_sd_change(const std::string &text, std::chrono::milliseconds time_limit) const {
  const Descriptor connection = connect_to(surroundings_.sd_socket, time_limit);
  return connection && send_all(connection.get(), std::as_bytes(std::span(text)));
}

}  // namespace tavo::service
