// A server while it is served: its parts and faults, and what its platform shows of them.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "platform/storage_client.h"
#include "service/event_stream.h"
#include "service/fault_engine.h"
#include "service/inventory.h"
#include "service/platform_files.h"
#include "service/real_server.h"

namespace tavo::service {

// How a query tool behaves.
struct ToolMode {
  enum class Kind { Works, Missing, Slow, Silent, Garbled, Prints, Hangs, Floods, Forks, Killed };
  Kind kind = Kind::Works;
  unsigned seconds = 0;  // Slow
  std::string file;      // Prints
};

inline constexpr auto tool_names = std::to_array<std::string_view>({"datactl", "flatkv", "slotutil", "ipmitool"});

// Where the server meets its file system.
struct Surroundings {
  std::string var = "/var";                  // the directory of the platform's files
  std::string sd_socket = VELT_SOCKET_PATH;  // where the module listens for SD-card changes
};

// Thread safe.
class Machine {
 public:
  // Also writes the platform's files. `real` is the server that the machine shows, and outlives it; null: a simulated
  // one.
  Machine(Inventory inventory, Surroundings surroundings, RealServer *real = nullptr);

  RealServer *real() const { return real_; }

  template <class Use>
  auto read(Use use) {
    const std::lock_guard lock(mutex_);
    return use(std::as_const(inventory_));
  }

  // Changes the inventory, writes the files again and returns what `change` does. If it throws, what it has changed so
  // far stays, and the files are not written.
  template <class Change>
  auto change(Change change) {
    const std::lock_guard lock(mutex_);
    if constexpr (std::is_void_v<decltype(change(inventory_))>) {
      change(inventory_);
      write_files();
    } else {
      auto result = change(inventory_);
      write_files();
      return result;
    }
  }

  // Changes readings, which the platform's files do not hold, so none is written.
  template <class Change>
  void change_readings(Change change) {
    const std::lock_guard lock(mutex_);
    change(inventory_);
  }

  void damage_snapshot(const SnapshotDamage &damage);

  ToolMode tool(const std::string &name);
  void set_tool(const std::string &name, const ToolMode &mode);

  FaultEngine &faults() { return faults_; }
  // Raises a fault, or raises it again. The settings must name the class. A new fault affects the part that its class
  // and unit stand for, unless the settings say otherwise.
  void raise_fault(std::uint32_t index, Settings settings);
  EventStream &storage_events() { return storage_events_; }
  void send_storage_event(std::uint32_t type);

  // Connects to the SD-card socket, sends `text` and closes, as the SD-card service does after a change. False, with
  // errno set, if nobody listens, or whoever does has not taken it within the time limit (EAGAIN): a daemon whose
  // backlog is full may be slow.
  bool announce_sd_change(const std::string &text,
                          std::chrono::milliseconds time_limit = std::chrono::seconds(60)) const;
  const std::string &sd_socket() const { return surroundings_.sd_socket; }

  // Ends storms and other long commands early.
  void stop() { stopping_ = true; }
  bool stopping() const { return stopping_; }

 private:
  // With mutex_ held.
  void write_files() { write_platform_files(inventory_, damage_, surroundings_.var); }

  const Surroundings surroundings_;
  RealServer *const real_;
  std::mutex mutex_;
  // Guarded by mutex_.
  Inventory inventory_;
  SnapshotDamage damage_;
  std::map<std::string, ToolMode> tools_;  // without an entry, a tool works

  FaultEngine faults_;
  EventStream storage_events_;
  std::atomic<bool> stopping_ = false;
};

}  // namespace tavo::service
