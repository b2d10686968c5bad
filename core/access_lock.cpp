#include "core/access_lock.h"

#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>

#include "core/class_number.h"
#include "core/table.h"
#include "core/trace.h"

namespace tavo {
namespace {

// Traces print the thread as a plain int, which holds the low half of a 64-bit handle.
int calling_thread() {
  return static_cast<int>(pthread_self());
}

constexpr const char *source = "access_lock";

// Null for a number that is not a subagent lock's.
ListLock *find_subagent_lock(int which) {
  switch (which) {
    case 1:
      return &fault_list_lock;
    case 2:
      return &storage_lock;
    default:
      return nullptr;
  }
}

// Null for a class that no table names.
ListLock *find_ev_lock(int class_number) {
  for (const Table *table : all_tables()) {
    ListLock &lock = table->lock();
    if (lock.is_ev() && lock.number() == class_number) {
      return &lock;
    }
  }
  return nullptr;
}

// The order in which destroy_ev_resource walks the ev locks.
constexpr auto destruction_order = std::to_array({12, 56, 30, 41, 105, 9, 6, 3, 1, 2, 4, 5});

// The inventory lock and what it guards.
constinit pthread_mutex_t inventory_mutex = PTHREAD_MUTEX_INITIALIZER;
constinit std::atomic<int> inventory_holds = 0;
pthread_cond_t inventory_condition = PTHREAD_COND_INITIALIZER;
std::uint8_t pending_refresh TAVO_LOCKING(guarded_by(inventory_lock)) = 0;

// The mark that a class number sets among the pending refreshes.
struct RefreshMark {
  int class_number;
  std::uint8_t bit;
};

// Numbers without a name belong to the class above them. Nobody asks for the mark 0x10.
constexpr auto refresh_marks = std::to_array<RefreshMark>({
    {.class_number = class_number::system_fan, .bit = 0x01},
    {.class_number = class_number::power_supply_fan, .bit = 0x02},
    {.class_number = 14, .bit = 0x02},
    {.class_number = 20, .bit = 0x02},
    {.class_number = class_number::memory, .bit = 0x04},
    {.class_number = class_number::memory_module, .bit = 0x04},
    {.class_number = class_number::processor, .bit = 0x08},
    {.class_number = 4, .bit = 0x10},
    {.class_number = class_number::adaptor, .bit = 0x20},
    {.class_number = class_number::storage, .bit = 0x40},
    {.class_number = class_number::drive, .bit = 0x40},
    {.class_number = class_number::volume, .bit = 0x40},
    {.class_number = 211, .bit = 0x40},
});

// 0 for a class number that stands for nothing.
std::uint8_t refresh_bit(int class_number) {
  const auto mark = std::ranges::find(refresh_marks, class_number, &RefreshMark::class_number);
  return mark == refresh_marks.end() ? std::uint8_t{0} : mark->bit;
}

}  // namespace

// A bare mutex goes to whoever is quickest, and a thread that takes it again at once, as rebuild after rebuild does, is
// quicker than a request that has yet to wake.
int ListLock::lock_in_turn() {
  if (queue_.may_be_overtaken()) {
    const int error = pthread_mutex_trylock(&mutex_);
    if (error != EBUSY) {
      return error;
    }
  }
  queue_.enter();
  const int error = pthread_mutex_lock(&mutex_);
  queue_.leave();
  if (error != 0) {
    queue_.offer();
  }
  return error;
}

int ListLock::locked(int error, const char *function) {
  if (is_ev()) {
    holds_.fetch_add(1, std::memory_order_relaxed);
  } else if (error == 0) {
    const int count = holds_.fetch_add(1, std::memory_order_relaxed) + 1;
    trace({function, __LINE__}, source, "%s:Thread-%d locked sa mutex, count = %d\n", function, calling_thread(),
          count);
  } else {
    trace({function, __LINE__}, source, "%s:Err-%d,Thread-%d failed to lock sa mutex\n", function, error,
          calling_thread());
  }
  return error;
}

// The traces name the C functions, which the whole agent's log speaks of. The analysis cannot follow a mutex through
// its C calls.
TAVO_LOCKING(no_thread_safety_analysis)
int ListLock::acquire() {
  return locked(lock_in_turn(), "acquire_sa_lock");
}

TAVO_LOCKING(no_thread_safety_analysis)
int ListLock::try_acquire() {
  return locked(pthread_mutex_trylock(&mutex_), "try_sa_lock");
}

TAVO_LOCKING(no_thread_safety_analysis)
int ListLock::acquire_or_reserve(int event) {
  int error = EBUSY;
  if (queue_.may_be_overtaken() || queue_.reservation_is_first()) {
    error = pthread_mutex_trylock(&mutex_);
  }
  if (error == EBUSY) {
    queue_.reserve(event);
    // The lock may have become free before its holder could see the reservation.
    if (queue_.reservation_is_first()) {
      error = pthread_mutex_trylock(&mutex_);
    }
  }
  if (error == 0) {
    locked(error, "acquire_sa_lock");
  }
  if (error != EBUSY) {
    queue_.give_up();
  }
  return error;
}

TAVO_LOCKING(no_thread_safety_analysis)
int ListLock::release() {
  constexpr const char *function = "release_sa_lock";
  const int error = pthread_mutex_unlock(&mutex_);
  queue_.offer();
  if (is_ev()) {
    holds_.fetch_sub(1, std::memory_order_relaxed);
  } else if (error == 0) {
    const int count = holds_.fetch_sub(1, std::memory_order_relaxed) - 1;
    trace({function, __LINE__}, source, "%s:Thread-%d unlocked sa mutex, count = %d\n", function, calling_thread(),
          count);
  } else {
    trace({function, __LINE__}, source, "%s:Err-%d,Thread-%d failed to unlock sa mutex\n", function, error,
          calling_thread());
  }
  return error;
}

void request_refresh(int class_number) {
  acquire_inventory_lock();
  signal_inventory_condition(class_number);
  release_inventory_lock();
}

// What follows is called from C, which no analysis sees holding a lock.

TAVO_LOCKING(no_thread_safety_analysis)
int acquire_sa_lock(int which) {
  ListLock *lock = find_subagent_lock(which);
  return lock == nullptr ? 0 : lock->acquire();
}

TAVO_LOCKING(no_thread_safety_analysis)
int try_sa_lock(int which) {
  ListLock *lock = find_subagent_lock(which);
  return lock == nullptr ? 0 : lock->try_acquire();
}

TAVO_LOCKING(no_thread_safety_analysis)
int release_sa_lock(int which) {
  ListLock *lock = find_subagent_lock(which);
  return lock == nullptr ? 0 : lock->release();
}

TAVO_LOCKING(no_thread_safety_analysis)
int get_ev_lock(int class_number) {
  ListLock *lock = find_ev_lock(class_number);
  return lock == nullptr ? 1 : lock->acquire();
}

TAVO_LOCKING(no_thread_safety_analysis)
int get_ev_try_lock(int class_number) {
  ListLock *lock = find_ev_lock(class_number);
  return lock == nullptr ? 1 : lock->try_acquire();
}

TAVO_LOCKING(no_thread_safety_analysis)
int release_ev_lock(int class_number) {
  ListLock *lock = find_ev_lock(class_number);
  return lock == nullptr ? 1 : lock->release();
}

int destroy_ev_resource(int class_number) {
  for (const auto *doomed = std::ranges::find(destruction_order, class_number); doomed != destruction_order.end();
       ++doomed) {
    if (ListLock *lock = find_ev_lock(*doomed)) {
      lock->destroy();
    }
  }
  return 1;
}

TAVO_LOCKING(no_thread_safety_analysis)
int acquire_inventory_lock(void) {
  const int error = pthread_mutex_lock(&inventory_mutex);
  inventory_holds.fetch_add(1, std::memory_order_relaxed);
  return error;
}

TAVO_LOCKING(no_thread_safety_analysis)
int release_inventory_lock(void) {
  const int error = pthread_mutex_unlock(&inventory_mutex);
  inventory_holds.fetch_sub(1, std::memory_order_relaxed);
  return error;
}

int signal_inventory_condition(int class_number) {
  const int error = pthread_cond_signal(&inventory_condition);
  pending_refresh |= refresh_bit(class_number);
  return error;
}

int check_inventory_status(int class_number) {
  const std::uint8_t bit = refresh_bit(class_number);
  if ((pending_refresh & bit) == 0) {
    return 0;
  }
  pending_refresh &= static_cast<std::uint8_t>(~bit);
  return 1;
}

void wait_for_inventory_condition(void) {
  pthread_cond_wait(&inventory_condition, &inventory_mutex);
}

int destroy_inventory_resource(void) {
  pthread_cond_destroy(&inventory_condition);
  pthread_mutex_destroy(&inventory_mutex);
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

}  // namespace tavo
