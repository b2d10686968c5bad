// The order in which threads and reservations get a list's lock.
#include "core/lock_queue.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <future>
#include <thread>

#include "core/access_lock.h"
#include "core/descriptor.h"
#include "tests/fakes/mutexes.h"
#include "tests/fixtures/lock_holder.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using Clock = std::chrono::steady_clock;
using fakes::LockHolder;

TEST(LockQueueTest, AnEmptyQueueMayBeOvertakenHoweverOldItIs) {
  LockQueue queue;
  queue.enter();
  queue.leave();
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_TRUE(queue.may_be_overtaken());
}

// Whoever is woken out of turn waits again, behind the others. If only one were woken each time, nobody would be left
// to wake the one whose turn it is, and the test would not end.
TEST(LockQueueTest, TheNextInTurnWakesWhoeverElseIsWoken) {
  LockQueue queue;
  const Descriptor event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  constexpr auto until_it_waits = std::chrono::milliseconds(20);
  for (int round = 0; round < 5; ++round) {
    queue.enter();
    queue.reserve(event.get());
    std::vector<std::thread> waiting;
    for (int i = 0; i < 3; ++i) {
      waiting.emplace_back([&queue] {
        queue.enter();
        queue.leave();
      });
      std::this_thread::sleep_for(until_it_waits);
    }
    queue.leave();  // the reservation's turn: all wait again
    std::this_thread::sleep_for(until_it_waits);
    queue.give_up();
    for (std::thread &thread : waiting) {
      thread.join();
    }
  }
}

class ReservationTest : public fakes::ModuleTest {
 protected:
  ReservationTest() {
    EXPECT_EQ(lock_.try_acquire(), 0);
    lock_.release();
    mutex_ = fakes::last_tried_mutex();
  }
  ~ReservationTest() override { lock_.give_up_place(); }

  int try_or_reserve() { return lock_.acquire_or_reserve(event_.get()); }
  // Whether the event comes within `milliseconds`; takes it back.
  bool told_within(int milliseconds) {
    pollfd readable = {.fd = event_.get(), .events = POLLIN, .revents = 0};
    std::uint64_t count;
    return ::poll(&readable, 1, milliseconds) == 1 && ::read(event_.get(), &count, sizeof count) == sizeof count;
  }

