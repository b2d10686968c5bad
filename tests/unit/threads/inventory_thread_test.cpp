#include "threads/inventory_thread.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "core/access_lock.h"
#include "core/class_number.h"
#include "refresh/storage_reload.h"
#include "tables/adaptors/tavoAdaptorUnitTable.h"
#include "tables/compute/tavoComputeBoardTable.h"
#include "tables/compute/tavoComputeMbPowerStatsTable.h"
#include "tables/compute/tavoComputeRackUnitMbTempStatsTable.h"
#include "tables/equipment/tavoEquipmentFanTable.h"
#include "tables/equipment/tavoEquipmentHealthLedTable.h"
#include "tables/equipment/tavoEquipmentPsuTable.h"
#include "tables/memory/tavoMemoryUnitEnvStatsTable.h"
#include "tables/memory/tavoMemoryUnitTable.h"
#include "tables/processors/tavoProcessorEnvStatsTable.h"
#include "tables/processors/tavoProcessorUnitTable.h"
#include "tables/storage/tavoStorageControllerTable.h"
#include "tables/storage/tavoStorageLocalDiskTable.h"
#include "tables/storage/tavoStorageLocalLunTable.h"
#include "tables/storage/tavoStorageRaidBatteryTable.h"
#include "tests/fakes/allocation.h"
#include "tests/fakes/clock.h"
#include "tests/fakes/files.h"
#include "tests/fakes/mutexes.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/sensors.h"
#include "tests/fakes/shell.h"
#include "tests/fakes/storage_client.h"
#include "tests/fakes/threads.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/fixtures/storage_snapshot.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using fakes::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class InventoryThreadTest : public fakes::ModuleTest {
 protected:
  const fakes::Destructions destroyed_;  // the inventory lock outlives the thread's end
};

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
  join_inventory_thread();
}

TEST_F(InventoryThreadTest, AFailureToCreateItIsLogged) {
  fakes::fail_thread_creation(EAGAIN);
  EXPECT_EQ(create_inventory_thread(), -1);
  EXPECT_THAT(fakes::log_lines(), ElementsAre(LogLine{LOG_DEBUG, "Unable to create inventory thread\n"}));
}

TEST_F(InventoryThreadTest, StopAndJoinSaySoAndDestroyTheInventoryLock) {
  fakes::start_no_threads();
  acquire_inventory_lock();
  signal_inventory_condition(class_number::memory);
  release_inventory_lock();
  create_inventory_thread();
  stop_inventory_thread();
  EXPECT_EQ(join_inventory_thread(), 0);
  EXPECT_THAT(fakes::log_texts(), ElementsAre("Stopping InventoryThread\n", "InventoryThread exited\n"));
  ASSERT_EQ(destroyed_.so_far().size(), 3U) << "the condition, its mutex, the thread's attributes";
  EXPECT_EQ(destroyed_.so_far()[0], fakes::last_signalled_condition());
}

TEST_F(InventoryThreadTest, AFailedJoinIsLoggedAndTheRestIsDone) {
  fakes::start_no_threads();
  create_inventory_thread();
  fakes::fail_thread_join(EINVAL);
  EXPECT_EQ(join_inventory_thread(), 0);
  EXPECT_THAT(fakes::log_texts(), ElementsAre("Unable to join inventory thread\n", "InventoryThread exited\n"));
}

// Runs the thread on a clock that moves only when it sleeps, with tools that answer at once. Only a rebuild of the
// supplies takes time: 5 seconds. Times are in seconds since the thread's start.
class InventoryThreadLifeTest : public fakes::ModuleTest {
 protected:
  InventoryThreadLifeTest() {
    shell.prints(memory_statistics, " id: 1\n");
    shell.prints("datactl get=processorStats | flatkv > /var/processorStatsInventory", " id: 1\n");
    shell.prints("datactl get=motherboardStats | flatkv > /var/motherboardStatsInventory",
                 " consumedPower: 1\n ambientTemp: 1\n");
    shell.prints("datactl get=inventoryCPU | flatkv > /var/getCPUInventory", " CoreEnabled: 1\n");
    shell.prints("datactl get=inventoryMemorySummary | flatkv > /var/getMemoryInventory", " MemorySpeed: 1\n");
    fakes::on_log([this](const LogLine &line) {
      if (line.text == "MEM refresh requested\n") {
        memory_served.push_back(elapsed());
      }
    });
  }

