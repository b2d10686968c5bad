#include "tests/unit/fakes/mutexes.h"

#include <pthread.h>

#include <utility>

namespace fakes {
namespace {

// Of one thread: the recorders' own mutexes, which come this way too, must go on working in all others.
thread_local int next_error = 0;

}  // namespace

void fail_next_mutex_call(int error) {
  next_error = error;
}

}  // namespace fakes

using fakes::next_error;

extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t *mutex);
int __real_pthread_mutex_trylock(pthread_mutex_t *mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t *mutex);

int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex) {
  const int error = std::exchange(next_error, 0);
  return error == 0 ? __real_pthread_mutex_lock(mutex) : error;
}

int __wrap_pthread_mutex_trylock(pthread_mutex_t *mutex) {
  const int error = std::exchange(next_error, 0);
  return error == 0 ? __real_pthread_mutex_trylock(mutex) : error;
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex) {
  const int error = std::exchange(next_error, 0);
  return error == 0 ? __real_pthread_mutex_unlock(mutex) : error;
}
}
