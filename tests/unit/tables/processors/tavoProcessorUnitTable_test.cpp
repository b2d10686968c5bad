#include "tables/processors/tavoProcessorUnitTable.h"

#include <gmock/gmock.h>

#include <limits>
#include <utility>
#include <vector>

#include "platform/inventory.h"
#include "tests/fakes/allocation.h"
#include "tests/fakes/inventory.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fixtures/processor_table_fixture.h"
#include "tests/harness/golden.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using fakes::gauge;
using fakes::integer;
using fakes::InventoryCall;
using fakes::ProcessorUnitTableTest;
using fakes::text;
using fakes::xeon;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(ProcessorUnitTableTest, ServesEveryColumnOfEveryProcessor) {
  fakes::set_processors({xeon(), fakes::ProcessorRecord().text(PROCESSOR_ARCHITECTURE, "Pentium_4")});
  ASSERT_EQ(init_tavoProcessorUnitTable(), 0);

  fakes::expect_table(table, {
                                 {2, 1, text("sys/rack-unit-1/board/cpu-1")},
                                 {3, 1, text("cpu-1")},
                                 {4, 1, integer(179)},
                                 {5, 1, gauge(8)},
                                 {6, 1, gauge(8)},
                                 {7, 1, gauge(0)},
                                 {8, 1, text("Model 8")},
                                 {9, 1, integer(1)},
                                 {10, 1, integer(1)},
                                 {11, 1, integer(1)},
                                 {12, 1, integer(0)},
                                 {13, 1, integer(10)},
                                 {14, 1, text("unknown")},
                                 {15, 1, text("SERIAL-0011")},
                                 {16, 1, text("CPU1")},
                                 {17, 1, integer(2600)},
                                 {18, 1, gauge(0)},
                                 {19, 1, integer(0)},
                                 {20, 1, gauge(16)},
                                 {21, 1, text("Tavo Semiconductor")},
                                 {22, 1, integer(0)},
                                 {2, 2, text("sys/rack-unit-1/board/cpu-2")},
                                 {3, 2, text("cpu-2")},
                                 {4, 2, integer(178)},
                                 {5, 2, gauge(0)},
                                 {6, 2, gauge(0)},
                                 {7, 2, gauge(1)},
                                 {8, 2, text("")},
                                 {9, 2, integer(2)},
                                 {10, 2, integer(2)},
                                 {11, 2, integer(0)},
                                 {12, 2, integer(0)},
                                 {13, 2, integer(11)},
                                 {14, 2, text("unknown")},
                                 {15, 2, text("")},
                                 {16, 2, text("")},
                                 {17, 2, integer(0)},
                                 {18, 2, gauge(0)},
                                 {19, 2, integer(0)},
                                 {20, 2, gauge(0)},
                                 {21, 2, text("")},
                                 {22, 2, integer(0)},
                             });
}

TEST_F(ProcessorUnitTableTest, AsksTheInventoryForTheCountAndThenForAllRecords) {
  fakes::set_processors({xeon(), xeon()});
  EXPECT_EQ(initialize_processor_table(0), 0);
  EXPECT_THAT(fakes::inventory_calls(),
              ElementsAre(InventoryCall{.function = "GetCPUItems", .word = 0, .size = 4, .whole_list = true},
                          InventoryCall{.function = "GetCPUInfo", .word = 0, .size = 848, .whole_list = true}));
  EXPECT_EQ(iCPUItems, 2);
}

TEST_F(ProcessorUnitTableTest, RowsAreNumberedFromOneAndTheLastStandsFirst) {
  fakes::set_processors({xeon(), xeon(), xeon()});
  EXPECT_EQ(initialize_processor_table(0), 0);
  EXPECT_THAT(listed_indexes(), ElementsAre(3, 2, 1));
  EXPECT_FALSE(is_locked());
}

TEST_F(ProcessorUnitTableTest, TheLockIsHeldFromTheInventorysRecordsToTheLastRow) {
  fakes::set_processors({xeon(), xeon(), xeon()});
  std::vector<bool> held;
  fakes::on_processor_info([&] { held.push_back(is_locked()); });
  fakes::set_debugging(true);
  fakes::on_debug_message([&] { held.push_back(is_locked()); });  // a row's two messages
  EXPECT_EQ(initialize_processor_table(1), 0);
  EXPECT_THAT(held, ElementsAre(true, true, true, true, true, true, true));
  EXPECT_FALSE(is_locked());
}

// A build that fails leaves the rows alone, or removes them on a refresh, and leaves the lock free.
class ProcessorBuildFailureTest : public ProcessorUnitTableTest {
 protected:
  void SetUp() override {
    fakes::set_processors({xeon(), xeon()});
    ASSERT_EQ(initialize_processor_table(0), 0);
  }

