#include "refresh/storage_reload.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "core/access_lock.h"
#include "tables/storage/tavoStorageControllerTable.h"
#include "tables/storage/tavoStorageLocalDiskTable.h"
#include "tables/storage/tavoStorageLocalLunTable.h"
#include "tables/storage/tavoStorageRaidBatteryTable.h"
#include "tests/fakes/allocation.h"
#include "tests/fakes/daemon.h"
#include "tests/fakes/mutexes.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fixtures/storage_tables_fixture.h"
#include "tests/harness/eventually.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using fakes::controller;
using fakes::rows;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr const char *path = "/var/stor_info_data";

class StorRebuildTest : public fakes::StorageTableTest {
 protected:
  // Rows of the controller, local disk, local LUN and RAID battery tables.
  static std::vector<std::size_t> table_sizes() {
    return {rows(tavoStorageControllerTable_head), rows(tavoStorageLocalDiskTable_head),
            rows(tavoStorageLocalLunTable_head), rows(tavoStorageRaidBatteryTable_head)};
  }

  static fakes::StorRecord full_controller(const std::string &location = "") {
    return controller(location, {fakes::drive_in(1)}, {fakes::StorVolume().number(STOR_VOLUME_STATE, 4)})
        .number(STOR_BATTERY_PRESENT, 1);
  }

