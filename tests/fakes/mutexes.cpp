#include "tests/fakes/mutexes.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <utility>

namespace tavo::fakes {
namespace {

// Per thread: the test's own mutexes pass through here too, and must keep working in all other threads.
thread_local int next_error = 0;
thread_local int successes_left = 0;
thread_local int failures_left = 0;
thread_local const void *failing_mutex = nullptr;  // null: any
thread_local const void *locked = nullptr;
thread_local const void *tried = nullptr;
thread_local const void *signalled = nullptr;
thread_local std::function<void()> lock_call;
thread_local std::function<int()> signal_answer;

// Atomics instead of a lock: ThreadSanitizer's run-time library calls in here as well, while it starts a thread, and
// does not see locks then.
std::atomic<bool> recording = false;
std::atomic<std::size_t> recorded_count = 0;
std::array<std::atomic<const void *>, 64> recorded;  // any more are only counted

// The error that this call returns instead of being made; 0 for a real call.
int error_of_this_call(const void *mutex) {
  const bool meant = failing_mutex == nullptr || failing_mutex == mutex;
  if (next_error == 0 || !meant || successes_left-- > 0) {
    return 0;
  }
  return --failures_left > 0 ? next_error : std::exchange(next_error, 0);
}

// False when nothing is being recorded.
bool record_destruction(const void *object) {
  if (!recording) {
    return false;
  }
  const std::size_t at = recorded_count++;
  if (at < recorded.size()) {
    recorded[at] = object;
  }
  return true;
}

}  // namespace

void fail_next_mutex_call(int error, int successes, int failures) {
  fail_next_call_with(nullptr, error, successes);
  failures_left = failures;
}

void fail_next_call_with(const void *mutex, int error, int successes) {
  next_error = error;
  successes_left = successes;
  failures_left = 1;
  failing_mutex = mutex;
}

const void *last_locked_mutex() {
  return locked;
}

const void *last_tried_mutex() {
  return tried;
}

void before_next_mutex_lock(std::function<void()> call) {
  lock_call = std::move(call);
}

const void *last_signalled_condition() {
  return signalled;
}

void answer_next_signal(std::function<int()> answer) {
  signal_answer = std::move(answer);
}

void reset_mutexes() {
  next_error = 0;
  lock_call = nullptr;
  signal_answer = nullptr;
}

Destructions::Destructions() {
  recorded_count = 0;
  recording = true;
}

Destructions::~Destructions() {
  recording = false;
}

std::vector<const void *> Destructions::so_far() const {
  const std::size_t count = std::min(recorded_count.load(), recorded.size());
  return std::vector<const void *>(recorded.begin(), recorded.begin() + count);
}

}  // namespace tavo::fakes

using namespace tavo::fakes;

extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t *object);
int __real_pthread_mutex_trylock(pthread_mutex_t *object);
int __real_pthread_mutex_unlock(pthread_mutex_t *object);
int __real_pthread_cond_signal(pthread_cond_t *condition);
int __real_pthread_mutex_destroy(pthread_mutex_t *object);
int __real_pthread_cond_destroy(pthread_cond_t *condition);
int __real_pthread_attr_destroy(pthread_attr_t *attributes);

int __wrap_pthread_mutex_lock(pthread_mutex_t *object) {
  locked = object;
  if (const auto call = std::exchange(lock_call, nullptr)) {
    call();
  }
  const int error = error_of_this_call(object);
  return error == 0 ? __real_pthread_mutex_lock(object) : error;
}

int __wrap_pthread_mutex_trylock(pthread_mutex_t *object) {
  tried = object;
  const int error = error_of_this_call(object);
  return error == 0 ? __real_pthread_mutex_trylock(object) : error;
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t *object) {
  const int error = error_of_this_call(object);
  return error == 0 ? __real_pthread_mutex_unlock(object) : error;
}

int __wrap_pthread_cond_signal(pthread_cond_t *condition) {
  signalled = condition;
  if (const auto answer = std::exchange(signal_answer, nullptr)) {
    return answer();
  }
  return __real_pthread_cond_signal(condition);
}

int __wrap_pthread_mutex_destroy(pthread_mutex_t *object) {
  return record_destruction(object) ? 0 : __real_pthread_mutex_destroy(object);
}

int __wrap_pthread_cond_destroy(pthread_cond_t *condition) {
  return record_destruction(condition) ? 0 : __real_pthread_cond_destroy(condition);
}

int __wrap_pthread_attr_destroy(pthread_attr_t *attributes) {
  return record_destruction(attributes) ? 0 : __real_pthread_attr_destroy(attributes);
}
}