  void expect_failure(int result = -1) {
    EXPECT_EQ(initialize_processor_table(0), result);
    EXPECT_THAT(listed_indexes(), ElementsAre(2, 1));
    EXPECT_FALSE(is_locked());
    EXPECT_EQ(initialize_processor_table(1), result);
    EXPECT_THAT(listed_indexes(), IsEmpty());
    EXPECT_FALSE(is_locked());
    EXPECT_THAT(fakes::log_lines(), IsEmpty());
  }
};

TEST_F(ProcessorBuildFailureTest, TheInventoryFailsToCount) {
  fakes::set_processor_count_result(-1);
  expect_failure();
}

TEST_F(ProcessorBuildFailureTest, TheInventoryFailsToCountAndStillSetsACount) {
  fakes::set_processor_count_result(1);
  iCPUItems = 2;
  expect_failure();
}

TEST_F(ProcessorBuildFailureTest, ThereAreNoProcessors) {
  fakes::set_processor_count(0);
  expect_failure();
}

TEST_F(ProcessorBuildFailureTest, TheCountIsNegative) {
  for (const int count : {-1, std::numeric_limits<int>::min()}) {
    ASSERT_EQ(initialize_processor_table(1), 0);
    fakes::set_processor_count(count);
    expect_failure();
    fakes::set_processor_count(std::nullopt);
  }
}

TEST_F(ProcessorBuildFailureTest, TheCountIsHuge) {
  constexpr int most = std::numeric_limits<int>::max() / PROCESSOR_RECORD_SIZE;
  for (const int count : {std::numeric_limits<int>::max(), most + 1}) {
    ASSERT_EQ(initialize_processor_table(1), 0);
    fakes::set_processor_count(count);
    expect_failure();
    fakes::set_processor_count(std::nullopt);
  }
}

TEST_F(ProcessorBuildFailureTest, TheInventoryFailsToDeliver) {
  fakes::set_processor_info_result(-1);
  expect_failure();
}

TEST_F(ProcessorBuildFailureTest, ThereIsNoMemoryForTheRecords) {
  fakes::fail_allocations(1, 1);
  EXPECT_EQ(initialize_processor_table(0), -1);
  EXPECT_EQ(fakes::failed_allocations(), 1);
  EXPECT_THAT(listed_indexes(), ElementsAre(2, 1));
  fakes::fail_allocations(1, 1);
  EXPECT_EQ(initialize_processor_table(1), -1);
  EXPECT_THAT(listed_indexes(), IsEmpty());
  EXPECT_FALSE(is_locked());
}

TEST_F(ProcessorBuildFailureTest, ThereIsNoMemoryForOneOfTheRows) {
  fakes::fail_allocations(2, 1);
  EXPECT_EQ(initialize_processor_table(1), 0);
  EXPECT_EQ(fakes::failed_allocations(), 1);
  EXPECT_THAT(listed_indexes(), ElementsAre(2)) << "the others are served";
}

TEST_F(ProcessorUnitTableTest, RecordsAnnouncedButNotDeliveredAreEmptyRows) {
  fakes::set_processors({xeon()});
  fakes::set_processor_count(2);
  EXPECT_EQ(initialize_processor_table(1), 0);
  ASSERT_THAT(listed_indexes(), ElementsAre(2, 1));
  EXPECT_STREQ(tavoProcessorUnitTable_head->model, "");
  EXPECT_EQ(tavoProcessorUnitTable_head->presence, 11);
}

TEST_F(ProcessorUnitTableTest, OneEnabledXeon) {
  fakes::set_processors({xeon()});
  ASSERT_EQ(init_tavoProcessorUnitTable(), 0);
  const std::vector<std::pair<oid, fakes::Value>> cells = {{2, text("sys/rack-unit-1/board/cpu-1")},
                                                           {3, text("cpu-1")},
                                                           {4, integer(179)},
                                                           {7, gauge(0)},
                                                           {9, integer(1)},
                                                           {10, integer(1)},
                                                           {11, integer(1)},
                                                           {12, integer(0)},
                                                           {13, integer(10)},
                                                           {14, text("unknown")}};
  for (const auto &[column, value] : cells) {
    EXPECT_EQ(get(column, 1), value) << column;
  }
  EXPECT_EQ(fakes::walk(table).size(), 21U);
}

TEST_F(ProcessorUnitTableTest, AnEmptyTableIsRegisteredAllTheSame) {
  EXPECT_EQ(init_tavoProcessorUnitTable(), -1);
  EXPECT_EQ(get(2, 1), fakes::no_such_instance);
  EXPECT_FALSE(is_locked());
  fakes::set_processors({xeon()});
  EXPECT_EQ(initialize_processor_table(1), 0);
  EXPECT_EQ(get(3, 1), text("cpu-1"));
}

TEST_F(ProcessorUnitTableTest, TwoHundredGetsOfOneCellLeaveTheLockFree) {
  fakes::set_processors({xeon(), xeon()});
  ASSERT_EQ(init_tavoProcessorUnitTable(), 0);
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(get(3, 1), text("cpu-1"));
    ASSERT_FALSE(is_locked());
  }
}

}  // namespace
}  // namespace tavo
