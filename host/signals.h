// The daemon's signal handling. SIGTERM, SIGINT and SIGHUP set flags and wake the loop, which reads them. SIGUSR1
// belongs to the test-notification thread, which waits for it in sigwait(), so it is blocked in every thread.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "host/event_descriptor.h"

namespace tavo {

class Signals {
 public:
  // What a thread of its own calls.
  struct Reactions {
    std::function<void()> stop_begins;    // on the first SIGTERM or SIGINT; must not wait
    std::function<void()> leave_at_once;  // must end the process: on the second, or when the stop overruns
  };

  // Construct it before any thread of the module exists, so that all of them inherit the mask. The stop overruns when
  // it takes longer than `longest_stop`. Throws std::system_error.
  Signals(std::chrono::seconds longest_stop, Reactions reactions);
  ~Signals();
  Signals(const Signals &) = delete;
  Signals &operator=(const Signals &) = delete;

  bool stop_requested() const { return stop_requested_; }
  // True once for each SIGHUP; several that arrive together count as one.
  bool take_reload() { return reload_requested_.exchange(false); }
  // Readable when either may have changed.
  const EventDescriptor &changed() const { return changed_; }

 private:
  void watch();

  const std::chrono::seconds longest_stop_;
  const Reactions reactions_;
  const EventDescriptor changed_;
  std::atomic<bool> stop_requested_ = false;
  std::atomic<bool> reload_requested_ = false;
  std::thread watcher_;
};

}  // namespace tavo
