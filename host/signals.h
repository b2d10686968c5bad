// What the daemon does about signals. SIGUSR1 belongs to the test-notification thread, which waits for it with
// sigwait(): it is blocked in every thread. SIGTERM, SIGINT and SIGHUP set what the loop looks at, and wake it.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

#include "host/event_descriptor.h"

namespace tavo {

class Signals {
 public:
  // To be constructed before any other thread exists, so that all inherit the mask. `leave_at_once` ends the process;
  // it is called on a thread of its own when the stop that a signal asked for is not over in time, or when a second
  // such signal comes. Throws std::system_error.
  explicit Signals(std::function<void()> leave_at_once);
  ~Signals();
  Signals(const Signals &) = delete;
  Signals &operator=(const Signals &) = delete;

  bool stop_requested() const { return stop_requested_; }
  // True once for each SIGHUP, or for several that came together.
  bool take_reload() { return reload_requested_.exchange(false); }
  // Readable when one of the two may have changed.
  const EventDescriptor &changed() const { return changed_; }

 private:
  void watch();

  const std::function<void()> leave_at_once_;
  const EventDescriptor changed_;
  std::atomic<bool> stop_requested_ = false;
  std::atomic<bool> reload_requested_ = false;
  std::thread watcher_;
};

}  // namespace tavo
