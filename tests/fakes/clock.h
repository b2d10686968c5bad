// The module's clocks and sleeps: sleep, time, gettimeofday, clock_gettime and pthread_cond_timedwait. Real until a
// FakeClock exists.
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <ctime>
#include <functional>
#include <vector>

namespace tavo::fakes {

// While it lives, time stands still at what the test has set, and moves only by what the module sleeps. A sleep records
// its length and returns at once; a timed wait records its deadline and times out at once, unless it is woken
// early. Setting the time of day leaves the monotonic clock alone. One at a time.
class FakeClock {
 public:
  explicit FakeClock(std::int64_t seconds = 1'000'000'000, suseconds_t microseconds = 0);
  ~FakeClock();
  FakeClock(const FakeClock &) = delete;
  FakeClock &operator=(const FakeClock &) = delete;

  void set(std::int64_t seconds, suseconds_t microseconds = 0);
  std::int64_t now() const;

  // Called at each sleep with its seconds, before time moves, by the thread that sleeps.
  void on_sleep(std::function<void(unsigned int seconds)> observer);

  // The next `waits` timed waits return as if somebody had signalled.
  void wake_early(int waits);

  // Seconds of each sleep so far, oldest first.
  std::vector<unsigned int> sleeps() const;

  // Deadline of each timed wait so far, oldest first.
  std::vector<timespec> deadlines() const;
};

}  // namespace tavo::fakes
