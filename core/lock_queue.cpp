#include "core/lock_queue.h"

#include <unistd.h>

#include <cstdint>
#include <ctime>

#include "core/mutex_hold.h"

namespace tavo {
namespace {

timespec to_timespec(std::chrono::steady_clock::time_point time) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time.time_since_epoch());
  const auto rest = std::chrono::nanoseconds(time.time_since_epoch()) - seconds;
  return {.tv_sec = static_cast<time_t>(seconds.count()), .tv_nsec = static_cast<long>(rest.count())};
}

void write_event(int event) {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(event, &one, sizeof one);  // fails only when it would overflow
}

}  // namespace

void LockQueue::enter() {
  const MutexHold hold(mutex_);
  unsigned ticket;
  if (reservation_ && !given_up_ && pthread_equal(owner_, pthread_self()) != 0) {
    ticket = *reservation_;
    reservation_.reset();
    reservation_is_first_ = false;
    offered_at_ = nobody;
    write_event(event_);
  } else {
    ticket = tickets_++;
  }
  wait_for_turn(ticket);
  first_since_ = Clock::now();
}

void LockQueue::wait_for_turn(unsigned ticket) {
  constexpr auto patience_with_a_reservation = std::chrono::seconds(1);
  while (serving_ != ticket) {
    if (offered_at_ == nobody) {
      pthread_cond_wait(&moved_, &mutex_);
    } else if (const Clock::time_point end = offered_at_ + patience_with_a_reservation; Clock::now() < end) {
      const timespec deadline = to_timespec(end);
      pthread_cond_clockwait(&moved_, &mutex_, CLOCK_MONOTONIC, &deadline);
    } else {
      reservation_.reset();
      serve_next();
    }
  }
}

void LockQueue::leave() {
  const MutexHold hold(mutex_);
  serve_next();
}

void LockQueue::serve_next() {
  first_since_ = nobody;
  ++serving_;
  look_at_first();
  pthread_cond_broadcast(&moved_);
}

// Notes whether the first in the queue is a reservation, and skips one that was given up.
void LockQueue::look_at_first() {
  if (reservation_ == serving_ && given_up_) {
    reservation_.reset();
    ++serving_;
  }
  offered_at_ = nobody;
  reservation_is_first_ = reservation_ == serving_;
  if (reservation_is_first_ && first_since_.load() == nobody) {
    first_since_ = Clock::now();
  }
}

bool LockQueue::may_be_overtaken() const {
  // Less makes two busy threads switch at every hold, which slows both down.
  constexpr auto patience = std::chrono::milliseconds(2);
  const Clock::time_point since = first_since_;
  return since == nobody || Clock::now() - since < patience;
}

void LockQueue::reserve(int event) {
  {
    const MutexHold hold(mutex_);
    owner_ = pthread_self();
    event_ = event;
    has_reserved_ = true;
    given_up_ = false;
    if (!reservation_) {
      reservation_ = tickets_++;
    }
    look_at_first();
  }
  std::atomic_thread_fence(std::memory_order_seq_cst);
}

void LockQueue::give_up_reservation() {
  const MutexHold hold(mutex_);
  has_reserved_ = false;
  if (!reservation_) {
    return;
  }
  given_up_ = true;
  if (reservation_ == serving_) {
    reservation_.reset();
    serve_next();
  }
}

void LockQueue::offer_to_reservation() {
  const MutexHold hold(mutex_);
  if (reservation_is_first_) {
    offered_at_ = Clock::now();
    write_event(event_);
    pthread_cond_broadcast(&moved_);  // who waits behind it counts the time from here on
  }
}

}  // namespace tavo
