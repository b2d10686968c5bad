#include "module/start_up.h"

#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "core/access_lock.h"
#include "platform/storage_client.h"
#include "platform/test_trap.h"
#include "sources/stor_info.h"
#include "tables/faults/tavoFaultTable.h"
#include "tables/faults/tavoFaultTable_traps.h"
#include "tables/sd_cards/tavoStorageVeltroCardTable.h"
#include "tables/storage/tavoStorageControllerTable.h"
#include "tables/storage/tavoStorageLocalDiskTable.h"
#include "tables/storage/tavoStorageLocalLunTable.h"
#include "tables/storage/tavoStorageRaidBatteryTable.h"
#include "tests/fakes/clock.h"
#include "tests/fakes/files.h"
#include "tests/fakes/mutexes.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/shell.h"
#include "tests/fakes/signals.h"
#include "tests/fakes/storage_client.h"
#include "tests/fakes/threads.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/fixtures/storage_snapshot.h"
#include "tests/harness/own_process.h"
#include "tests/harness/threaded.h"
#include "threads/event_thread.h"
#include "threads/inventory_thread.h"
#include "threads/stor_event_thread.h"
#include "threads/test_trap_thread.h"
#include "threads/velt_event_thread.h"

namespace tavo {
namespace {

using fakes::LogLine;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsSupersetOf;
using testing::Pair;
using testing::StartsWith;

class StartUpTest : public fakes::ModuleTest {
 protected:
  ~StartUpTest() override {
    const fakes::Destructions kept;  // the inventory lock
    close_subagent_modules();
  }

  // The lines that end a step, without what the steps log about missing tools.
  static std::vector<std::string> steps_done() {
    std::vector<std::string> lines = fakes::log_texts();
    std::erase_if(lines, [](const std::string &line) { return !line.ends_with(" done\n"); });
    return lines;
  }

