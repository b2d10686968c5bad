// init_fault_tables(), which needs no thread.
#include <gmock/gmock.h>

#include <vector>

#include "tables/faults/tavoFaultTable_traps.h"
#include "tests/fakes/allocation.h"
#include "tests/fixtures/fault_table_fixture.h"
#include "threads/event_thread.h"

namespace tavo {
namespace {

using fakes::fault;
using fakes::FaultRecord;
using fakes::LogLine;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using LoadTest = FaultTableTest;

TEST_F(LoadTest, ReplacesWhatThereWas) {
  apply(fault(3, 7, 5));
  apply(fault(8, 7, 5));
  fakes::reset_net_snmp();
  fakes::set_active_faults({fault(3, 1, 5)});
  EXPECT_EQ(init_fault_tables(), 0);
  EXPECT_THAT(listed_indexes(), ElementsAre(1));
  EXPECT_THAT(fakes::log_lines(),
              ElementsAre(LogLine{LOG_DEBUG, "Cleared 2 event nodes\n"},
                          LogLine{LOG_DEBUG, "Removed 2 fault entries\n"}, LogLine{LOG_DEBUG, "FE End Index 1\n"},
                          LogLine{LOG_DEBUG, "Added an entry, Total Fault entries:1\n"}));
}

TEST_F(LoadTest, AnEngineWhoseListEndsEarlyLeavesTheTableEmpty) {
  apply(fault(3, 7, 5));
  fakes::set_active_faults({fault(3, 1, 5)});
  fakes::set_active_fault_count(2);
  EXPECT_EQ(init_fault_tables(), -1);
  EXPECT_EQ(fakes::log_texts().back(), "Reached end of SEL info from FE\n");
  EXPECT_THAT(listed_indexes(), IsEmpty());
}

TEST_F(LoadTest, WithoutMemoryTheTableIsEmpty) {
  apply(fault(3, 7, 5));
  fakes::reset_net_snmp();
  fakes::fail_allocations(0, 1);
  EXPECT_EQ(init_fault_tables(), -1);
  EXPECT_THAT(fakes::log_texts(), ElementsAre("Cleared 1 event nodes\n", "Removed 1 fault entries\n",
                                              "INIT_EVENT_THREAD:Failed to allocate memory\n"));
  EXPECT_THAT(fakes::fault_engine_calls(), IsEmpty());
}

TEST_F(LoadTest, AFullBufferIsOneRead) {
  std::vector<FaultRecord> records;
  for (std::uint32_t index = 0; index < 1024; ++index) {
    records.push_back(fault(3, index, 5));
  }
  fakes::set_active_faults(records);
  EXPECT_EQ(init_fault_tables(), 0);
  EXPECT_EQ(row_count(), 1024U);
  EXPECT_THAT(fakes::fault_engine_calls(), ElementsAre("get_fe_table_count", "get_fe_table 0 1024"));
}

TEST_F(LoadTest, MoreFaultsThanTheBufferHoldsAreAllLoaded) {
  std::vector<FaultRecord> records;
  for (std::uint32_t index = 0; index < 2500; ++index) {
    records.push_back(fault(index % 300, index, 5));
  }
  fakes::set_active_faults(records);
  EXPECT_EQ(init_fault_tables(), 0);
  EXPECT_EQ(row_count(), 2500U);
  EXPECT_THAT(fakes::fault_engine_calls(), ElementsAre("get_fe_table_count", "get_fe_table 0 1024",
                                                       "get_fe_table 1024 1024", "get_fe_table 2048 452"));
}

TEST_F(LoadTest, AListThatEndsInALaterReadKeepsWhatWasRead) {
  fakes::set_active_faults(std::vector<FaultRecord>(1024, fault(3, 7, 5)));
  fakes::set_active_fault_count(2'000'000'000);
  EXPECT_EQ(init_fault_tables(), -1);
  EXPECT_EQ(row_count(), 1U);
  EXPECT_EQ(fakes::log_texts().back(), "Reached end of SEL info from FE\n");
}

TEST_F(LoadTest, NoFaultsAndNonsenseCountsAreReadAsNone) {
  for (const int count : {0, -1, INT32_MIN}) {
    fakes::set_active_fault_count(count);
    EXPECT_EQ(init_fault_tables(), 0);
    EXPECT_EQ(fakes::log_texts().back(), "FE End Index " + std::to_string(count) + "\n");
  }
  EXPECT_THAT(fakes::fault_engine_calls(), Contains("get_fe_table 0 0").Times(3));
}

TEST_F(LoadTest, NotifiesOnlyWhileTheFlagIsOn) {
  fakes::set_active_faults({fault(3, 1, 5)});
  init_fault_tables();
  EXPECT_THAT(fakes::notifications(), IsEmpty());
  needToSendTrapFlag = 1;
  init_fault_tables();
  EXPECT_THAT(fakes::notifications(), SizeIs(1));
}

}  // namespace
}  // namespace tavo
