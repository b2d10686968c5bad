#include "threads/inventory_refresh.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "core/access_lock.h"
#include "tests/unit/fakes/clock.h"
#include "tests/unit/fakes/files.h"
#include "tests/unit/fakes/module_test.h"
#include "tests/unit/fakes/mutexes.h"
#include "tests/unit/fakes/net_snmp.h"
#include "tests/unit/fakes/shell.h"
#include "tests/unit/fakes/threads.h"

namespace {

using tavo::Inventory;
using tavo::RefreshPass;
using tavo::RefreshRequests;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

std::vector<Inventory> rebuilt;

void record(Inventory kind) {
  rebuilt.push_back(kind);
}

class RefreshPassTest : public fakes::ModuleTest {
 protected:
  RefreshPassTest() { rebuilt.clear(); }

  static std::vector<Inventory> served(const RefreshRequests &requests) {
    RefreshPass pass(record);
    pass.serve(requests);
    return rebuilt;
  }

  fakes::FakeClock clock;
};

TEST_F(RefreshPassTest, NothingAskedForIsNothingDone) {
  EXPECT_THAT(served({}), IsEmpty());
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(RefreshPassTest, AFanRefreshesFansAndBoardStatistics) {
  EXPECT_THAT(served({.fans = true}), ElementsAre(Inventory::fans, Inventory::board_statistics));
  EXPECT_THAT(clock.sleeps(), ElementsAre(10));
  EXPECT_THAT(fakes::log_lines(), ElementsAre(fakes::LogLine{LOG_DEBUG, "FAN refresh requested\n"}));
}

TEST_F(RefreshPassTest, ASupplyRefreshesSuppliesBoardStatisticsAndFans) {
  EXPECT_THAT(served({.supplies = true}),
              ElementsAre(Inventory::supplies, Inventory::board_statistics, Inventory::fans));
  EXPECT_THAT(clock.sleeps(), ElementsAre(10));
  EXPECT_THAT(fakes::log_texts(), ElementsAre("PSU refresh requested\n"));
}

TEST_F(RefreshPassTest, MemoryRefreshesMemoryRackUnitAndBoardStatistics) {
  EXPECT_THAT(served({.memory = true}),
              ElementsAre(Inventory::memory, Inventory::rack_unit, Inventory::board_statistics));
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_THAT(fakes::log_texts(), ElementsAre("MEM refresh requested\n"));
}

TEST_F(RefreshPassTest, AProcessorRefreshesProcessorsRackUnitAndBoardStatistics) {
  EXPECT_THAT(served({.processors = true}),
              ElementsAre(Inventory::processors, Inventory::rack_unit, Inventory::board_statistics));
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_THAT(fakes::log_texts(), ElementsAre("CPU refresh requested\n"));
}

TEST_F(RefreshPassTest, StorageIsReadAgainAfterAMinuteAndWithoutALine) {
  EXPECT_THAT(served({.storage = true}), ElementsAre(Inventory::storage));
  EXPECT_THAT(clock.sleeps(), ElementsAre(60));
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_F(RefreshPassTest, AnAdaptorRefreshesAdaptors) {
  EXPECT_THAT(served({.adaptors = true}), ElementsAre(Inventory::adaptors));
  EXPECT_THAT(clock.sleeps(), ElementsAre(10));
  EXPECT_THAT(fakes::log_texts(), ElementsAre("ADAPTOR refresh requested\n"));
}

// Each kind's own order, and what an earlier kind of the same pass has done already is left out.
TEST_F(RefreshPassTest, AnyTwoRequestsRebuildEachKindOnceInTheOrderOfThePass) {
  struct Kind {
    bool RefreshRequests::*request;
    std::vector<Inventory> rebuilds;
  };
  const std::vector<Kind> kinds = {
      {&RefreshRequests::fans, {Inventory::fans, Inventory::board_statistics}},
      {&RefreshRequests::supplies, {Inventory::supplies, Inventory::board_statistics, Inventory::fans}},
      {&RefreshRequests::memory, {Inventory::memory, Inventory::rack_unit, Inventory::board_statistics}},
      {&RefreshRequests::processors, {Inventory::processors, Inventory::rack_unit, Inventory::board_statistics}},
      {&RefreshRequests::storage, {Inventory::storage}},
      {&RefreshRequests::adaptors, {Inventory::adaptors}},
  };
  for (std::size_t i = 0; i < kinds.size(); ++i) {
    for (std::size_t j = i + 1; j < kinds.size(); ++j) {
      RefreshRequests requests;
      requests.*kinds[i].request = true;
      requests.*kinds[j].request = true;
      std::vector<Inventory> expected = kinds[i].rebuilds;
      for (const Inventory kind : kinds[j].rebuilds) {
        if (std::find(expected.begin(), expected.end(), kind) == expected.end()) {
          expected.push_back(kind);
        }
      }
      rebuilt.clear();
      EXPECT_THAT(served(requests), ElementsAreArray(expected)) << "requests " << i << " and " << j;
    }
  }
}

TEST_F(RefreshPassTest, ThePeriodicSetLeavesOutFansAndStorage) {
  int supplies_left = 3;
  RefreshPass pass(record);
  pass.refresh_periodically(supplies_left);
  EXPECT_THAT(rebuilt,
              ElementsAre(Inventory::memory, Inventory::processors, Inventory::rack_unit, Inventory::board_statistics,
                          Inventory::adaptors, Inventory::supplies, Inventory::leds));
  EXPECT_EQ(supplies_left, 2);
}

TEST_F(RefreshPassTest, SuppliesTakePartInTheFirstThreePeriodicRefreshesOnly) {
  int supplies_left = 3;
  for (int i = 0; i < 5; ++i) {
    rebuilt.clear();
    RefreshPass pass(record);
    pass.refresh_periodically(supplies_left);
    EXPECT_EQ(std::count(rebuilt.begin(), rebuilt.end(), Inventory::supplies), i < 3 ? 1 : 0) << i;
    EXPECT_EQ(std::count(rebuilt.begin(), rebuilt.end(), Inventory::leds), 1) << i;
  }
  EXPECT_EQ(supplies_left, 0);
}

TEST_F(RefreshPassTest, ARequestForSuppliesUsesUpAPeriodicTurnAllTheSame) {
  int supplies_left = 3;
  RefreshPass pass(record);
  pass.serve({.supplies = true});
  pass.refresh_periodically(supplies_left);
  EXPECT_EQ(std::count(rebuilt.begin(), rebuilt.end(), Inventory::supplies), 1);
  EXPECT_EQ(std::count(rebuilt.begin(), rebuilt.end(), Inventory::board_statistics), 1);
  EXPECT_EQ(supplies_left, 2);
}

TEST_F(RefreshPassTest, AllRequestsAndThePeriodicSetRebuildEachKindOnce) {
  int supplies_left = 1;
  RefreshPass pass(record);
  pass.serve({.fans = true, .supplies = true, .memory = true, .processors = true, .storage = true, .adaptors = true});
  pass.refresh_periodically(supplies_left);
  EXPECT_THAT(rebuilt, ElementsAre(Inventory::fans, Inventory::board_statistics, Inventory::supplies, Inventory::memory,
                                   Inventory::rack_unit, Inventory::processors, Inventory::storage, Inventory::adaptors,
                                   Inventory::leds));
}

class InventoryThreadTest : public fakes::ModuleTest {};

TEST_F(InventoryThreadTest, IsCreatedJoinableAndSaysSo) {
  fakes::start_no_threads();
  fakes::set_debugging(true);
  EXPECT_EQ(create_inventory_thread(), 0);
  ASSERT_EQ(fakes::created_threads().size(), 1U);
  EXPECT_EQ(fakes::created_threads()[0].start_routine, inventory_thread);
  EXPECT_EQ(fakes::created_threads()[0].detach_state, PTHREAD_CREATE_JOINABLE);
  ASSERT_EQ(fakes::traces().size(), 1U);
  EXPECT_EQ(fakes::traces()[0].function, "create_inventory_thread");
  EXPECT_EQ(fakes::traces()[0].source, "inventory_refresh.c");
  EXPECT_EQ(fakes::traces()[0].text, "create_inventory_thread: Creating Inventory thread\n");
}

TEST_F(InventoryThreadTest, AFailureToCreateItIsLogged) {
  fakes::fail_thread_creation(EAGAIN);
  EXPECT_EQ(create_inventory_thread(), -1);
  EXPECT_THAT(fakes::log_lines(), ElementsAre(fakes::LogLine{LOG_DEBUG, "Unable to create inventory thread\n"}));
}

TEST_F(InventoryThreadTest, StopAndJoinSaySoAndDestroyTheInventoryLock) {
  const fakes::Destructions destroyed;
  fakes::start_no_threads();
  acquire_inventory_lock();
  signal_inventory_condition(8);
  release_inventory_lock();
  create_inventory_thread();
  stop_inventory_thread();
  EXPECT_EQ(join_inventory_thread(), 0);
  EXPECT_THAT(fakes::log_texts(), ElementsAre("Stopping InventoryThread\n", "InventoryThread exited\n"));
  ASSERT_EQ(destroyed.so_far().size(), 3U) << "the condition, its mutex, the thread's attributes";
  EXPECT_EQ(destroyed.so_far()[0], fakes::last_signalled_condition());
}

TEST_F(InventoryThreadTest, AFailedJoinIsLoggedAndTheRestIsDone) {
  fakes::start_no_threads();
  create_inventory_thread();
  fakes::fail_thread_join(EINVAL);
  EXPECT_EQ(join_inventory_thread(), 0);
  EXPECT_THAT(fakes::log_texts(), ElementsAre("Unable to join inventory thread\n", "InventoryThread exited\n"));
}

// The thread's own life, on a clock that moves only when it sleeps.
TEST_F(InventoryThreadTest, RefreshesOnRequestAndPeriodically) {
  const fakes::FakeClock clock;
  const fakes::FakeFiles files;
  const fakes::FakeShell shell;
  acquire_inventory_lock();
  signal_inventory_condition(8);
  release_inventory_lock();
  ASSERT_EQ(create_inventory_thread(), 0);
  ASSERT_TRUE(fakes::wait_for_log("MEM refresh requested\n")) << "raised before the first pass, and not lost";
  ASSERT_TRUE(fakes::wait_for_log("SNMP:Failed frontTemp\n", 4)) << "rebuilt again and again";
  stop_inventory_thread();
  join_inventory_thread();
  const std::vector<std::string> lines = fakes::log_texts();
  EXPECT_EQ(lines.front(), "InventoryThread initiated\n");
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "MEM refresh requested\n"), 1);
  ASSERT_GE(clock.sleeps().size(), 1U);
  EXPECT_EQ(clock.sleeps()[0], 60U);
  EXPECT_THAT(clock.sleeps(), Contains(10U));
}

}  // namespace
