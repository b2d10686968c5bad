#include "core/access_lock.h"

#include <gmock/gmock.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "core/table.h"
#include "tests/fakes/clock.h"
#include "tests/fakes/mutexes.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto ev_classes = std::to_array<int>({12, 56, 30, 41, 105, 9, 6, 3, 1, 2, 4, 5});

class AccessLockTest : public fakes::ModuleTest {};

int on_another_thread(const std::function<int()> &call) {
  int result = -1;
  std::thread([&] { result = call(); }).join();
  return result;
}

// Whether the lock is held, tried from another thread.
bool is_held(int which) {
  return on_another_thread([which] {
           const int error = try_sa_lock(which);
           if (error == 0) {
             release_sa_lock(which);
           }
           return error;
         }) == EBUSY;
}

bool is_ev_held(int class_number) {
  return on_another_thread([class_number] {
           const int error = get_ev_try_lock(class_number);
           if (error == 0) {
             release_ev_lock(class_number);
           }
           return error;
         }) == EBUSY;
}

std::string printed_thread() {
  return std::to_string(static_cast<int>(pthread_self()));
}

TEST_F(AccessLockTest, EachSubagentLockIsItsOwn) {
  ASSERT_EQ(acquire_sa_lock(1), 0);
  EXPECT_TRUE(is_held(1));
  EXPECT_FALSE(is_held(2));
  ASSERT_EQ(acquire_sa_lock(2), 0);
  EXPECT_TRUE(is_held(2));
  EXPECT_EQ(release_sa_lock(1), 0);
  EXPECT_FALSE(is_held(1));
  EXPECT_TRUE(is_held(2));
  EXPECT_EQ(release_sa_lock(2), 0);
  EXPECT_FALSE(is_held(2));
}

TEST_F(AccessLockTest, UnknownSubagentLocksDoNothingAndGiveZero) {
  fakes::set_debugging(true);
  for (const int which : {3, 0, -1, 105}) {
    EXPECT_EQ(acquire_sa_lock(which), 0);
    EXPECT_EQ(acquire_sa_lock(which), 0) << "would wait for ever if the first call had locked anything";
    EXPECT_EQ(try_sa_lock(which), 0);
    EXPECT_EQ(release_sa_lock(which), 0);
  }
  EXPECT_THAT(fakes::traces(), IsEmpty());
  EXPECT_FALSE(is_held(1));
  EXPECT_FALSE(is_held(2));
}

TEST_F(AccessLockTest, TryOnAHeldSubagentLockIsBusyAndDoesNotCount) {
  ASSERT_EQ(acquire_sa_lock(1), 0);
  EXPECT_EQ(try_sa_lock(1), EBUSY);
  EXPECT_EQ(fault_list_lock.hold_count(), 1);
  EXPECT_EQ(release_sa_lock(1), 0);
  EXPECT_EQ(fault_list_lock.hold_count(), 0);
  EXPECT_EQ(try_sa_lock(1), 0);
  EXPECT_EQ(fault_list_lock.hold_count(), 1);
  EXPECT_EQ(release_sa_lock(1), 0);
}

TEST_F(AccessLockTest, SubagentCallsTraceTheCountOfTheLockSelected) {
  fakes::set_debugging(true);
  acquire_sa_lock(1);
  acquire_sa_lock(2);
  release_sa_lock(1);
  try_sa_lock(1);
  release_sa_lock(1);
  release_sa_lock(2);
  const std::string thread = printed_thread();
  EXPECT_THAT(fakes::trace_texts(),
              ElementsAre("acquire_sa_lock:Thread-" + thread + " locked sa mutex, count = 1\n",
                          "acquire_sa_lock:Thread-" + thread + " locked sa mutex, count = 1\n",
                          "release_sa_lock:Thread-" + thread + " unlocked sa mutex, count = 0\n",
                          "try_sa_lock:Thread-" + thread + " locked sa mutex, count = 1\n",
                          "release_sa_lock:Thread-" + thread + " unlocked sa mutex, count = 0\n",
                          "release_sa_lock:Thread-" + thread + " unlocked sa mutex, count = 0\n"));
}