  static std::vector<std::string> warnings() {
    std::vector<std::string> texts;
    for (const LogLine &line : fakes::log_lines()) {
      if (line.priority == LOG_WARNING) {
        texts.push_back(line.text);
      }
    }
    return texts;
  }

  std::int64_t elapsed() const { return clock.now() - begin; }

  static void raise(int code) {
    acquire_inventory_lock();
    signal_inventory_condition(code);
    release_inventory_lock();
  }

  static void raise_all_but_storage() {
    for (const int code : {class_number::system_fan, class_number::power_supply_fan, class_number::memory,
                           class_number::processor, class_number::adaptor}) {
      raise(code);
    }
  }

  static void raise_everything() {
    raise_all_but_storage();
    raise(class_number::storage);
  }

  // Runs the thread until it sleeps for the first time at or after `end`, and calls `at_sleep` at each sleep.
  void run_until(std::int64_t end, const std::function<void(unsigned seconds)> &at_sleep) {
    bool stopped = false;
    clock.on_sleep([&](unsigned seconds) {
      at_sleep(seconds);
      if (!stopped && elapsed() >= end) {
        stopped = true;
        stop_inventory_thread();
      }
    });
    ASSERT_EQ(create_inventory_thread(), 0);
    join_inventory_thread();
  }

  static constexpr char memory_statistics[] = "datactl get=memoryStats | flatkv > /var/memoryStatsInventory";

  const fakes::Destructions kept;  // the inventory lock outlives the thread's end
  fakes::FakeClock clock;
  fakes::FakeFiles files;
  fakes::FakeShell shell;
  const std::int64_t begin = clock.now();
  std::vector<std::int64_t> memory_served;
};

TEST_F(InventoryThreadLifeTest, LooksForRequestsAfterMoreThanTenSeconds) {
  run_until(110, [](unsigned) { raise(class_number::memory); });
  EXPECT_THAT(memory_served, ElementsAre(60, 80, 100));
}

TEST_F(InventoryThreadLifeTest, TheTenSecondsCountFromTheEndOfTheLastPass) {
  run_until(120, [](unsigned seconds) {
    raise(class_number::memory);
    if (seconds == 60) {
      raise(class_number::adaptor);  // with a sleep of its own
    }
  });
  EXPECT_THAT(memory_served, ElementsAre(60, 90, 110));
}

// The first minute and 24 pauses of 10 seconds: 300 seconds, in which two periodic refreshes are due.
TEST_F(InventoryThreadLifeTest, SettingTheClockChangesNothing) {
  constexpr std::int64_t day = 86'400;
  for (const std::int64_t jump : {std::int64_t{0}, -day, day}) {
    const auto refreshes_before = std::ranges::count(shell.commands(), memory_statistics);
    int sleeps = 0;
    clock.on_sleep([&](unsigned seconds) {
      sleeps += seconds == 60 || seconds == 10 ? 1 : 0;  // not the supplies' waits
      if (sleeps == 2) {
        clock.set(clock.now() + jump);
      }
      if (sleeps == 25) {
        stop_inventory_thread();
      }
    });
    ASSERT_EQ(create_inventory_thread(), 0);
    join_inventory_thread();
    EXPECT_EQ(std::ranges::count(shell.commands(), memory_statistics) - refreshes_before, 2) << "jump of " << jump;
  }
}

