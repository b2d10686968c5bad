#include "core/access_lock.h"

#include <pthread.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <iterator>

#include "core/trace.h"

namespace tavo {
namespace {

// The threads that wait for a mutex, in the order in which they came: only the first of them stands at the mutex.
class Queue {
 public:
  using Clock = std::chrono::steady_clock;

  // How long the first may be overtaken. Less makes two busy threads switch at every hold, which slows both down.
  static constexpr auto patience = std::chrono::milliseconds(2);

  // Returns when the caller is the first.
  void enter() {
    const unsigned ticket = tickets_.fetch_add(1);
    for (unsigned serving = serving_; serving != ticket; serving = serving_) {
      serving_.wait(serving);
    }
    first_since_ = Clock::now();
  }
  void leave() {
    first_since_ = nobody;
    ++serving_;
    serving_.notify_all();
  }

  bool may_be_overtaken() const {
    const Clock::time_point since = first_since_;
    return since == nobody || Clock::now() - since < patience;
  }

 private:
  static constexpr Clock::time_point nobody{};

  std::atomic<unsigned> tickets_ = 0;
  std::atomic<unsigned> serving_ = 0;
  std::atomic<Clock::time_point> first_since_ = nobody;
};

struct CountedMutex {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  // Changed beside the mutex, not under it, so atomic; relaxed, because nothing but a trace depends on it.
  std::atomic<int> holds = 0;
};

struct ListMutex : CountedMutex {
  Queue queue = {};
};

// A bare mutex goes to whoever is quickest, and a thread that takes it again at once, as rebuild after rebuild does, is
// quicker than a request that has yet to wake.
int lock_in_turn(ListMutex &lock) {
  if (lock.queue.may_be_overtaken()) {
    const int error = pthread_mutex_trylock(&lock.mutex);
    if (error != EBUSY) {
      return error;
    }
  }
  lock.queue.enter();
  const int error = pthread_mutex_lock(&lock.mutex);
  lock.queue.leave();
  return error;
}

int try_lock(ListMutex &lock) {
  return pthread_mutex_trylock(&lock.mutex);
}

int count_holder(CountedMutex &lock) {
  return lock.holds.fetch_add(1, std::memory_order_relaxed) + 1;
}
int discount_holder(CountedMutex &lock) {
  return lock.holds.fetch_sub(1, std::memory_order_relaxed) - 1;
}

constinit std::array<ListMutex, 2> subagent_locks;

struct EvLock {
  int class_number;
  ListMutex lock = {};
};

// In the order in which destroy_ev_resource walks them.
constinit EvLock ev_locks[] = {
    {.class_number = 12},   // tavoEquipmentFanTable
    {.class_number = 56},   // tavoEquipmentPsuTable
    {.class_number = 30},   // tavoMemoryUnitTable
    {.class_number = 41},   // tavoProcessorUnitTable
    {.class_number = 105},  // tavoEquipmentHealthLedTable
    {.class_number = 9},    // tavoComputeRackUnitTable
    {.class_number = 6},    // tavoComputeBoardTable
    {.class_number = 3},    // tavoAdaptorUnitTable
    {.class_number = 1},    // tavoMemoryUnitEnvStatsTable
    {.class_number = 2},    // tavoProcessorEnvStatsTable
    {.class_number = 4},    // tavoComputeMbPowerStatsTable
    {.class_number = 5},    // tavoComputeRackUnitMbTempStatsTable
};

constinit CountedMutex inventory_mutex;
pthread_cond_t inventory_condition = PTHREAD_COND_INITIALIZER;
std::uint8_t pending_refresh TAVO_LOCKING(guarded_by(inventory_lock)) = 0;

// The mark that a class code sets among the pending refreshes.
struct RefreshMark {
  int code;
  std::uint8_t bit;
};

constexpr auto refresh_marks = std::to_array<RefreshMark>({
    {.code = 29, .bit = 0x01},
    {.code = 10, .bit = 0x02},
    {.code = 14, .bit = 0x02},
    {.code = 20, .bit = 0x02},
    {.code = 8, .bit = 0x04},
    {.code = 25, .bit = 0x04},
    {.code = 3, .bit = 0x08},
    {.code = 4, .bit = 0x10},
    {.code = 11, .bit = 0x20},
    {.code = 208, .bit = 0x40},
    {.code = 209, .bit = 0x40},
    {.code = 210, .bit = 0x40},
    {.code = 211, .bit = 0x40},
});

// 0 for a code that stands for nothing.
std::uint8_t refresh_bit(int code) {
  const auto mark = std::ranges::find(refresh_marks, code, &RefreshMark::code);
  return mark == refresh_marks.end() ? std::uint8_t{0} : mark->bit;
}

ListMutex *find_subagent_lock(int which) {
  return which == 1 || which == 2 ? &subagent_locks[static_cast<std::size_t>(which - 1)] : nullptr;
}

ListMutex *find_ev_lock(int class_number) {
  auto *const found = std::ranges::find(ev_locks, class_number, &EvLock::class_number);
  return found == std::end(ev_locks) ? nullptr : &found->lock;
}

// Traces print the thread as a plain int, which holds the low half of a 64-bit handle.
int calling_thread() {
  return static_cast<int>(pthread_self());
}

constexpr const char *source = "access_lock";

int lock_subagent(int which, int (*lock_call)(ListMutex &), const char *function, int line) {
  ListMutex *lock = find_subagent_lock(which);
  if (lock == nullptr) {
    return 0;
  }
  const int error = lock_call(*lock);
  if (error == 0) {
    const int count = count_holder(*lock);
    trace(function, source, line, "%s:Thread-%d locked sa mutex, count = %d\n", function, calling_thread(), count);
  } else {
    trace(function, source, line, "%s:Err-%d,Thread-%d failed to lock sa mutex\n", function, error, calling_thread());
  }
  return error;
}

}  // namespace

int ListLock::acquire() const {
  return is_ev() ? get_ev_lock(number_) : acquire_sa_lock(number_);
}

int ListLock::release() const {
  return is_ev() ? release_ev_lock(number_) : release_sa_lock(number_);
}

int ListLock::hold_count() const {
  const ListMutex *lock = is_ev() ? find_ev_lock(number_) : find_subagent_lock(number_);
  return lock == nullptr ? 0 : lock->holds.load(std::memory_order_relaxed);
}

}  // namespace tavo

