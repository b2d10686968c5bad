#include "host/module_health.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <optional>
#include <string>
#include <thread>

#include "core/health.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using std::chrono::milliseconds;

class ModuleHealthTest : public testing::Test {
 protected:
  ModuleHealthTest() {
    health.table_registered("fans", &fans);
    health.table_registered("supplies", &supplies);
  }

  std::atomic<std::size_t> fans = 3;
  std::atomic<std::size_t> supplies = 0;
  ModuleHealth health;
};

TEST_F(ModuleHealthTest, TablesAreListedInOrderWithTheirRows) {
  ASSERT_EQ(health.tables(), 2U);
  EXPECT_STREQ(health.table(0).name, "fans");
  EXPECT_EQ(*health.table(0).rows, 3U);
  fans = 4;
  EXPECT_EQ(*health.table(0).rows, 4U);
  EXPECT_STREQ(health.table(1).name, "supplies");
  health.table_registered("fans", &fans);
  EXPECT_EQ(health.tables(), 2U) << "registered again";
}

TEST_F(ModuleHealthTest, ARebuildIsTimedAndCounted) {
  EXPECT_EQ(health.table(0).began, std::nullopt);
  EXPECT_EQ(health.table(0).ended, 0);
  const auto before = std::chrono::steady_clock::now();
  const std::time_t day = std::time(nullptr);
  health.rebuild_begins("fans");
  ASSERT_NE(health.table(0).began, std::nullopt);
  EXPECT_GE(*health.table(0).began, before);
  EXPECT_EQ(health.table(0).rebuilds, 0U);
  EXPECT_EQ(health.table(1).began, std::nullopt);
  std::this_thread::sleep_for(milliseconds(20));
  health.rebuild_ends("fans", true);
  const TableHealth table = health.table(0);
  EXPECT_EQ(table.began, std::nullopt);
  EXPECT_EQ(table.rebuilds, 1U);
  EXPECT_EQ(table.failures, 0U);
  EXPECT_GE(table.duration, milliseconds(20));
  EXPECT_GE(table.ended, day);
}

TEST_F(ModuleHealthTest, AFailedRebuildCountsTwice) {
  health.rebuild_begins("fans");
  health.rebuild_ends("fans", false);
  health.rebuild_begins("fans");
  health.rebuild_ends("fans", true);
  EXPECT_EQ(health.table(0).rebuilds, 2U);
  EXPECT_EQ(health.table(0).failures, 1U);
}

TEST_F(ModuleHealthTest, ARebuildBeginsWithTheFirstReport) {
  health.rebuild_begins("fans");
  const auto began = health.table(0).began;
  std::this_thread::sleep_for(milliseconds(2));
  health.rebuild_begins("fans");
  EXPECT_EQ(health.table(0).began, began);
}

TEST_F(ModuleHealthTest, ReportsOutOfPlaceAreIgnored) {
  health.rebuild_begins("unknown");
  health.rebuild_ends("unknown", true);
  health.rebuild_ends("fans", true);
  health.request_ended(&fans);
  EXPECT_EQ(health.tables(), 2U);
  EXPECT_EQ(health.table(0).rebuilds, 0U);
  EXPECT_EQ(health.requests().waiting, 0U);
}

TEST_F(ModuleHealthTest, RequestsThatWaitAreCountedAndTimed) {
  const int first = 0;
  const int second = 0;
  health.request_set_aside(&first);
  std::this_thread::sleep_for(milliseconds(20));
  health.request_set_aside(&second);
  EXPECT_EQ(health.requests().waiting, 2U);
  EXPECT_EQ(health.requests().set_aside, 2U);
  EXPECT_GE(health.requests().longest_wait, milliseconds(20)) << "of one that still waits";
  health.request_ended(&first);
  const auto longest = health.requests().longest_wait;
  EXPECT_EQ(health.requests().waiting, 1U);
  health.request_ended(&second);
  EXPECT_EQ(health.requests().waiting, 0U);
  EXPECT_EQ(health.requests().set_aside, 2U);
  EXPECT_EQ(health.requests().longest_wait, longest) << "the second waited for a shorter time";
}

TEST_F(ModuleHealthTest, ManyThreadsReportAndAsk) {
  std::atomic<bool> done = false;
  std::thread asks([&] {
    while (!done) {
      static_cast<void>(health.table(0));
      static_cast<void>(health.requests());
    }
  });
  std::thread other([&] {
    for (int i = 0; i < 1000; ++i) {
      health.rebuild_begins("supplies");
      health.rebuild_ends("supplies", false);
    }
  });
  for (int i = 0; i < 1000; ++i) {
    health.rebuild_begins("fans");
    ++fans;
    health.rebuild_ends("fans", true);
  }
  other.join();
  done = true;
  asks.join();
  EXPECT_EQ(health.table(0).rebuilds, 1000U);
  EXPECT_EQ(health.table(1).failures, 1000U);
}

TEST(ModuleReportsTest, ReachTheOneInstance) {
  static const std::atomic<std::size_t> rows = 7;  // as long as the instance
  ModuleHealth &health = ModuleHealth::instance();
  const auto set_aside = health.requests().set_aside;
  tavo_table_registered("reported", &rows);
  tavo_rebuild_begins("reported");
  const TableHealth during = health.table(health.tables() - 1);
  tavo_rebuild_ends("reported", false);
  tavo_request_set_aside(&rows);
  EXPECT_EQ(health.requests().waiting, 1U);
  tavo_request_ended(&rows);
  EXPECT_STREQ(during.name, "reported");
  EXPECT_TRUE(during.began);
  EXPECT_EQ(health.table(health.tables() - 1).failures, 1U);
  EXPECT_EQ(health.requests().waiting, 0U);
  EXPECT_EQ(health.requests().set_aside, set_aside + 1);
}

}  // namespace
}  // namespace tavo