TEST_F(InventoryThreadLifeTest, ThePeriodicRefreshComesAfterMoreThan100Seconds) {
  std::vector<std::int64_t> leds;
  std::vector<std::int64_t> supplies;
  shell.answers("/usr/local/bin/datactl get=externalLEDs | /usr/local/bin/flatkv > /var/LedInv", [&](int) {
    leds.push_back(elapsed());
    return "";
  });
  run_until(625, [&](unsigned seconds) {
    if (seconds == 5) {
      supplies.push_back(elapsed());
    }
  });
  EXPECT_THAT(leds, ElementsAre(125, 250, 375, 495, 615));
  EXPECT_THAT(supplies, ElementsAre(120, 245, 370)) << "in the first three alone";
  EXPECT_EQ(std::ranges::count(shell.commands(), memory_statistics), 5);
  EXPECT_THAT(fakes::sensor_reads(), IsEmpty()) << "fans only on request";
  EXPECT_EQ(fakes::opens_of("/var/stor_info_data"), 0) << "storage only on request";
}

TEST_F(InventoryThreadLifeTest, RequestsOfTheFirstMinuteAreServedInTheFirstPass) {
  run_until(60, [this](unsigned) {
    if (elapsed() == 0) {
      raise_everything();
    }
  });
  EXPECT_THAT(clock.sleeps(), ElementsAre(60, 10, 10, 5, 60, 10, 10))
      << "the first minute, fans, supplies and their rebuild, storage, adaptors, the pass's end";
  EXPECT_THAT(memory_served, ElementsAre(85));
  EXPECT_EQ(fakes::opens_of("/var/stor_info_data"), 1);
}

constexpr const char *drive_slots =
    "/usr/local/bin/datactl get=platformSkuType | /usr/local/bin/flatkv > /var/getNumOfHDD";

int shown_disks() {
  int count = 0;
  for (const auto *row = tavoStorageLocalDiskTable_head; row != nullptr; row = row->next) {
    ++count;
  }
  return count;
}

TEST_F(InventoryThreadLifeTest, ASilentToolIsAskedForTheDriveSlotsAgain) {
  files.write("/var/stor_info_data", fakes::snapshot({fakes::controller("A", {fakes::drive_in(1)})}));
  std::vector<std::int64_t> asked;
  shell.answers(drive_slots, [&](int call) {
    asked.push_back(elapsed());
    return call <= 2 ? "" : "hdd:4\n";
  });
  raise(class_number::storage);
  run_until(1000, [](unsigned) {});
  EXPECT_EQ(shown_disks(), 4);
  EXPECT_EQ(asked.size(), 3U) << "for the event and after two periodic refreshes, until it answers";
  EXPECT_LE(asked.back(), 500);
  EXPECT_EQ(std::ranges::count(fakes::log_lines(), LOG_WARNING, &LogLine::priority), 1);
}

TEST_F(InventoryThreadLifeTest, AnAnswerWithoutDriveSlotsIsAnAnswer) {
  files.write("/var/stor_info_data", fakes::snapshot({fakes::controller("A", {fakes::drive_in(1)})}));
  shell.prints(drive_slots, "ssd:4\n");
  raise(class_number::storage);
  run_until(500, [](unsigned) {});
  EXPECT_EQ(std::ranges::count(shell.commands(), drive_slots), 1);
}

TEST_F(InventoryThreadLifeTest, ASilentToolDoesNotMatterWithoutDrives) {
  auto hidden = fakes::controller("A", {fakes::drive_in(1)});
  hidden.number(STOR_CONTROLLER_MODE, 0);
  files.write("/var/stor_info_data", fakes::snapshot({hidden}));
  raise(class_number::storage);
  run_until(500, [](unsigned) {});
  EXPECT_EQ(std::ranges::count(shell.commands(), drive_slots), 1);
}