using namespace tavo;

int acquire_sa_lock(int which) {
  return lock_subagent(which, lock_in_turn, __func__, __LINE__);
}

int try_sa_lock(int which) {
  return lock_subagent(which, try_lock, __func__, __LINE__);
}

int release_sa_lock(int which) {
  ListMutex *lock = find_subagent_lock(which);
  if (lock == nullptr) {
    return 0;
  }
  const int error = pthread_mutex_unlock(&lock->mutex);
  if (error == 0) {
    const int count = discount_holder(*lock);
    trace(__func__, source, __LINE__, "%s:Thread-%d unlocked sa mutex, count = %d\n", __func__, calling_thread(),
          count);
  } else {
    trace(__func__, source, __LINE__, "%s:Err-%d,Thread-%d failed to unlock sa mutex\n", __func__, error,
          calling_thread());
  }
  return error;
}

int get_ev_lock(int class_number) {
  ListMutex *lock = find_ev_lock(class_number);
  if (lock == nullptr) {
    return 1;
  }
  const int error = lock_in_turn(*lock);
  count_holder(*lock);
  return error;
}

int get_ev_try_lock(int class_number) {
  ListMutex *lock = find_ev_lock(class_number);
  if (lock == nullptr) {
    return 1;
  }
  const int error = try_lock(*lock);
  count_holder(*lock);
  return error;
}

int release_ev_lock(int class_number) {
  ListMutex *lock = find_ev_lock(class_number);
  if (lock == nullptr) {
    return 1;
  }
  const int error = pthread_mutex_unlock(&lock->mutex);
  discount_holder(*lock);
  return error;
}

int destroy_ev_resource(int class_number) {
  for (auto *doomed = std::ranges::find(ev_locks, class_number, &EvLock::class_number); doomed != std::end(ev_locks);
       ++doomed) {
    pthread_mutex_destroy(&doomed->lock.mutex);
  }
  return 1;
}

// The next two are the inventory lock; clang cannot know that its empty stand-in and this mutex are one thing.
TAVO_LOCKING(no_thread_safety_analysis)
int acquire_inventory_lock(void) {
  const int error = pthread_mutex_lock(&inventory_mutex.mutex);
  count_holder(inventory_mutex);
  return error;
}

TAVO_LOCKING(no_thread_safety_analysis)
int release_inventory_lock(void) {
  const int error = pthread_mutex_unlock(&inventory_mutex.mutex);
  discount_holder(inventory_mutex);
  return error;
}

int signal_inventory_condition(int code) {
  const int error = pthread_cond_signal(&inventory_condition);
  pending_refresh |= refresh_bit(code);
  return error;
}

int check_inventory_status(int code) {
  const std::uint8_t bit = refresh_bit(code);
  if ((pending_refresh & bit) == 0) {
    return 0;
  }
  pending_refresh &= static_cast<std::uint8_t>(~bit);
  return 1;
}

void wait_for_inventory_condition(void) {
  pthread_cond_wait(&inventory_condition, &inventory_mutex.mutex);
}

int destroy_inventory_resource(void) {
  pthread_cond_destroy(&inventory_condition);
  pthread_mutex_destroy(&inventory_mutex.mutex);
  return 1;
}

int thread_wait(unsigned int seconds) {
  pthread_mutex_t mutex = {};
  pthread_cond_t condition = {};
  timeval now = {};
  gettimeofday(&now, nullptr);
  const timespec deadline = {.tv_sec = now.tv_sec + static_cast<time_t>(seconds), .tv_nsec = now.tv_usec * 1000L};
  pthread_mutex_lock(&mutex);
  while (pthread_cond_timedwait(&condition, &mutex, &deadline) == 0) {
    // Woken early: nobody else can see the condition.
  }
  return pthread_mutex_unlock(&mutex);
}
