#include "tests/fakes/threads.h"

#include <algorithm>
#include <mutex>

#include "tests/harness/started_threads.h"

namespace tavo::fakes {
namespace {

std::mutex mutex;
std::vector<CreatedThread> created;
std::vector<pthread_t> joined;
std::vector<pthread_t> never_started;
bool starting = true;
int creation_error = 0;
int join_error = 0;

}  // namespace

std::vector<CreatedThread> created_threads() {
  const std::scoped_lock lock(mutex);
  return created;
}

std::vector<pthread_t> joined_threads() {
  const std::scoped_lock lock(mutex);
  return joined;
}

int unjoined_threads() {
  const std::scoped_lock lock(mutex);
  return static_cast<int>(std::ranges::count_if(created, [](const CreatedThread &thread) {
    return thread.detach_state == PTHREAD_CREATE_JOINABLE && std::ranges::count(joined, thread.handle) == 0;
  }));
}

void start_no_threads() {
  const std::scoped_lock lock(mutex);
  starting = false;
}

void fail_thread_creation(int error) {
  const std::scoped_lock lock(mutex);
  creation_error = error;
}

void fail_thread_join(int error) {
  const std::scoped_lock lock(mutex);
  join_error = error;
}

void reset_threads() {
  const std::scoped_lock lock(mutex);
  created.clear();
  joined.clear();
  never_started.clear();
  starting = true;
  creation_error = 0;
  join_error = 0;
}

}  // namespace tavo::fakes

using namespace tavo::fakes;

extern "C" {

int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*start_routine)(void *),
                          void *argument);
int __real_pthread_join(pthread_t thread, void **result);

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*start_routine)(void *),
                          void *argument) {
  const std::scoped_lock lock(mutex);
  if (creation_error != 0) {
    return creation_error;
  }
  if (starting) {
    tavo::note_started_thread();
    if (const int error = __real_pthread_create(thread, attributes, start_routine, argument); error != 0) {
      return error;
    }
  } else {
    // The address of a record is no thread's handle.
    static char handles[64];
    *thread = reinterpret_cast<pthread_t>(&handles[never_started.size() % sizeof handles]);
    never_started.push_back(*thread);
  }
  int detach_state = PTHREAD_CREATE_JOINABLE;
  if (attributes != nullptr) {
    pthread_attr_getdetachstate(attributes, &detach_state);
  }
  created.push_back({.handle = *thread,
                     .attributes = attributes,
                     .detach_state = detach_state,
                     .start_routine = start_routine,
                     .argument = argument});
  return 0;
}

int __wrap_pthread_join(pthread_t thread, void **result) {
  bool real = false;
  int error = 0;
  {
    const std::scoped_lock lock(mutex);
    joined.push_back(thread);
    real = !std::ranges::count(never_started, thread);
    error = join_error;
  }
  if (real) {
    const int real_error = __real_pthread_join(thread, result);
    return error == 0 ? real_error : error;
  }
  return error;
}
}
