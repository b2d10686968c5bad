// What the module's background threads have in common: created joinable, stopped by a flag, joined at shut-down.
#pragma once

#include <pthread.h>

#include <atomic>

#include "core/trace.h"

namespace tavo {

// What differs from thread to thread. Each text ends with a newline, and is logged at debug level unless it reports a
// failure.
struct ThreadDescription {
  void *(*start_routine)(void *);  // its argument is null
  const char *source;              // the source unit, as the trace names it
  const char *creating;            // traced when the thread is created; its %s is the function that does it
  const char *create_failed;
  const char *stopping;
  const char *join_failed;
  const char *exited;
  int failure_level = LOG_DEBUG;  // of create_failed and join_failed
  // Free what the thread used once it has ended, one before its attributes are destroyed, the other after. Null if
  // there is nothing to free.
  void (*release_before_attributes)() = nullptr;
  void (*release_after_attributes)() = nullptr;
};

// One thread: a constant-initialised global of its unit. Only the daemon's own thread calls create, stop and join, and
// it creates no thread twice.
class BackgroundThread {
 public:
  explicit constexpr BackgroundThread(const ThreadDescription &description) : description_(description) {}

  // Sets the run flag and starts the thread. 0, or -1 if it cannot be created.
  int create(Caller caller = Caller::here());

  // Clears the run flag, which the thread sees when it next tests it. Does not wake the thread.
  void stop();

  // Waits for the thread to end and frees what it used. If the join fails or there is no thread to join, logs that and
  // does the rest all the same.
  void join();

  // The run flag. The thread itself clears it after a fatal error.
  bool is_running() const { return run_flag_.load(std::memory_order_relaxed) != 0; }
  void clear_run_flag() { run_flag_.store(0, std::memory_order_relaxed); }

 private:
  const ThreadDescription description_;
  std::atomic<int> run_flag_ = 0;
  bool created_ = false;
  pthread_t handle_ = {};
  pthread_attr_t attributes_ = {};
};

}  // namespace tavo
