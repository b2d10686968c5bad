#include "tests/fakes/allocation.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <functional>
#include <mutex>
#include <utility>

namespace tavo::fakes {
namespace {

std::mutex mutex;
int successes_left = 0;
int failures_left = 0;
int failed = 0;
std::function<void()> next_failure_call;
// Read without the mutex: locking it would order the module's threads and hide their races from ThreadSanitizer.
std::atomic<bool> failing = false;

bool fails() {
  if (!failing.load(std::memory_order_relaxed)) {
    return false;
  }
  std::unique_lock lock(mutex);
  if (failures_left == 0) {
    return false;
  }
  if (successes_left > 0) {
    --successes_left;
    return false;
  }
  --failures_left;
  ++failed;
  if (const auto call = std::exchange(next_failure_call, nullptr)) {
    lock.unlock();
    call();
  }
  errno = ENOMEM;
  return true;
}

}  // namespace

void fail_allocations(int successes, int failures) {
  const std::scoped_lock lock(mutex);
  successes_left = successes;
  failures_left = failures;
  failing = failures > 0;
}

void on_next_failed_allocation(std::function<void()> call) {
  const std::scoped_lock lock(mutex);
  next_failure_call = std::move(call);
}

int failed_allocations() {
  const std::scoped_lock lock(mutex);
  return failed;
}

void reset_allocations() {
  const std::scoped_lock lock(mutex);
  successes_left = 0;
  failures_left = 0;
  failed = 0;
  next_failure_call = nullptr;
  failing = false;
}

}  // namespace tavo::fakes

extern "C" {

void *__real_calloc(std::size_t count, std::size_t size);
void *__real_reallocarray(void *memory, std::size_t count, std::size_t size);

void *__wrap_calloc(std::size_t count, std::size_t size) {
  return tavo::fakes::fails() ? nullptr : __real_calloc(count, size);
}

void *__wrap_reallocarray(void *memory, std::size_t count, std::size_t size) {
  return tavo::fakes::fails() ? nullptr : __real_reallocarray(memory, count, size);
}
}
