#include "tests/fakes/clock.h"

#include <pthread.h>

#include <cerrno>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace tavo::fakes {
namespace {

std::mutex mutex;
bool active = false;
timeval current;
time_t uptime = 0;  // seconds
std::vector<unsigned int> slept;
std::function<void(unsigned int)> sleep_observer;
std::vector<timespec> waited;
int early_wake_ups = 0;

}  // namespace

FakeClock::FakeClock(time_t seconds, suseconds_t microseconds) {
  const std::scoped_lock lock(mutex);
  if (active) {
    throw std::logic_error("two fake clocks at once");
  }
  active = true;
  current = {.tv_sec = seconds, .tv_usec = microseconds};
  uptime = 1'000;
  slept.clear();
  waited.clear();
  early_wake_ups = 0;
}

FakeClock::~FakeClock() {
  const std::scoped_lock lock(mutex);
  active = false;
  sleep_observer = nullptr;
}

void FakeClock::set(time_t seconds, suseconds_t microseconds) {
  const std::scoped_lock lock(mutex);
  current = {.tv_sec = seconds, .tv_usec = microseconds};
}

time_t FakeClock::now() const {
  const std::scoped_lock lock(mutex);
  return current.tv_sec;
}

void FakeClock::on_sleep(std::function<void(unsigned int)> observer) {
  const std::scoped_lock lock(mutex);
  sleep_observer = std::move(observer);
}

void FakeClock::wake_early(int waits) {
  const std::scoped_lock lock(mutex);
  early_wake_ups = waits;
}

std::vector<unsigned int> FakeClock::sleeps() const {
  const std::scoped_lock lock(mutex);
  return slept;
}

std::vector<timespec> FakeClock::deadlines() const {
  const std::scoped_lock lock(mutex);
  return waited;
}

}  // namespace tavo::fakes

using namespace tavo::fakes;

extern "C" {

unsigned int __real_sleep(unsigned int seconds);
time_t __real_time(time_t *result);
int __real_gettimeofday(timeval *result, void *zone);
int __real_clock_gettime(clockid_t clock, timespec *result);
int __real_pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *held, const timespec *deadline);

unsigned int __wrap_sleep(unsigned int seconds) {
  std::function<void(unsigned int)> observer;
  {
    const std::scoped_lock lock(mutex);
    observer = sleep_observer;
  }
  if (observer) {
    observer(seconds);
  }
  {
    const std::scoped_lock lock(mutex);
    if (active) {
      slept.push_back(seconds);
      current.tv_sec += static_cast<time_t>(seconds);
      uptime += static_cast<time_t>(seconds);
      return 0;
    }
  }
  return __real_sleep(seconds);
}

time_t __wrap_time(time_t *result) {
  const std::scoped_lock lock(mutex);
  if (!active) {
    return __real_time(result);
  }
  if (result != nullptr) {
    *result = current.tv_sec;
  }
  return current.tv_sec;
}

int __wrap_gettimeofday(timeval *result, void *zone) {
  const std::scoped_lock lock(mutex);
  if (!active) {
    return __real_gettimeofday(result, zone);
  }
  *result = current;
  return 0;
}

int __wrap_clock_gettime(clockid_t clock, timespec *result) {
  const std::scoped_lock lock(mutex);
  if (!active || clock != CLOCK_MONOTONIC) {
    return __real_clock_gettime(clock, result);
  }
  *result = {.tv_sec = uptime, .tv_nsec = 0};
  return 0;
}

int __wrap_pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *held, const timespec *deadline) {
  {
    const std::scoped_lock lock(mutex);
    if (active) {
      waited.push_back(*deadline);
      if (early_wake_ups > 0) {
        --early_wake_ups;
        return 0;
      }
      return ETIMEDOUT;
    }
  }
  return __real_pthread_cond_timedwait(condition, held, deadline);
}
}