TEST_F(AccessLockTest, SubagentTracesSayWhereTheyComeFrom) {
  fakes::set_debugging(true);
  acquire_sa_lock(2);
  release_sa_lock(2);
  try_sa_lock(2);
  release_sa_lock(2);
  const auto traces = fakes::traces();
  ASSERT_EQ(traces.size(), 4U);
  const std::array functions = {"acquire_sa_lock", "release_sa_lock", "try_sa_lock", "release_sa_lock"};
  for (std::size_t i = 0; i < traces.size(); ++i) {
    EXPECT_EQ(traces[i].function, functions[i]);
    EXPECT_EQ(traces[i].source, "access_lock");
    EXPECT_GT(traces[i].line, 0);
  }
}

TEST_F(AccessLockTest, ABusyTryTracesItsError) {
  ASSERT_EQ(acquire_sa_lock(1), 0);
  fakes::set_debugging(true);
  EXPECT_EQ(try_sa_lock(1), EBUSY);
  EXPECT_THAT(fakes::trace_texts(), ElementsAre("try_sa_lock:Err-" + std::to_string(EBUSY) + ",Thread-" +
                                                printed_thread() + " failed to lock sa mutex\n"));
  fakes::set_debugging(false);
  release_sa_lock(1);
}

TEST_F(AccessLockTest, FailedCallsTraceTheirErrorAndKeepTheCount) {
  ASSERT_EQ(acquire_sa_lock(2), 0);
  fakes::set_debugging(true);
  fakes::fail_next_mutex_call(EPERM);
  EXPECT_EQ(release_sa_lock(2), EPERM);
  fakes::fail_next_mutex_call(EINVAL);
  EXPECT_EQ(acquire_sa_lock(2), EINVAL);
  EXPECT_EQ(storage_lock.hold_count(), 1);
  const std::string thread = printed_thread();
  EXPECT_THAT(fakes::trace_texts(),
              ElementsAre("release_sa_lock:Err-1,Thread-" + thread + " failed to unlock sa mutex\n",
                          "acquire_sa_lock:Err-22,Thread-" + thread + " failed to lock sa mutex\n"));
  fakes::set_debugging(false);
  EXPECT_EQ(release_sa_lock(2), 0);
}

TEST_F(AccessLockTest, EvAndInventoryCallsHandOverTheMutexError) {
  fakes::fail_next_mutex_call(EINVAL);
  EXPECT_EQ(get_ev_lock(5), EINVAL);
  fakes::fail_next_mutex_call(EPERM);
  EXPECT_EQ(release_ev_lock(5), EPERM);
  fakes::fail_next_mutex_call(EINVAL);
  EXPECT_EQ(acquire_inventory_lock(), EINVAL);
  fakes::fail_next_mutex_call(EPERM);
  EXPECT_EQ(release_inventory_lock(), EPERM);
}

TEST_F(AccessLockTest, AnEvCallIsCountedWhateverItsMutexSays) {
  const int before = ev_lock<5>.hold_count();
  fakes::fail_next_mutex_call(EINVAL);
  EXPECT_EQ(get_ev_lock(5), EINVAL);
  EXPECT_EQ(ev_lock<5>.hold_count(), before + 1);
  EXPECT_FALSE(is_ev_held(5));
  fakes::fail_next_mutex_call(EPERM);
  EXPECT_EQ(release_ev_lock(5), EPERM);
  EXPECT_EQ(ev_lock<5>.hold_count(), before);
}

