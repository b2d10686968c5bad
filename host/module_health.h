// What the module has reported of its own health (core/health.h).
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <mutex>
#include <optional>
#include <vector>

namespace tavo {

// A table of the module.
struct TableHealth {
  const char *name;
  const std::atomic<std::size_t> *rows;
  std::uint64_t rebuilds = 0;  // that have ended
  std::uint64_t failures = 0;  // among them
  // Of the last rebuild that has ended.
  std::time_t ended = 0;
  std::chrono::steady_clock::duration duration{0};
  // When the one that is under way began.
  std::optional<std::chrono::steady_clock::time_point> began;
};

// Requests that wait for a table, or have waited.
struct RequestHealth {
  std::size_t waiting = 0;
  std::uint64_t set_aside = 0;  // since the start
  // Of all since the start, those that still wait included.
  std::chrono::steady_clock::duration longest_wait{0};
};

// Any thread may call everything here. No call waits for the module.
class ModuleHealth {
 public:
  // What the module's reports reach. Never destroyed, because a thread of the module may outlive main().
  static ModuleHealth &instance();

  void table_registered(const char *name, const std::atomic<std::size_t> *rows);
  // Reports on a table that is not registered are ignored.
  void rebuild_begins(const char *table);
  void rebuild_ends(const char *table, bool succeeded);
  void request_set_aside(const void *request);
  void request_ended(const void *request);

  std::size_t tables() const;
  // By number, from 0, in the order of registration.
  TableHealth table(std::size_t number) const;
  RequestHealth requests() const;

 private:
  using Clock = std::chrono::steady_clock;
  struct WaitingRequest {
    const void *request;
    Clock::time_point since;
  };

  TableHealth *find(const char *table);

  mutable std::mutex mutex_;
  // Guarded by mutex_.
  std::vector<TableHealth> tables_;
  std::vector<WaitingRequest> waiting_;  // oldest first
  std::uint64_t set_aside_ = 0;
  Clock::duration longest_wait_{0};  // of those that have ended
};

}  // namespace tavo
