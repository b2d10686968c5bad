// Every lock of the module but the chassis link's: the locks of the row lists, which are two subagent locks and one ev
// lock for each table that needs one of its own, and the inventory lock with its condition and its pending-refresh
// marks.
//
// All are mutexes of the default kind, ready when the module is loaded. A list's lock goes to its waiters in the order
// in which they came (core/lock_queue.h). No thread holds two locks at once: whoever wants to signal the inventory
// refresh thread first releases the list it has changed.
//
// Each lock counts its holders; the count is diagnostic only. The traces print the counts of the subagent locks, which
// change when the mutex call succeeds. The counts of the ev locks and of the inventory lock change with every call,
// whatever its result, so they may be wrong after a failed call.
#pragma once

#include <pthread.h>

#include <atomic>

#include "core/lock_queue.h"
#include "core/thread_annotations.h"

namespace tavo {

// The inventory lock as clang's analysis sees it; it has no state of its own.
struct TAVO_LOCKING(capability("mutex")) InventoryLock {};
inline constexpr InventoryLock inventory_lock;

// The lock of one or more row lists. The C functions below reach the same locks by their numbers.
class TAVO_LOCKING(capability("mutex")) ListLock {
 public:
  enum class Family : unsigned char { Subagent, Ev };

  constexpr ListLock(Family family, int number) : family_(family), number_(number) {}
  ListLock(const ListLock &) = delete;
  ListLock &operator=(const ListLock &) = delete;

  // 0 when the lock was taken or released, or the mutex call's error: EBUSY for a try at a lock that is held.
  int acquire() TAVO_LOCKING(acquire_capability());
  int try_acquire() TAVO_LOCKING(try_acquire_capability(0));
  int release() TAVO_LOCKING(release_capability());

  // For a thread that must not wait. EBUSY keeps it a place in the queue; `event`, an eventfd, is written when its turn
  // comes, and then it tries again. A try that fails is neither counted nor traced.
  int acquire_or_reserve(int event) TAVO_LOCKING(try_acquire_capability(0));
  // Gives up the place that acquire_or_reserve keeps, if there is one.
  void give_up_place() { queue_.give_up(); }

  void destroy() { pthread_mutex_destroy(&mutex_); }

  bool is_ev() const { return family_ == Family::Ev; }
  // 1 or 2 for a subagent lock, the class number for an ev lock.
  int number() const { return number_; }
  int hold_count() const { return holds_.load(std::memory_order_relaxed); }

 private:
  int lock_in_turn();
  // Counts and traces what an attempt to lock came to, and returns it.
  int locked(int error, const char *function);

  const Family family_;
  const int number_;
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
  // Changed beside the mutex, not under it, so atomic; relaxed, because only traces read it.
  std::atomic<int> holds_ = 0;
  LockQueue queue_;
};

// Guards the fault list.
inline constinit ListLock fault_list_lock(ListLock::Family::Subagent, 1);
// Guards the storage and SD-card lists, and the storage snapshot while it is loaded.
inline constinit ListLock storage_lock(ListLock::Family::Subagent, 2);
// Guards the list of the one table that names this class number in its description.
template <int class_number>
inline constinit ListLock ev_lock(ListLock::Family::Ev, class_number);

// Holds a list's lock for the length of a block, if it could be had.
class TAVO_LOCKING(scoped_lockable) ListGuard {
 public:
  explicit ListGuard(ListLock &lock) TAVO_LOCKING(acquire_capability(lock))
      : lock_(lock), error_(lock.acquire()), held_(error_ == 0) {}
  ListGuard(const ListGuard &) = delete;
  ListGuard &operator=(const ListGuard &) = delete;
  ~ListGuard() TAVO_LOCKING(release_capability()) {
    if (held_) {
      lock_.release();
    }
  }

  // Ends the hold early and returns the result of the release.
  int release() TAVO_LOCKING(release_capability()) {
    held_ = false;
    return lock_.release();
  }

  // 0, or why the lock could not be had.
  int error() const { return error_; }

 private:
  ListLock &lock_;
  const int error_;
  bool held_;
};

#pragma GCC visibility push(default)
extern "C" {

// The subagent locks, 1 and 2. The result is the mutex call's; any other number does nothing and gives 0.
int acquire_sa_lock(int which);
int try_sa_lock(int which);
int release_sa_lock(int which);

// The ev locks, by the class number that a table's description names. The result is the mutex call's, or 1 for a class
// without a lock. get_ev_try_lock counts a holder even when the lock is busy, unlike try_sa_lock.
int get_ev_lock(int class_number);
int get_ev_try_lock(int class_number);
int release_ev_lock(int class_number);

// Destroys the class's mutex and all that follow it in the order 12, 56, 30, 41, 105, 9, 6, 3, 1, 2, 4, 5; for any
// other class none. Always 1.
int destroy_ev_resource(int class_number);

// The inventory lock; the result is the mutex call's.
int acquire_inventory_lock(void) TAVO_LOCKING(acquire_capability(inventory_lock));
int release_inventory_lock(void) TAVO_LOCKING(release_capability(inventory_lock));

// Signals the condition, then marks what the class number stands for as due for a refresh. The result is the signal's.
// Several class numbers share one mark; unknown ones have none.
int signal_inventory_condition(int class_number) TAVO_LOCKING(requires_capability(inventory_lock));

// 1 when a refresh of what the class number stands for is due, which takes the mark away; otherwise 0.
int check_inventory_status(int class_number) TAVO_LOCKING(requires_capability(inventory_lock));

void wait_for_inventory_condition(void) TAVO_LOCKING(requires_capability(inventory_lock));

// Destroys the condition, then the mutex. Always 1.
int destroy_inventory_resource(void);

// Sleeps whole seconds, to a deadline on the wall clock. The result is that of unlocking the mutex slept on: 0.
int thread_wait(unsigned int seconds);
}
#pragma GCC visibility pop

// Marks what the class number stands for as due for a refresh. Takes the inventory lock: the caller holds no other.
void request_refresh(int class_number) TAVO_LOCKING(locks_excluded(inventory_lock));

}  // namespace tavo
