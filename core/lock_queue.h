// The order in which a list's lock goes to those who wait for it.
//
// Threads take tickets and sleep until theirs is called. The agent's thread must not sleep: it takes a reservation, a
// ticket like the others', and has an eventfd written when the lock is free and its turn has come. A newcomer may
// overtake the first in the queue until that one has stood there for 2 ms.
//
// A reservation keeps out the threads behind it for a second at most once the lock is free. Without that limit an
// agent whose loop has died would stop every rebuild.
//
// The queue has a mutex of its own, which is held for moments only. Whoever finds the lock free does not touch it.
#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <optional>

namespace tavo {

class LockQueue {
 public:
  // Returns when the caller is the first. A thread with a reservation takes that ticket, and its eventfd is written, so
  // that it reserves again for what it still has to do.
  void enter();
  // The caller was the first, and has got the lock or failed to.
  void leave();
  bool may_be_overtaken() const;

  // Takes a reservation for the calling thread, which `event`, an eventfd, belongs to. One at a time: a reservation
  // that stands already is kept.
  void reserve(int event);
  // Takes the calling thread's reservation back, if there is one.
  void give_up() {
    if (has_reserved_) {
      give_up_reservation();
    }
  }
  bool reservation_is_first() const { return reservation_is_first_; }

  // Tells the queue that the lock has become free.
  void offer() {
    // A reservation is made before its owner looks at the lock a last time, and looked for after the lock is free: one
    // of the two sees the other.
    std::atomic_thread_fence(std::memory_order_seq_cst);
    if (reservation_is_first_) {
      offer_to_reservation();
    }
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr Clock::time_point nobody{};

  void wait_for_turn(unsigned ticket);
  void serve_next();
  void look_at_first();
  void give_up_reservation();
  void offer_to_reservation();

  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;  // guards what follows
  pthread_cond_t moved_ =
      PTHREAD_COND_INITIALIZER;  // the queue has moved, or the reservation has been offered the lock
  unsigned tickets_ = 0;
  unsigned serving_ = 0;
  std::optional<unsigned> reservation_;
  bool given_up_ = false;  // the reservation's ticket is skipped when it is called
  pthread_t owner_ = {};
  int event_ = -1;
  Clock::time_point offered_at_ = nobody;  // the lock to the reservation

  // Written under the mutex, read without it.
  std::atomic<bool> has_reserved_ = false;  // the owner, since it last gave up
  std::atomic<bool> reservation_is_first_ = false;
  std::atomic<Clock::time_point> first_since_ = nobody;
};

}  // namespace tavo