  // Expects a rebuild to empty tables that were full, and to free what it has read.
  void expect_emptied() {
    EXPECT_EQ(reinit_stor_table(1), 1);
    EXPECT_THAT(table_sizes(), ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(head_stor_ptr, nullptr);
  }
};

TEST_F(StorRebuildTest, FillsTheFourTablesAndFreesTheSnapshot) {
  rebuild({full_controller("A"), full_controller("B")});
  EXPECT_THAT(table_sizes(), ElementsAre(2, 8, 2, 2));
  EXPECT_EQ(head_stor_ptr, nullptr);
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_F(StorRebuildTest, HandsItsArgumentToTheBuilders) {
  rebuild({full_controller()});
  reinit_stor_table(0);
  EXPECT_THAT(table_sizes(), ElementsAre(2, 8, 2, 2));
  reinit_stor_table(1);
  EXPECT_THAT(table_sizes(), ElementsAre(1, 4, 1, 1));
}

TEST_F(StorRebuildTest, AMissingFileEmptiesTheTables) {
  rebuild({full_controller()});
  files_.remove(path);
  expect_emptied();
  EXPECT_THAT(fakes::log_texts(), ElementsAre("Unable to open /var/stor_info_data\n"));
}

TEST_F(StorRebuildTest, TheRebuildsOfAllFourAreReported) {
  const fakes::RecordedReports reports;
  rebuild({full_controller()});
  const std::vector<std::string> good = reports.take();
  ASSERT_EQ(good.size(), 12U);
  EXPECT_THAT(std::vector(good.begin(), good.begin() + 6),
              ElementsAre("tavoStorageControllerTable begins", "tavoStorageLocalDiskTable begins",
                          "tavoStorageLocalLunTable begins", "tavoStorageRaidBatteryTable begins",
                          "tavoStorageControllerTable begins", "tavoStorageControllerTable succeeds"));
  files_.remove(path);
  std::vector<std::string> before_reading;
  fakes::on_log([&](const fakes::LogLine &) { before_reading = reports.take(); });
  reinit_stor_table(1);
  fakes::on_log(nullptr);
  EXPECT_THAT(before_reading, ElementsAreArray(good.begin(), good.begin() + 4));
  EXPECT_THAT(reports.take(), ElementsAre("tavoStorageControllerTable fails", "tavoStorageLocalDiskTable fails",
                                          "tavoStorageLocalLunTable fails", "tavoStorageRaidBatteryTable fails"));
}

TEST_F(StorRebuildTest, AMissingFileEmptiesTheTablesOnAFirstBuildToo) {
  rebuild({full_controller()});
  files_.remove(path);
  reinit_stor_table(0);
  EXPECT_THAT(table_sizes(), ElementsAre(0, 0, 0, 0));
}

TEST_F(StorRebuildTest, AFileThatCountsNoneEmptiesTheTablesWithoutAMessage) {
  rebuild({full_controller()});
  files_.write(path, std::string(4, '\0'));
  expect_emptied();
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_F(StorRebuildTest, AFileThatLacksARecordEmptiesTheTables) {
  rebuild({full_controller()});
  files_.write(path, fakes::snapshot(2, {full_controller()}));
  expect_emptied();
  EXPECT_THAT(fakes::log_texts(), ElementsAre("Unable to read ctrl from /var/stor_info_data for index 2\n"));
}

TEST_F(StorRebuildTest, AFileTruncatedAtAnyOf200LengthsEmptiesTheTables) {
  const std::string whole = fakes::snapshot({full_controller("A"), full_controller("B")});
  for (std::size_t i = 0; i < 200; ++i) {
    rebuild({full_controller()});
    files_.write(path, whole.substr(0, i * whole.size() / 200));
    expect_emptied();
  }
}

TEST_F(StorRebuildTest, AFifoADirectoryAndAnEmptyFileEmptyTheTables) {
  rebuild({full_controller()});
  files_.write(path, "");
  expect_emptied();

  rebuild({full_controller()});
  files_.remove(path);
  ASSERT_EQ(mkfifo(fakes::FakeFiles::real_path(path).c_str(), 0600), 0);
  expect_emptied();
  files_.remove(path);

  rebuild({full_controller()});
  files_.remove(path);
  files_.make_directory(path);
  expect_emptied();
  files_.remove(path);
}

TEST_F(StorRebuildTest, WithoutMemoryForTheSnapshotTheTablesAreEmptied) {
  rebuild({full_controller()});
  write_snapshot({full_controller("A"), full_controller("B")});
  fakes::fail_allocations(1);
  expect_emptied();
  EXPECT_THAT(fakes::log_texts(), ElementsAre("Unable to get memory\n"));
}

TEST_F(StorRebuildTest, AListLeftUnderTheHeadIsNotUsed) {
  write_snapshot({full_controller()});
  StorController stale = {};
  head_stor_ptr = &stale;
  reinit_stor_table(1);
  EXPECT_THAT(table_sizes(), ElementsAre(1, 4, 1, 1));
}

TEST_F(StorRebuildTest, AListLeftUnderTheHeadIsNotFreed) {
  StorController not_allocated = {};
  head_stor_ptr = &not_allocated;
  files_.remove(path);
  expect_emptied();
}

TEST_F(StorRebuildTest, BuildsInItsOrderUnderTheStorageLock) {
  write_snapshot({full_controller()});
  set_slot_count("1");
  fakes::set_debugging(true);
  reinit_stor_table(1);
  std::vector<std::string> functions;
  for (const auto &trace : fakes::traces()) {
    functions.push_back(trace.function);
  }
  EXPECT_THAT(functions, ElementsAre("acquire_sa_lock", "tavoStorageControllerTable_createEntry",
                                     "tavoStorageLocalDiskTable_createEntry", "tavoStorageLocalLunTable_createEntry",
                                     "tavoStorageRaidBatteryTable_createEntry", "release_sa_lock"));
  EXPECT_EQ(storage_lock.hold_count(), 0);
}

// The first trace is from taking the lock, the last from releasing it.
TEST_F(StorRebuildTest, ReadsRemovesAndFreesWhileItHoldsTheStorageLock) {
  rebuild({full_controller()});
  files_.write(path, fakes::snapshot(2, {full_controller()}));
  const int opens_before = fakes::opens_of(path);
  ListLock &storage = storage_lock;
  struct Moment {
    std::vector<std::size_t> table_sizes;
    bool list_is_there;
    int opens;
  };
  std::vector<Moment> traced;
  fakes::on_debug_message([&] {
    traced.push_back({.table_sizes = table_sizes(),
                      .list_is_there = head_stor_ptr != nullptr,
                      .opens = fakes::opens_of(path) - opens_before});
  });
  int holds_when_the_read_failed = 0;
  fakes::on_log([&](const fakes::LogLine &) { holds_when_the_read_failed = storage.hold_count(); });
  fakes::set_debugging(true);
  reinit_stor_table(1);
  const std::string last_to_trace = fakes::traces().back().function;
  fakes::reset_net_snmp();
  EXPECT_EQ(holds_when_the_read_failed, 1);
  ASSERT_GE(traced.size(), 2U);
  EXPECT_THAT(traced.front().table_sizes, ElementsAre(1, 4, 1, 1));
  EXPECT_EQ(traced.front().opens, 0);
  EXPECT_EQ(last_to_trace, "release_sa_lock");
  EXPECT_THAT(traced.back().table_sizes, ElementsAre(0, 0, 0, 0));
  EXPECT_FALSE(traced.back().list_is_there) << "the record that was read is freed";
  EXPECT_EQ(traced.back().opens, 1);
}

TEST_F(StorRebuildTest, WaitsForAWalkThatHoldsTheStorageLock) {
  write_snapshot({full_controller()});
  ASSERT_EQ(storage_lock.acquire(), 0);
  const void *const storage_mutex = fakes::last_tried_mutex();
  std::atomic<bool> waits = false;
  // The fakes lock their own mutexes too.
  std::function<void()> tell_when_it_waits = [&] {
    waits = fakes::last_locked_mutex() == storage_mutex;
    if (!waits) {
      fakes::before_next_mutex_lock(tell_when_it_waits);
    }
  };
  std::thread refresh([&] {
    fakes::before_next_mutex_lock(tell_when_it_waits);
    reinit_stor_table(1);
  });
  EXPECT_TRUE(eventually([&] { return waits.load(); }));
  EXPECT_THAT(table_sizes(), ElementsAre(0, 0, 0, 0));
  EXPECT_EQ(fakes::opens_of(path), 0) << "the snapshot is read under the lock, too";
  storage_lock.release();
  refresh.join();
  EXPECT_THAT(table_sizes(), ElementsAre(1, 4, 1, 1));
}

}  // namespace
}  // namespace tavo
