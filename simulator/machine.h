// The simulated server while it runs.
#pragma once

#include <array>
#include <atomic>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/event_stream.h"
#include "simulator/fault_engine.h"
#include "simulator/inventory.h"
#include "simulator/platform_files.h"

namespace tavo::sim {

// How a front end behaves.
struct ToolMode {
  enum class Kind { Works, Missing, Slow, Silent, Garbled, Prints };
  Kind kind = Kind::Works;
  unsigned seconds = 0;  // Slow
  std::string file;      // Prints
};

inline constexpr auto tool_names = std::to_array<std::string_view>({"datactl", "flatkv", "slotutil", "ipmitool"});

// Where the simulated server meets its file system.
struct Surroundings {
  std::filesystem::path var = "/var";
  std::string sd_socket = "/tmp/snmp_velt_sock";  // listened to by whoever wants to know of SD-card changes
};

// Thread safe.
class Machine {
 public:
  // Writes the platform's files.
  Machine(Inventory inventory, Surroundings surroundings);

  template <class Use>
  auto read(Use use) {
    const std::lock_guard lock(mutex_);
    return use(std::as_const(inventory_));
  }

  // Changes the inventory and writes the files anew. When `change` throws, its changes so far stand and the files do
  // not.
  template <class Change>
  void change(Change change) {
    const std::lock_guard lock(mutex_);
    change(inventory_);
    write_files();
  }

  void damage_snapshot(const SnapshotDamage &damage);

  ToolMode tool(const std::string &name);
  void set_tool(const std::string &name, const ToolMode &mode);

  FaultEngine &faults() { return faults_; }
  EventStream &storage_events() { return storage_events_; }
  void send_storage_event(std::uint32_t type);

  // Connects to the SD-card socket, sends a line and closes, as the SD-card service does after a change. False when
  // nobody listens.
  bool announce_sd_change(const std::string &text) const;
  const std::string &sd_socket() const { return surroundings_.sd_socket; }

  // Moves every reading a little when the environment's drift says that it is time. Called about once a second.
  void drift(unsigned seconds_passed);

  // What waits inside the machine ends early after this.
  void stop() { stopping_ = true; }
  bool stopping() const { return stopping_; }

 private:
  void write_files() { write_platform_files(inventory_, damage_, surroundings_.var); }  // with mutex_ held

  const Surroundings surroundings_;
  std::mutex mutex_;
  // Guarded by mutex_.
  Inventory inventory_;
  SnapshotDamage damage_;
  std::map<std::string, ToolMode> tools_;
  unsigned since_drift_ = 0;  // seconds

  FaultEngine faults_;
  EventStream storage_events_;
  std::atomic<bool> stopping_ = false;
};

}  // namespace tavo::sim
