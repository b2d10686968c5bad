// A thread that does something when its time has come.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <thread>

#include "host/event_descriptor.h"

namespace tavo {

class DeadlineWatcher {
 public:
  // Does what is due, and says when something is due next; nothing: not before wake().
  using Look = std::function<std::optional<std::chrono::steady_clock::time_point>()>;

  DeadlineWatcher() = default;
  // Ends the thread.
  ~DeadlineWatcher();
  DeadlineWatcher(const DeadlineWatcher &) = delete;
  DeadlineWatcher &operator=(const DeadlineWatcher &) = delete;

  // Starts the thread, which takes no signals and calls nothing but `look`. Throws std::system_error. Once at most.
  void start(Look look);
  // Has the thread look again, since something may be due earlier. Any thread.
  void wake() const noexcept { changed_.signal(); }

 private:
  void watch();

  const EventDescriptor changed_;
  std::atomic<bool> must_end_ = false;
  Look look_;
  std::thread thread_;
};

}  // namespace tavo