// While it lives, the process gets no further descriptor.
class NoDescriptors {
 public:
  NoDescriptors() {
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit none = {.rlim_cur = 0, .rlim_max = before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
  NoDescriptors(const NoDescriptors &) = delete;
  NoDescriptors &operator=(const NoDescriptors &) = delete;

 private:
  rlimit before_{};
};

TEST_F(InventoryThreadLifeTest, TablesBuiltWithoutDescriptorsAreBuiltAgain) {
  raise(class_number::system_fan);
  auto shortage = std::make_unique<NoDescriptors>();
  run_until(1500, [&](unsigned) {
    if (elapsed() >= 1000) {  // after several passes, each of which waits for dumps that it cannot open
      shortage.reset();
    }
  });
  EXPECT_EQ(std::ranges::count(fakes::log_texts(), "FAN refresh requested\n"), 1);
  EXPECT_EQ(fakes::opens_of("/var/stor_info_data"), 1);
  EXPECT_THAT(fakes::velt_requests(), SizeIs(3));
  EXPECT_NE(tavoComputeBoardTable_head, nullptr);
  EXPECT_EQ(std::ranges::count(fakes::log_lines(), LOG_WARNING, &LogLine::priority), 2) << "short, and no longer";
}

TEST_F(InventoryThreadLifeTest, TablesThatLackedMemoryAreBuiltAgain) {
  raise(class_number::system_fan);
  fakes::fail_allocations(0);
  run_until(500, [&](unsigned) {
    if (elapsed() >= 200) {
      fakes::reset_allocations();
    }
  });
  EXPECT_EQ(fakes::opens_of("/var/stor_info_data"), 1) << "once, when memory was free again";
  EXPECT_NE(tavoComputeBoardTable_head, nullptr);
  EXPECT_EQ(tavoComputeBoardTable_head->next, nullptr);
  EXPECT_THAT(warnings(), ElementsAre("memory is short: tables that are built now may be incomplete\n",
                                      "memory is free again: rebuilding the tables\n"));
}

TEST_F(InventoryThreadLifeTest, TablesThatOthersBuiltAreBuiltAgainToo) {
  fakes::fail_allocations(0, 1);
  reinit_velt_table(1);
  run_until(80, [](unsigned) {});
  EXPECT_THAT(fakes::velt_requests(), SizeIs(6)) << "the three questions, again";
  EXPECT_THAT(warnings(), SizeIs(2));
}

TEST_F(InventoryThreadLifeTest, AllItsLinesAreForDebugging) {
  run_until(60, [](unsigned seconds) {
    if (seconds == 60) {
      raise_all_but_storage();
    }
  });
  std::vector<LogLine> lines = fakes::log_lines();
  std::erase_if(lines, [](const LogLine &line) { return line.text.starts_with("SNMP:Failed "); });
  EXPECT_THAT(
      lines,
      ElementsAre(LogLine{LOG_DEBUG, "InventoryThread initiated\n"}, LogLine{LOG_DEBUG, "Stopping InventoryThread\n"},
                  LogLine{LOG_DEBUG, "FAN refresh requested\n"}, LogLine{LOG_DEBUG, "PSU refresh requested\n"},
                  LogLine{LOG_DEBUG, "MEM refresh requested\n"}, LogLine{LOG_DEBUG, "CPU refresh requested\n"},
                  LogLine{LOG_DEBUG, "ADAPTOR refresh requested\n"}, LogLine{LOG_DEBUG, "InventoryThread exited\n"}))
      << "a pass that is under way ends first";
}

TEST_F(InventoryThreadLifeTest, AStopInTheFirstMinuteEndsTheThreadWithoutAPass) {
  raise(class_number::memory);
  run_until(0, [](unsigned) {});
  EXPECT_THAT(fakes::log_texts(),
              ElementsAre("InventoryThread initiated\n", "Stopping InventoryThread\n", "InventoryThread exited\n"));
  EXPECT_THAT(clock.sleeps(), ElementsAre(60));
  EXPECT_THAT(shell.commands(), IsEmpty());
}

TEST_F(InventoryThreadLifeTest, TheInventoryLockIsFreeDuringARebuild) {
  std::promise<void> rebuilding;
  const std::future<void> raised = std::async(std::launch::async, [begun = rebuilding.get_future()] {
    if (begun.wait_for(std::chrono::seconds(60)) == std::future_status::ready) {
      raise(class_number::memory);
    }
  });
  bool free = false;
  shell.answers(memory_statistics, [&](int call) {
    if (call == 1) {
      rebuilding.set_value();
      free = raised.wait_for(std::chrono::seconds(60)) == std::future_status::ready;
    }
    return " id: 1\n";
  });
  raise(class_number::memory);
  run_until(90, [](unsigned) {});
  EXPECT_TRUE(free);
  EXPECT_THAT(memory_served, ElementsAre(60, 80)) << "what is asked for during a pass is served in the next";
}

TEST_F(InventoryThreadLifeTest, ARebuildTakesTheOldRowsAway) {
  constexpr std::uint32_t stale = 99;
  struct Table {
    const char *name;
    std::function<bool()> has_stale_row;
  };
  std::vector<Table> tables;
  const auto leave_stale_row = [&tables]<class Row>(const char *name, Row *&head,
                                                    Row *(*create)(std::uint32_t, const Row *)) {
    const auto row = std::make_unique<Row>();
    create(stale, row.get());
    tables.push_back({name, [&head] {
                        const Row *each = head;
                        while (each != nullptr && each->index != stale) {
                          each = each->next;
                        }
                        return each != nullptr;
                      }});
  };
  leave_stale_row("fans", tavoEquipmentFanTable_head, tavoEquipmentFanTable_createEntry);
  leave_stale_row("supplies", tavoEquipmentPsuTable_head, tavoEquipmentPsuTable_createEntry);
  leave_stale_row("power", tavoComputeMbPowerStatsTable_head, tavoComputeMbPowerStatsTable_createEntry);
  leave_stale_row("temperatures", tavoComputeRackUnitMbTempStatsTable_head,
                  tavoComputeRackUnitMbTempStatsTable_createEntry);
  leave_stale_row("memory", tavoMemoryUnitTable_head, tavoMemoryUnitTable_createEntry);
  leave_stale_row("memory statistics", tavoMemoryUnitEnvStatsTable_head, tavoMemoryUnitEnvStatsTable_createEntry);
  leave_stale_row("processors", tavoProcessorUnitTable_head, tavoProcessorUnitTable_createEntry);
  leave_stale_row("processor statistics", tavoProcessorEnvStatsTable_head, tavoProcessorEnvStatsTable_createEntry);
  leave_stale_row("storage controllers", tavoStorageControllerTable_head, tavoStorageControllerTable_createEntry);
  leave_stale_row("disks", tavoStorageLocalDiskTable_head, tavoStorageLocalDiskTable_createEntry);
  leave_stale_row("volumes", tavoStorageLocalLunTable_head, tavoStorageLocalLunTable_createEntry);
  leave_stale_row("batteries", tavoStorageRaidBatteryTable_head, tavoStorageRaidBatteryTable_createEntry);
  leave_stale_row("adaptors", tavoAdaptorUnitTable_head, tavoAdaptorUnitTable_createEntry);
  leave_stale_row("LEDs", tavoEquipmentHealthLedTable_head, tavoEquipmentHealthLedTable_createEntry);
  files.write("/var/stor_info_data", fakes::snapshot({fakes::controller("A")}));
  raise_everything();
  for (const Table &table : tables) {
    EXPECT_TRUE(table.has_stale_row()) << table.name;
  }
  run_until(150, [](unsigned) {});
  for (const Table &table : tables) {
    EXPECT_FALSE(table.has_stale_row()) << table.name;
  }
}

}  // namespace
}  // namespace tavo
