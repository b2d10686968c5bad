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
std::int64_t time_of_day = 0;  // seconds
suseconds_t microseconds_of_day = 0;
time_t uptime = 0;  // seconds
std::vector<unsigned int> slept;
std::function<void(unsigned int)> sleep_observer;
std::vector<timespec> waited;
int early_wake_ups = 0;

}  // namespace

FakeClock::FakeClock(std::int64_t seconds, suseconds_t microseconds) {
  const std::scoped_lock lock(mutex);
  if (active) {
    throw std::logic_error("two fake clocks at once");
  }
  active = true;
  time_of_day = seconds;
  microseconds_of_day = microseconds;
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

void FakeClock::set(std::int64_t seconds, suseconds_t microseconds) {
  const std::scoped_lock lock(mutex);
  time_of_day = seconds;
  microseconds_of_day = microseconds;
}

std::int64_t FakeClock::now() const {
  const std::scoped_lock lock(mutex);
  return time_of_day;
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

// The version of time() that core/calendar.cpp calls.
#if __TIMESIZE == 32
#define TAVO_TIME "__time64"
#else
#define TAVO_TIME "time"
#endif

extern "C" {

std::int64_t real_time(std::int64_t *result) asm("__real_" TAVO_TIME);
std::int64_t wrapped_time(std::int64_t *result) asm("__wrap_" TAVO_TIME);

unsigned int __real_sleep(unsigned int seconds);
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
      time_of_day += seconds;
      uptime += static_cast<time_t>(seconds);
      return 0;
    }
  }
  return __real_sleep(seconds);
}

std::int64_t wrapped_time(std::int64_t *result) {
  const std::scoped_lock lock(mutex);
  if (!active) {
    return real_time(result);
  }
  if (result != nullptr) {
    *result = time_of_day;
  }
  return time_of_day;
}

int __wrap_gettimeofday(timeval *result, void *zone) {
  const std::scoped_lock lock(mutex);
  if (!active) {
    return __real_gettimeofday(result, zone);
  }
  *result = {.tv_sec = static_cast<time_t>(time_of_day), .tv_usec = microseconds_of_day};
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
