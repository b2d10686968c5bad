// The locks of the lists and of what is due for a refresh: two subagent locks, one lock for each of twelve tables (the
// "ev" locks, named by the table's class number), and the inventory lock with its condition and its pending-refresh
// flags.
//
// All are mutexes of the default kind, ready when the module is loaded. Those of lists go to the threads that wait for
// them in the order in which they came; who comes to one that is free takes it before them, but only until the first
// has waited 2 ms. No thread holds two locks at once: whoever wants to signal the inventory refresh thread first
// releases the list it has changed.
//
// Each lock keeps a count of its holders, which nothing in the module decides by. The traces print those of the
// subagent locks, which change when the mutex call succeeds. Those of the ev locks and of the inventory lock change
// with every call, whatever its result, and are for those who look into a running daemon: they may stand above or below
// the truth.
#pragma once

#include "core/thread_annotations.h"

namespace tavo {

// The inventory lock as clang's analysis sees it; it has no state of its own.
struct TAVO_LOCKING(capability("mutex")) InventoryLock {};
inline constexpr InventoryLock inventory_lock;

// The lock that guards one table's list: a value that a table's description can hold as a constant.
class TAVO_LOCKING(capability("mutex")) ListLock {
 public:
  // 1: the fault list. 2: the storage and SD-card lists and the storage snapshot while it is loaded.
  static constexpr ListLock subagent(int which) { return {Family::subagent, which}; }
  static constexpr ListLock ev(int class_number) { return {Family::ev, class_number}; }

  // Results of the C functions below: 0 when the lock was taken or released.
  int acquire() const TAVO_LOCKING(acquire_capability());
  int release() const TAVO_LOCKING(release_capability());

  constexpr bool is_ev() const { return family_ == Family::ev; }

  // What the lock's holder count stands at; 0 for a lock that does not exist.
  int hold_count() const;

 private:
  enum class Family : unsigned char { subagent, ev };

  constexpr ListLock(Family family, int number) : family_(family), number_(number) {}

  Family family_;
  int number_;
};

// Holds a list's lock for the length of a block, if it could be had.
class TAVO_LOCKING(scoped_lockable) ListGuard {
 public:
  explicit ListGuard(const ListLock &lock) TAVO_LOCKING(acquire_capability(lock))
      : lock_(lock), error_(lock.acquire()), held_(error_ == 0) {}
  ListGuard(const ListGuard &) = delete;
  ListGuard &operator=(const ListGuard &) = delete;
  ~ListGuard() TAVO_LOCKING(release_capability()) {
    if (held_) {
      lock_.release();
    }
  }

  // Ends the hold early, for those who pass on the result of the release.
  int release() TAVO_LOCKING(release_capability()) {
    held_ = false;
    return lock_.release();
  }

  // 0, or why the lock could not be had.
  int error() const { return error_; }

 private:
  const ListLock &lock_;
  const int error_;
  bool held_;
};

}  // namespace tavo

#pragma GCC visibility push(default)
extern "C" {

// The subagent locks, 1 and 2. The result is the mutex call's; any other number does nothing and gives 0.
int acquire_sa_lock(int which);
int try_sa_lock(int which);
int release_sa_lock(int which);

// The ev locks, by class number. The result is the mutex call's, or 1 for a class without a lock. get_ev_try_lock
// counts a holder even when the lock is busy, unlike try_sa_lock.
int get_ev_lock(int class_number);
int get_ev_try_lock(int class_number);
int release_ev_lock(int class_number);

// Destroys the class's mutex and all that follow it in the order 12, 56, 30, 41, 105, 9, 6, 3, 1, 2, 4, 5; for any
// other class none. Always 1.
int destroy_ev_resource(int class_number);

// The inventory lock; the result is the mutex call's.
int acquire_inventory_lock(void) TAVO_LOCKING(acquire_capability(tavo::inventory_lock));
int release_inventory_lock(void) TAVO_LOCKING(release_capability(tavo::inventory_lock));

// Signals the condition, then marks what the class code stands for (a code of the fault engine, or 208 of the storage
// thread) as due for a refresh. The result is the signal's. Several codes share one mark; unknown codes have none.
int signal_inventory_condition(int code) TAVO_LOCKING(requires_capability(tavo::inventory_lock));

// 1 when a refresh of what the code stands for is due, which takes the mark away; otherwise 0.
int check_inventory_status(int code) TAVO_LOCKING(requires_capability(tavo::inventory_lock));

void wait_for_inventory_condition(void) TAVO_LOCKING(requires_capability(tavo::inventory_lock));

// Destroys the condition, then the mutex. Always 1.
int destroy_inventory_resource(void);

// Sleeps whole seconds, to a deadline on the wall clock. The result is that of unlocking the mutex slept on: 0.
int thread_wait(unsigned int seconds);
}
#pragma GCC visibility pop
