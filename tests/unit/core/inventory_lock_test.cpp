// The inventory lock, its condition and the marks of what is due for a refresh.
#include <gmock/gmock.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "core/access_lock.h"
#include "tests/fakes/mutexes.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using testing::ElementsAre;

class InventoryLockTest : public fakes::ModuleTest {};

TEST_F(InventoryLockTest, InventoryLockExcludesOthers) {
  ASSERT_EQ(acquire_inventory_lock(), 0);
  std::atomic<bool> entered = false;
  std::thread other([&] {
    acquire_inventory_lock();
    entered = true;
    release_inventory_lock();
  });
  EXPECT_FALSE(entered);
  EXPECT_EQ(release_inventory_lock(), 0);
  other.join();
  EXPECT_TRUE(entered);
}

class RefreshMarkTest : public InventoryLockTest {
 protected:
  RefreshMarkTest() { acquire_inventory_lock(); }
  ~RefreshMarkTest() override { release_inventory_lock(); }
};

TEST_F(RefreshMarkTest, StorageCodesShareOneMark) {
  EXPECT_EQ(signal_inventory_condition(208), 0);
  EXPECT_EQ(check_inventory_status(210), 1);
  EXPECT_EQ(check_inventory_status(210), 0);
}

TEST_F(RefreshMarkTest, PowerSupplyCodesShareOneMark) {
  EXPECT_EQ(signal_inventory_condition(20), 0);
  EXPECT_EQ(check_inventory_status(14), 1);
  EXPECT_EQ(check_inventory_status(20), 0);
}

TEST_F(RefreshMarkTest, EveryCodeMarksItsOwnGroupOnly) {
  const std::vector<std::vector<int>> groups = {{29}, {10, 14, 20}, {8, 25}, {3}, {4}, {11}, {208, 209, 210, 211}};
  const auto group_of = [&](int code) {
    return std::ranges::find_if(groups, [code](const auto &group) { return std::ranges::count(group, code) == 1; });
  };
  for (int signalled = -1; signalled < 300; ++signalled) {
    for (const auto &group : groups) {
      for (const int asked : group) {
        EXPECT_EQ(signal_inventory_condition(signalled), 0);
        EXPECT_EQ(check_inventory_status(asked), group_of(signalled) == group_of(asked) ? 1 : 0)
            << signalled << " signalled, " << asked << " asked";
        check_inventory_status(signalled);
      }
    }
  }
}

TEST_F(RefreshMarkTest, ACodeWithoutAMarkIsNeverDue) {
  for (const int code : {29, 10, 8, 3, 4, 11, 208}) {
    signal_inventory_condition(code);
  }
  for (const int code : {0, 1, 2, 7, 30, 41, 207, 212, -1}) {
    EXPECT_EQ(check_inventory_status(code), 0) << code;
  }
}

TEST_F(RefreshMarkTest, MarksStayUntilEachIsAskedFor) {
  signal_inventory_condition(29);
  signal_inventory_condition(29);
  signal_inventory_condition(11);
  EXPECT_EQ(check_inventory_status(29), 1);
  EXPECT_EQ(check_inventory_status(29), 0);
  EXPECT_EQ(check_inventory_status(11), 1);
}

TEST_F(RefreshMarkTest, TheConditionIsSignalledBeforeTheMarkIsSet) {
  int due_when_signalled = -1;
  fakes::answer_next_signal([&] {
    due_when_signalled = check_inventory_status(29);
    return 0;
  });
  EXPECT_EQ(signal_inventory_condition(29), 0);
  EXPECT_EQ(due_when_signalled, 0);
  EXPECT_EQ(check_inventory_status(29), 1);
}

TEST_F(RefreshMarkTest, AFailedSignalGivesItsErrorAndSetsTheMark) {
  fakes::answer_next_signal([] { return EINVAL; });
  EXPECT_EQ(signal_inventory_condition(29), EINVAL);
  EXPECT_EQ(check_inventory_status(29), 1);
}

TEST_F(InventoryLockTest, AWaiterIsWokenAndFindsTheMark) {
  std::atomic<bool> waiting = false;
  int due = 0;
  std::thread waiter([&] {
    acquire_inventory_lock();
    waiting = true;
    while ((due = check_inventory_status(8)) == 0) {
      wait_for_inventory_condition();
    }
    release_inventory_lock();
  });
  while (!waiting) {
    std::this_thread::yield();
  }
  acquire_inventory_lock();  // held by the waiter until it waits
  EXPECT_EQ(signal_inventory_condition(25), 0);
  release_inventory_lock();
  waiter.join();
  EXPECT_EQ(due, 1);
}

TEST_F(InventoryLockTest, ARequestIsMadeUnderTheLock) {
  acquire_inventory_lock();
  auto *const mutex = static_cast<pthread_mutex_t *>(const_cast<void *>(fakes::last_locked_mutex()));
  release_inventory_lock();
  int error = 0;
  fakes::answer_next_signal([&] {
    error = pthread_mutex_trylock(mutex);
    return 0;
  });
  request_refresh(8);
  EXPECT_EQ(error, EBUSY);
  EXPECT_EQ(pthread_mutex_trylock(mutex), 0) << "released";
  pthread_mutex_unlock(mutex);
}

TEST_F(InventoryLockTest, DestroysTheConditionAndThenTheMutex) {
  acquire_inventory_lock();
  const void *const inventory_mutex = fakes::last_locked_mutex();
  signal_inventory_condition(0);
  release_inventory_lock();
  const fakes::Destructions destructions;
  EXPECT_EQ(destroy_inventory_resource(), 1);
  EXPECT_THAT(destructions.so_far(), ElementsAre(fakes::last_signalled_condition(), inventory_mutex));
}

}  // namespace
}  // namespace tavo