  fakes::FakeClock clock;  // start-up sleeps
  fakes::FakeFiles files;
  fakes::FakeShell shell;
};

TEST_F(StartUpTest, EveryStepIsLoggedInItsOrder) {
  fakes::start_no_threads();
  files.write("/var/stor_info_data", std::string(4, '\0'));
  EXPECT_EQ(init_subagent_modules(), 0);
  EXPECT_THAT(steps_done(),
              ElementsAre("Fault Init done\n", "Memory Init done\n", "MemoryEnv Init done\n", "Processor Init done\n",
                          "ProcessorEnv Init done\n", "Fan Init done\n", "PSU Init done\n", "RackUnit Init done\n",
                          "Board Init done\n", "Adaptor Init done\n", "RackUnitMBPower Init done\n",
                          "RackUnitMBTemp Init done\n", "GetStorInfo done\n", "StorageController Init done\n",
                          "StorageLocalDisk Init done\n", "StorageLocalLun Init done\n",
                          "StorageRaidBattery Init done\n", "Stor Init done\n", "InventoryThread Init done\n",
                          "StorageThread Init done\n", "VeltThread Init done\n", "EventThread Init done\n"));
  EXPECT_THAT(fakes::log_lines(), Each(Field(&LogLine::priority, LOG_DEBUG)));
  std::vector<void *(*)(void *)> threads;
  for (const fakes::CreatedThread &thread : fakes::created_threads()) {
    threads.push_back(thread.start_routine);
  }
  EXPECT_THAT(threads, ElementsAre(inventory_thread, stor_thread, velt_thread, FE_thread))
      << "the last when every table is registered";
}

// No tool, sensor or FRU area answers here.
TEST_F(StartUpTest, WithoutAnyToolTheOnlyWaitsAreThoseOfTheTries) {
  if (tavo::ran_in_a_process_of_its_own()) {
    return;
  }
  fakes::start_no_threads();
  std::vector<std::pair<std::string, unsigned>> waits;  // of each step that waits, in seconds
  unsigned waited = 0;
  clock.on_sleep([&](unsigned seconds) { waited += seconds; });
  fakes::on_log([&](const LogLine &line) {
    if (waited != 0 && line.text.ends_with(" Init done\n")) {
      waits.emplace_back(line.text, std::exchange(waited, 0));
    }
  });
  init_subagent_modules();
  EXPECT_THAT(waits,
              ElementsAre(Pair("MemoryEnv Init done\n", 25), Pair("ProcessorEnv Init done\n", 25),
                          Pair("PSU Init done\n", 5), Pair("RackUnit Init done\n", 50), Pair("Board Init done\n", 25),
                          Pair("RackUnitMBPower Init done\n", 25), Pair("RackUnitMBTemp Init done\n", 25)));
  EXPECT_THAT(clock.sleeps(), testing::AllOf(Each(5U), testing::SizeIs(180 / 5)));
  EXPECT_EQ(waited, 0U) << "after the last step";
}

// The missing snapshot and the failing service each log a line when they are read.
TEST_F(StartUpTest, TheStorageLockIsHeldFromSnapshotToLastSdCardTable) {
  fakes::start_no_threads();
  fakes::set_debugging(true);
  fakes::set_velt_result(VELT_REQUEST_CONTROLLER, -1);
  ListLock &storage = storage_lock;
  std::vector<std::string> under_lock;
  fakes::on_log([&](const LogLine &line) {
    if (storage.hold_count() != 0) {
      under_lock.push_back(line.text);
    }
  });
  init_subagent_modules();
  EXPECT_THAT(under_lock,
              ElementsAre("Unable to open /var/stor_info_data\n", "GetStorInfo done\n", "StorageController Init done\n",
                          "StorageLocalDisk Init done\n", "StorageLocalLun Init done\n",
                          "StorageRaidBattery Init done\n", "Failed to get controller info from velt\n"));
  std::vector<std::string> traced = fakes::trace_texts();
  std::erase_if(traced, [](const std::string &text) {
    return !text.starts_with("acquire_sa_lock") && !text.starts_with("release_sa_lock") &&
           !text.starts_with("initialize_table_tavoStorage");
  });
  EXPECT_THAT(traced,
              ElementsAre(StartsWith("acquire_sa_lock"), "initialize_table_tavoStorageControllerTable\n",
                          "initialize_table_tavoStorageLocalDiskTable\n", "initialize_table_tavoStorageLocalLunTable\n",
                          "initialize_table_tavoStorageRaidBatteryTable\n",
                          "initialize_table_tavoStorageVeltroControllerTable\n",
                          "initialize_table_tavoStorageVeltroCardTable\n",
                          "initialize_table_tavoStorageVeltroDriveTable\n", StartsWith("release_sa_lock")));
}

TEST_F(StartUpTest, TheSdCardServiceIsAskedBeforeItsTablesAreBuilt) {
  fakes::start_no_threads();
  fakes::set_velt_cards({fakes::VeltCard().number(VELT_CARD_SLOT, 1), fakes::VeltCard()});
  init_subagent_modules();
  EXPECT_NE(tavoStorageVeltroCardTable_head, nullptr);
}

TEST_F(StartUpTest, ASnapshotIsServedAndFreed) {
  fakes::start_no_threads();
  files.write("/var/stor_info_data", fakes::snapshot({fakes::controller("A"), fakes::controller("B")}));
  init_subagent_modules();
  EXPECT_EQ(head_stor_ptr, nullptr);
  ASSERT_NE(tavoStorageControllerTable_head, nullptr);
  EXPECT_NE(tavoStorageControllerTable_head->next, nullptr);
}

TEST_F(StartUpTest, WithoutASnapshotTheStorageTablesStayEmpty) {
  fakes::start_no_threads();
  init_subagent_modules();
  EXPECT_EQ(head_stor_ptr, nullptr);
  EXPECT_EQ(tavoStorageControllerTable_head, nullptr);
  EXPECT_EQ(tavoStorageLocalDiskTable_head, nullptr);
  EXPECT_EQ(tavoStorageLocalLunTable_head, nullptr);
  EXPECT_EQ(tavoStorageRaidBatteryTable_head, nullptr);
  EXPECT_THAT(steps_done(), Contains("Stor Init done\n"));
}

TEST_F(StartUpTest, TheLedsComeBetweenStorageAndTheThreads) {
  fakes::start_no_threads();
  std::string line_before;
  std::size_t threads_before = 4;
  shell.answers("/usr/local/bin/datactl get=externalLEDs | /usr/local/bin/flatkv > /var/LedInv", [&](int) {
    line_before = fakes::log_texts().back();
    threads_before = fakes::created_threads().size();
    return "";
  });
  init_subagent_modules();
  EXPECT_EQ(line_before, "Stor Init done\n");
  EXPECT_EQ(threads_before, 0U);
}

TEST_F(StartUpTest, WithoutAnyThreadTheStartUpGoesOn) {
  fakes::fail_thread_creation(EAGAIN);
  EXPECT_EQ(init_subagent_modules(), 0);
  std::vector<std::string> lines = fakes::log_texts();
  lines.erase(lines.begin(), std::ranges::find(lines, "Stor Init done\n"));
  EXPECT_THAT(lines,
              ElementsAre("Stor Init done\n", "Unable to create inventory thread\n", "InventoryThread Init done\n",
                          "Unable to create storage thread\n", "StorageThread Init done\n",
                          "Unable to create velt thread\n", "VeltThread Init done\n",
                          "!!! unable to create event_thread thread !!!!\n", "EventThread Init done\n"));
}

TEST_F(StartUpTest, TheStorageLockIsTakenAndGivenBack) {
  fakes::start_no_threads();
  fakes::set_debugging(true);
  init_subagent_modules();
  const std::string thread = std::to_string(static_cast<int>(pthread_self()));
  EXPECT_THAT(fakes::trace_texts(),
              IsSupersetOf({"acquire_sa_lock:Thread-" + thread + " locked sa mutex, count = 1\n",
                            "release_sa_lock:Thread-" + thread + " unlocked sa mutex, count = 0\n"}));
  EXPECT_EQ(storage_lock.hold_count(), 0);
  EXPECT_EQ(fault_list_lock.hold_count(), 0);
}

class TestTrapThreadTest : public fakes::ModuleTest {
 protected:
  TestTrapThreadTest() {
    // As in the daemon, which blocks the signal before it starts a thread: only sigwait takes it.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &signals, &mask_before_);
  }
  ~TestTrapThreadTest() override { pthread_sigmask(SIG_SETMASK, &mask_before_, nullptr); }

