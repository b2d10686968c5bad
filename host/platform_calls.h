// Watches the module's calls into the platform's libraries. Nothing can interrupt such a call, and the module often
// holds a table's lock meanwhile. So the daemon stands in front of these functions and says which one does not return.
//
// It is not in front of listen_to_fe_broadcaster() and se_get_next_storage_event(), which wait for events by design.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <span>

#include "host/deadline_watcher.h"

namespace tavo {

// The functions that the daemon stands in front of.
std::span<const char *const> watched_platform_functions();

class PlatformCalls {
 public:
  // From now on, calls are watched. The log names each that lasts longer than `limit`: once at the limit, and once when
  // it returns. 0: no call is watched. Only one object may exist at a time. Throws std::system_error.
  explicit PlatformCalls(std::chrono::milliseconds limit);
  // No call may be under way.
  ~PlatformCalls();
  PlatformCalls(const PlatformCalls &) = delete;
  PlatformCalls &operator=(const PlatformCalls &) = delete;

  // Any thread may call the rest.

  struct Overdue {
    const char *function;
    std::chrono::steady_clock::duration age;
  };
  // The oldest call that is over the limit now.
  std::optional<Overdue> overdue() const;
  // How many calls have gone over the limit since the start.
  std::uint64_t overdue_so_far() const { return overdue_so_far_; }

  class Call;

 private:
  using Clock = std::chrono::steady_clock;
  struct Entry {
    const char *function;
    Clock::time_point started;
    bool reported = false;  // to be over the limit
  };

  std::list<Entry>::iterator begin(const char *function);
  void end(std::list<Entry>::iterator call);
  // Returns when the next call reaches the limit, if any can.
  std::optional<Clock::time_point> report_overdue();

  const std::chrono::milliseconds limit_;
  std::atomic<std::uint64_t> overdue_so_far_ = 0;

  mutable std::mutex mutex_;
  // Guarded by mutex_.
  std::list<Entry> under_way_;  // oldest first
  // The watcher sleeps until it is woken. With a deadline to wait for it needs no waking, since later calls have later
  // ones: it wakes once in each `limit_` at most, and never while there is no call.
  bool watcher_rests_ = false;

  DeadlineWatcher watcher_;  // the last member, since its thread uses the others
};

// One call, as long as it lasts. Without memory, or while no call is watched, it does nothing.
class PlatformCalls::Call {
 public:
  // `function` must stay valid.
  explicit Call(const char *function) noexcept;
  ~Call();
  Call(const Call &) = delete;
  Call &operator=(const Call &) = delete;

 private:
  PlatformCalls *calls_;
  std::list<Entry>::iterator entry_;
};

}  // namespace tavo
