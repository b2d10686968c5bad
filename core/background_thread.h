// The life that the module's background threads share: created joinable, stopped by a flag, joined at shut-down.
#pragma once

#include <pthread.h>

#include <atomic>
#include <exception>

#include "core/trace.h"

namespace tavo {

// What is a thread's own. All texts end with a newline; what is logged is logged at debug level, but for failures.
struct ThreadDescription {
  void *(*start_routine)(void *);  // its argument is null
  const char *source;              // the source unit, as the trace names it
  const char *creating;            // traced when the thread is created; its %s is the function that does it
  const char *create_failed;
  const char *stopping;
  const char *join_failed;
  const char *exited;
  int failure_level = LOG_DEBUG;  // of create_failed and join_failed
  // Both free what the thread used, once it has ended: release_before_attributes before the thread's attributes are
  // destroyed, release_after_attributes after. Null when there is nothing to free.
  void (*release_before_attributes)() = nullptr;
  void (*release_after_attributes)() = nullptr;
};

// One thread; a constant-initialised global of its unit. create, stop and join belong to the daemon's own thread. No
// thread is created twice.
class BackgroundThread {
 public:
  explicit constexpr BackgroundThread(const ThreadDescription &description) : description_(description) {}

  // Sets the run flag and starts the thread. 0, or -1 when it cannot be created.
  int create(Caller caller = Caller::here());

  // Clears the run flag, which the thread sees when it next asks. It does not wake the thread.
  void stop();

  // Waits for the thread to end and frees what it used. A join that fails is logged and the rest is done all the same,
  // and so it is when there is no thread to join.
  void join();

  // The run flag. 0 also ends the thread from within, as after an error that it cannot get over.
  bool is_running() const { return run_flag_.load(std::memory_order_relaxed) != 0; }
  void clear_run_flag() { run_flag_.store(0, std::memory_order_relaxed); }

 private:
  const ThreadDescription description_;
  std::atomic<int> run_flag_ = 0;
  bool created_ = false;
  pthread_t handle_ = {};
  pthread_attr_t attributes_ = {};
};

// The frame of a start routine: does the thread's work, which must not end the process by an exception, and leaves by
// pthread_exit. That unwinds the stack, so no noexcept function may stand below, and only standard exceptions are
// caught.
template <class Work>
[[noreturn]] void run_thread(const char *name, Work work) {
  try {
    work();
  } catch (const std::exception &exception) {
    snmp_log(LOG_ERR, "%s: %s\n", name, exception.what());
  }
  pthread_exit(nullptr);
}

}  // namespace tavo