  void start() {
    ASSERT_EQ(pthread_create(&test_trap_thread, nullptr, SendTestTrap, nullptr), 0);
    ASSERT_TRUE(fakes::wait_for_log("TestTrap thread init done\n"));
  }

  static void signal_thread() { pthread_kill(test_trap_thread, SIGUSR1); }

 private:
  sigset_t mask_before_ = {};
};

TEST_F(TestTrapThreadTest, EverySignalIsServedOnce) {
  if (tavo::ran_in_a_process_of_its_own()) {
    return;
  }
  start();
  signal_thread();
  ASSERT_TRUE(fakes::wait_for_sigwait(2));
  signal_thread();
  ASSERT_TRUE(fakes::wait_for_log("Called Test Trap\n", 2));
  ASSERT_TRUE(fakes::wait_for_sigwait(3));
  stop_test_trap_thread();  // after the thread has read the flag: one more signal is served

  signal_thread();
  EXPECT_EQ(join_test_trap_thread(), 1);
  EXPECT_THAT(fakes::log_texts(),
              ElementsAre("TestTrap thread init done\n", "Called Test Trap\n", "Called Test Trap\n",
                          "Stopping TestTrapThread\n", "Called Test Trap\n", "TestThread exited\n"));
  EXPECT_THAT(fakes::log_lines(), Each(Field(&LogLine::priority, LOG_DEBUG)));
}

TEST_F(TestTrapThreadTest, EverySignalSendsTheSameTestNotification) {
  if (tavo::ran_in_a_process_of_its_own()) {
    return;
  }
  start();
  signal_thread();
  ASSERT_TRUE(fakes::wait_for_sigwait(2));
  signal_thread();
  ASSERT_TRUE(fakes::wait_for_sigwait(3));
  stop_test_trap_thread();
  signal_thread();
  join_test_trap_thread();
  const auto sent = fakes::notifications();
  ASSERT_EQ(sent.size(), 3U);
  FaultRow test_fault = {};
  create_dummy_trap_entry(&test_fault);
  send_fault_trap(1, &test_fault);
  const auto wanted = fakes::notifications().back().varbinds;
  for (const fakes::Notification &notification : sent) {
    EXPECT_EQ(notification.varbinds, wanted);
  }
}

TEST_F(TestTrapThreadTest, AStopBeforeTheStartEndsTheThreadWithoutASignal) {
  stop_test_trap_thread();
  start();
  EXPECT_EQ(join_test_trap_thread(), 1);
  EXPECT_THAT(fakes::log_texts(),
              ElementsAre("Stopping TestTrapThread\n", "TestTrap thread init done\n", "TestThread exited\n"));
}

TEST_F(TestTrapThreadTest, AFailedJoinIsLoggedAndShutDownGoesOn) {
  stop_test_trap_thread();
  start();
  fakes::fail_thread_join(EINVAL);
  EXPECT_EQ(join_test_trap_thread(), 1);
  EXPECT_THAT(fakes::log_texts(), ElementsAre("Stopping TestTrapThread\n", "TestTrap thread init done\n",
                                              "!!! Unable to join test trap thread !!!!\n", "TestThread exited\n"));
}

TEST_F(TestTrapThreadTest, AnEmptyHandleIsAFailedJoin) {
  test_trap_thread = 0;
  EXPECT_EQ(join_test_trap_thread(), 1);
  EXPECT_THAT(fakes::joined_threads(), testing::IsEmpty());
  EXPECT_THAT(fakes::log_lines(), ElementsAre(LogLine{LOG_DEBUG, "!!! Unable to join test trap thread !!!!\n"},
                                              LogLine{LOG_DEBUG, "TestThread exited\n"}));
}

using ShutDownTest = TestTrapThreadTest;

TEST_F(ShutDownTest, JoinsEveryThreadInItsOrder) {
  const fakes::Destructions kept;  // the inventory lock
  stop_test_trap_thread();
  start();
  const pthread_t started = test_trap_thread;
  EXPECT_EQ(close_subagent_modules(), 0);
  EXPECT_THAT(fakes::joined_threads(), ElementsAre(started));
  EXPECT_THAT(
      fakes::log_texts(),
      ElementsAre("Stopping TestTrapThread\n", "TestTrap thread init done\n", "TestThread exited\n",
                  "!!! Unable to join event thread !!!!\n", "Removed 0 fault entries\n", "EventThread exited\n",
                  "Unable to join inventory thread\n", "InventoryThread exited\n", "Unable to join storage thread\n",
                  "StorageThread exited\n", "Unable to join velt thread\n", "Velt Thread exited\n"))
      << "each says so in its turn, though only the first was there";
}

TEST_F(ShutDownTest, WaitsForAThreadThatWasNotStopped) {
  if (tavo::ran_in_a_process_of_its_own()) {
    return;
  }
  const fakes::Destructions kept;  // the inventory lock
  start();
  std::atomic<bool> closed = false;
  std::thread daemon([&] {
    close_subagent_modules();
    closed = true;
  });
  signal_thread();
  ASSERT_TRUE(fakes::wait_for_log("Called Test Trap\n"));
  ASSERT_TRUE(fakes::wait_for_sigwait(2));
  EXPECT_FALSE(closed);
  stop_test_trap_thread();
  signal_thread();
  daemon.join();
  EXPECT_TRUE(closed);
}

}  // namespace
}  // namespace tavo