  ListLock &lock_ = ev_lock<5>;
  const void *mutex_ = nullptr;  // the lock's own
  const Descriptor event_{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

TEST_F(ReservationTest, AFreeLockIsTakenAtOnce) {
  EXPECT_EQ(try_or_reserve(), 0);
  lock_.release();
  EXPECT_FALSE(told_within(0));
}

TEST_F(ReservationTest, AThreadWhoseTurnFailsLeavesTheQueue) {
  LockHolder holder(lock_);
  fakes::fail_next_call_with(mutex_, EINVAL, 1);  // the first call finds the lock busy
  EXPECT_EQ(lock_.acquire(), EINVAL);
  holder.release();
  std::this_thread::sleep_for(std::chrono::milliseconds(5));  // nobody overtakes who has been first for 2 ms
  ASSERT_EQ(try_or_reserve(), 0);
  lock_.release();
}

TEST_F(ReservationTest, ItIsToldOfATurnThatFails) {
  LockHolder holder(lock_);
  std::promise<void> is_first;
  std::promise<void> reserved;
  std::thread failing([&] {
    fakes::fail_next_call_with(mutex_, EINVAL, 1);
    // The queue's own mutex comes first.
    fakes::before_next_mutex_lock([&] {
      fakes::before_next_mutex_lock([&] {
        is_first.set_value();
        reserved.get_future().wait();
      });
    });
    EXPECT_EQ(lock_.acquire(), EINVAL);
  });
  is_first.get_future().wait();
  holder.release();
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_EQ(try_or_reserve(), EBUSY);
  reserved.set_value();
  failing.join();
  EXPECT_TRUE(told_within(10'000));
  ASSERT_EQ(try_or_reserve(), 0);
  lock_.release();
}

TEST_F(ReservationTest, TheReleaseTellsItsOwner) {
  LockHolder holder(lock_);
  EXPECT_EQ(try_or_reserve(), EBUSY);
  EXPECT_EQ(try_or_reserve(), EBUSY);
  EXPECT_FALSE(told_within(0));
  holder.release();
  EXPECT_TRUE(told_within(10'000));
  EXPECT_EQ(try_or_reserve(), 0);
  lock_.release();
  EXPECT_FALSE(told_within(0));
}

TEST_F(ReservationTest, ALockReleasedMeanwhileIsTaken) {
  LockHolder holder(lock_);
  // The next lock is that of the queue: its owner has just found the lock busy.
  fakes::before_next_mutex_lock([&] { holder.release(); });
  EXPECT_EQ(try_or_reserve(), 0);
  lock_.release();
}

TEST_F(ReservationTest, ABusyTryNeitherCountsNorTraces) {
  const int before = lock_.hold_count();
  {
    const LockHolder holder(lock_);
    EXPECT_EQ(try_or_reserve(), EBUSY);
    EXPECT_EQ(lock_.hold_count(), before + 1);
  }
  EXPECT_EQ(try_or_reserve(), 0);
  EXPECT_EQ(lock_.hold_count(), before + 1);
  lock_.release();
}

// A thread that takes the lock as soon as it can.
class Taker {
 public:
  explicit Taker(ListLock &lock)
      : thread_([this, &lock] {
          lock.acquire();
          has_had_it_ = true;
          lock.release();
        }) {}
  ~Taker() { thread_.join(); }

  bool has_had_it() const { return has_had_it_; }

 private:
  std::atomic<bool> has_had_it_ = false;
  std::thread thread_;
};

TEST_F(ReservationTest, ItComesAfterThreadsThatCameBefore) {
  LockHolder holder(lock_);
  const Taker taker(lock_);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(try_or_reserve(), EBUSY);
  holder.release();
  EXPECT_TRUE(told_within(10'000));
  EXPECT_TRUE(taker.has_had_it());
  EXPECT_EQ(try_or_reserve(), 0);
  lock_.release();
}

TEST_F(ReservationTest, ItComesBeforeThreadsThatComeLater) {
  LockHolder holder(lock_);
  EXPECT_EQ(try_or_reserve(), EBUSY);
  std::this_thread::sleep_for(std::chrono::milliseconds(5));  // too old to be overtaken
  const Taker taker(lock_);
  holder.release();
  EXPECT_TRUE(told_within(10'000));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(taker.has_had_it());
  EXPECT_EQ(try_or_reserve(), 0);
  EXPECT_FALSE(taker.has_had_it());
  lock_.release();
}

TEST_F(ReservationTest, ADeadLoopDelaysThreadsForASecond) {
  LockHolder holder(lock_);
  EXPECT_EQ(try_or_reserve(), EBUSY);
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  const Clock::time_point released = Clock::now();
  holder.release();
  { const Taker taker(lock_); }
  EXPECT_GE(Clock::now() - released, std::chrono::milliseconds(900));
  EXPECT_LT(Clock::now() - released, std::chrono::seconds(30));
  EXPECT_TRUE(told_within(0));
  { const Taker next(lock_); }
  EXPECT_EQ(try_or_reserve(), 0);
  lock_.release();
}

TEST_F(ReservationTest, ItsOwnThreadTakesTheLockByIt) {
  LockHolder holder(lock_);
  EXPECT_EQ(try_or_reserve(), EBUSY);
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  const Clock::time_point released = Clock::now();
  holder.release();
  EXPECT_TRUE(told_within(10'000));
  EXPECT_EQ(lock_.acquire(), 0);
  EXPECT_LT(Clock::now() - released, std::chrono::milliseconds(800)) << "queues behind the reservation";
  EXPECT_TRUE(told_within(0)) << "there is still something to do";
  lock_.release();
  EXPECT_EQ(try_or_reserve(), 0);
  lock_.release();
}

TEST_F(ReservationTest, AGivenUpPlaceKeepsNobodyOut) {
  LockHolder holder(lock_);
  EXPECT_EQ(try_or_reserve(), EBUSY);
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  lock_.give_up_place();
  const Clock::time_point released = Clock::now();
  holder.release();
  { const Taker taker(lock_); }
  EXPECT_LT(Clock::now() - released, std::chrono::milliseconds(800));
  EXPECT_FALSE(told_within(0));
}

TEST_F(ReservationTest, APlaceGivenUpInMidQueueIsSkipped) {
  LockHolder holder(lock_);
  const Taker before(lock_);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(try_or_reserve(), EBUSY);
  const Taker behind(lock_);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  lock_.give_up_place();
  const Clock::time_point released = Clock::now();
  holder.release();
  while (!behind.has_had_it() && Clock::now() - released < std::chrono::seconds(30)) {
    std::this_thread::yield();
  }
  EXPECT_LT(Clock::now() - released, std::chrono::milliseconds(800));
  EXPECT_FALSE(told_within(0));
}

TEST_F(ReservationTest, NoWakeUpIsLostBesideBusyThreads) {
  std::atomic<bool> stopped = false;
  const auto hold_again_and_again = [&] {
    while (!stopped) {
      lock_.acquire();
      std::this_thread::sleep_for(std::chrono::microseconds(50));
      lock_.release();
    }
  };
  std::thread one(hold_again_and_again);
  std::thread other(hold_again_and_again);
  int lost = 0;
  for (int round = 0; round < 500 && lost == 0; ++round) {
    while (try_or_reserve() == EBUSY && lost == 0) {
      lost += told_within(10'000) ? 0 : 1;
    }
    if (lost == 0) {
      lock_.release();
    }
  }
  stopped = true;
  one.join();
  other.join();
  EXPECT_EQ(lost, 0);
}

}  // namespace
}  // namespace tavo