TEST_F(AccessLockTest, NothingIsTracedWhileDebuggingIsOff) {
  acquire_sa_lock(1);
  try_sa_lock(1);
  release_sa_lock(1);
  EXPECT_THAT(fakes::debug_messages(), IsEmpty());
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_F(AccessLockTest, EvAndInventoryCallsNeverTrace) {
  fakes::set_debugging(true);
  get_ev_lock(41);
  get_ev_try_lock(41);
  release_ev_lock(41);
  acquire_inventory_lock();
  signal_inventory_condition(29);
  check_inventory_status(29);
  release_inventory_lock();
  EXPECT_THAT(fakes::debug_messages(), IsEmpty());
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_F(AccessLockTest, EveryEvClassHasALockOfItsOwn) {
  for (const int held : ev_classes) {
    ASSERT_EQ(get_ev_lock(held), 0);
    for (const int other : ev_classes) {
      EXPECT_EQ(is_ev_held(other), other == held) << held << " held, asking for " << other;
    }
    ASSERT_EQ(release_ev_lock(held), 0);
    EXPECT_FALSE(is_ev_held(held));
  }
}

TEST_F(AccessLockTest, UnknownEvClassesLockNothingAndGiveOne) {
  for (int class_number = -2; class_number < 300; ++class_number) {
    const auto has_it = [=](const Table *table) {
      return table->lock().is_ev() && table->lock().number() == class_number;
    };
    if (std::ranges::none_of(all_tables(), has_it)) {
      EXPECT_EQ(get_ev_lock(class_number), 1) << class_number;
      EXPECT_EQ(get_ev_lock(class_number), 1) << class_number;
      EXPECT_EQ(get_ev_try_lock(class_number), 1) << class_number;
      EXPECT_EQ(release_ev_lock(class_number), 1) << class_number;
    }
  }
}

TEST_F(AccessLockTest, ABusyEvTryIsCountedAllTheSame) {
  const int before = ev_lock<41>.hold_count();
  ASSERT_EQ(get_ev_lock(41), 0);
  EXPECT_EQ(ev_lock<41>.hold_count(), before + 1);
  EXPECT_EQ(get_ev_try_lock(41), EBUSY);
  EXPECT_EQ(ev_lock<41>.hold_count(), before + 2);
  EXPECT_EQ(release_ev_lock(41), 0);
  EXPECT_EQ(ev_lock<41>.hold_count(), before + 1);
  EXPECT_EQ(get_ev_try_lock(41), 0);
  EXPECT_EQ(ev_lock<41>.hold_count(), before + 2);
  EXPECT_EQ(release_ev_lock(41), 0);
  EXPECT_EQ(ev_lock<41>.hold_count(), before + 1);
}

// The mutex behind an ev class, found by trying the lock.
const void *mutex_of(int class_number) {
  if (get_ev_try_lock(class_number) == 0) {
    release_ev_lock(class_number);
  }
  return fakes::last_tried_mutex();
}

TEST_F(AccessLockTest, DestroyTakesTheClassAndAllBehindItInTheChain) {
  for (std::size_t i = 0; i < ev_classes.size(); ++i) {
    const fakes::Destructions destroyed;
    EXPECT_EQ(destroy_ev_resource(ev_classes[i]), 1);
    std::vector<const void *> expected;
    for (const int class_number : std::span(ev_classes).subspan(i)) {
      expected.push_back(mutex_of(class_number));
    }
    EXPECT_EQ(destroyed.so_far(), expected) << "class " << ev_classes[i];
  }
}

TEST_F(AccessLockTest, DestroyOfAnUnknownClassTakesNothing) {
  const fakes::Destructions destroyed;
  for (const int class_number : {0, -1, 7, 13, 104, 106, 1000}) {
    EXPECT_EQ(destroy_ev_resource(class_number), 1);
  }
  EXPECT_THAT(destroyed.so_far(), IsEmpty());
}

TEST_F(AccessLockTest, ThreadWaitSleepsToAWallClockDeadline) {
  const fakes::FakeClock clock(1'700'000'000, 999'999);
  EXPECT_EQ(thread_wait(25), 0);
  const auto deadlines = clock.deadlines();
  ASSERT_EQ(deadlines.size(), 1U);
  EXPECT_EQ(deadlines[0].tv_sec, 1'700'000'025);
  EXPECT_EQ(deadlines[0].tv_nsec, 999'999'000);
}

TEST_F(AccessLockTest, ThreadWaitWokenEarlySleepsOnToTheSameDeadline) {
  fakes::FakeClock clock(1'700'000'000, 5);
  clock.wake_early(2);
  EXPECT_EQ(thread_wait(25), 0);
  const auto deadlines = clock.deadlines();
  ASSERT_EQ(deadlines.size(), 3U);
  for (const timespec &deadline : deadlines) {
    EXPECT_EQ(deadline.tv_sec, 1'700'000'025);
    EXPECT_EQ(deadline.tv_nsec, 5'000);
  }
}

TEST_F(AccessLockTest, ThreadWaitGivesTheResultOfTheUnlock) {
  const fakes::FakeClock clock;
  // The sixth call: thread_wait's own lock, and a lock and an unlock of the fake clock's mutex twice, come first.
  fakes::fail_next_mutex_call(EPERM, 5);
  EXPECT_EQ(thread_wait(1), EPERM);
}

TEST_F(AccessLockTest, ThreadWaitOfNoSecondsEndsNow) {
  const fakes::FakeClock clock(1'700'000'000, 5);
  EXPECT_EQ(thread_wait(0), 0);
  const auto deadlines = clock.deadlines();
  ASSERT_EQ(deadlines.size(), 1U);
  EXPECT_EQ(deadlines[0].tv_sec, 1'700'000'000);
  EXPECT_EQ(deadlines[0].tv_nsec, 5'000);
}

TEST_F(AccessLockTest, ThreadWaitReallySleeps) {
  const auto start = std::chrono::system_clock::now();
  EXPECT_EQ(thread_wait(1), 0);
  EXPECT_GE(std::chrono::system_clock::now() - start, std::chrono::seconds(1));
}

TEST_F(AccessLockTest, AListLockIsTheOneOfItsNumber) {
  ListLock &storage = storage_lock;
  EXPECT_FALSE(storage.is_ev());
  EXPECT_EQ(storage.acquire(), 0);
  EXPECT_TRUE(is_held(2));
  EXPECT_EQ(storage.release(), 0);
  EXPECT_FALSE(is_held(2));

  ListLock &processors = ev_lock<41>;
  EXPECT_TRUE(processors.is_ev());
  EXPECT_EQ(processors.acquire(), 0);
  EXPECT_TRUE(is_ev_held(41));
  EXPECT_EQ(processors.release(), 0);
  EXPECT_FALSE(is_ev_held(41));
}

// Back-to-back rebuilds must not keep a request out. With a bare mutex they would: the holder takes it again before the
// waiting thread has woken.
TEST_F(AccessLockTest, WhoHasWaitedIsNextEvenWhenTheHolderAsksAgainAtOnce) {
  for (ListLock *const lock_of_family : {&fault_list_lock, &ev_lock<41>}) {
    ListLock &lock = *lock_of_family;
    for (int round = 0; round < 20; ++round) {
      std::atomic<bool> waits = false;
      std::atomic<bool> entered = false;
      ASSERT_EQ(lock.acquire(), 0);
      std::thread waiter([&] {
        fakes::before_next_mutex_lock([&] { waits = true; });
        lock.acquire();
        entered = true;
        lock.release();
      });
      while (!waits) {
        std::this_thread::yield();
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(3));
      lock.release();
      lock.acquire();
      const bool was_next = entered;
      lock.release();
      waiter.join();
      ASSERT_TRUE(was_next) << "round " << round;
    }
  }
}

TEST_F(AccessLockTest, ALockThatFailsLeavesTheNextOneItsTurn) {
  for (ListLock *const lock_of_family : {&storage_lock, &ev_lock<41>}) {
    ListLock &lock = *lock_of_family;
    fakes::fail_next_mutex_call(EINVAL);
    EXPECT_EQ(lock.acquire(), EINVAL);
    EXPECT_EQ(on_another_thread([&] { return lock.acquire() == 0 ? lock.release() : -1; }), 0);
  }
}

TEST_F(AccessLockTest, ManyThreadsShareALockWithoutLosingACount) {
  constexpr int rounds = 2000;
  int guarded = 0;
  std::array<std::thread, 4> threads;
  for (std::thread &thread : threads) {
    thread = std::thread([&] {
      for (int i = 0; i < rounds; ++i) {
        acquire_sa_lock(1);
        ++guarded;
        release_sa_lock(1);
      }
    });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  EXPECT_EQ(guarded, rounds * static_cast<int>(threads.size()));
  EXPECT_EQ(fault_list_lock.hold_count(), 0);
}

}  // namespace
}  // namespace tavo
