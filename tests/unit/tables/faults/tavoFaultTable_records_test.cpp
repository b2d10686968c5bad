// How records raise, update and clear faults.
#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "core/access_lock.h"
#include "core/class_number.h"
#include "tables/faults/fault_database.h"
#include "tables/faults/tavoFaultTable.h"
#include "tables/faults/tavoFaultTable_traps.h"
#include "tests/fakes/allocation.h"
#include "tests/fakes/mutexes.h"
#include "tests/fixtures/fault_table_fixture.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using fakes::fault;
using fakes::integer;
using fakes::LogLine;
using fakes::text;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;
using namespace std::string_view_literals;

bool takes_refresh_mark(int class_code) {
  acquire_inventory_lock();
  const int due = check_inventory_status(class_code);
  release_inventory_lock();
  return due == 1;
}

TEST_F(FaultTableTest, ARaiseMakesARow) {
  start_up();
  needToSendTrapFlag = 1;
  apply(fault(class_number::processor, 7, 5));
  EXPECT_THAT(listed_indexes(), ElementsAre(7));
  EXPECT_THAT(fakes::log_lines(), ElementsAre(LogLine{LOG_DEBUG, "Added an entry, Total Fault entries:1\n"}));
  EXPECT_THAT(fakes::notifications(), SizeIs(1));
  EXPECT_TRUE(takes_refresh_mark(class_number::processor));
}

TEST_F(FaultTableTest, NewRowsStandInFront) {
  apply(fault(3, 7, 5));
  apply(fault(3, 9, 5));
  apply(fault(3, 8, 5));
  EXPECT_THAT(listed_indexes(), ElementsAre(8, 9, 7));
}

TEST_F(FaultTableTest, ARaiseOfAKnownFaultUpdatesItsRow) {
  start_up();
  needToSendTrapFlag = 1;
  apply(fault(class_number::processor, 7, 5));
  const FaultRow *row = &only_row();
  takes_refresh_mark(class_number::processor);
  fakes::reset_net_snmp();

  apply(fault(class_number::processor, 7, 4).text(FAULT_DESCRIPTION, "Changed\0"sv));
  EXPECT_EQ(&only_row(), row) << "the row itself is updated";
  EXPECT_EQ(read(17, 7), integer(4));
  EXPECT_EQ(read(11, 7), text("Changed"));
  EXPECT_THAT(fakes::log_lines(), ElementsAre(LogLine{LOG_DEBUG, "Updated an entry, Total Fault entries:1\n"}));
  EXPECT_THAT(fakes::notifications(), SizeIs(1));
  EXPECT_TRUE(takes_refresh_mark(class_number::processor));
}

TEST_F(FaultTableTest, AClearOfAKnownFaultTakesItsRowAway) {
  start_up();
  needToSendTrapFlag = 1;
  apply(fault(class_number::processor, 7, 5));
  takes_refresh_mark(class_number::processor);
  fakes::reset_net_snmp();

  apply(fault(class_number::processor, 7, 0));
  EXPECT_THAT(listed_indexes(), IsEmpty());
  EXPECT_THAT(fakes::log_texts(),
              ElementsAre("Deleting FaultIndex 7: ", "Deleted\n", "Removed an entry, Total Fault entries:0\n"));
  EXPECT_THAT(fakes::log_lines(), Each(Field(&LogLine::priority, LOG_DEBUG)));
  EXPECT_THAT(fakes::notifications(), SizeIs(1));
  EXPECT_TRUE(takes_refresh_mark(class_number::processor));
  EXPECT_EQ(read(2, 7), fakes::no_such_instance);
}

TEST_F(FaultTableTest, AClearOfAnUnknownFaultIsNotifiedAndLeavesNoRow) {
  start_up();
  needToSendTrapFlag = 1;
  apply(fault(class_number::processor, 7, 0));
  EXPECT_THAT(listed_indexes(), IsEmpty());
  EXPECT_THAT(fakes::log_texts(), ElementsAre("Deleting FaultIndex 7: ", "Deleted\n", "Clearing a Table_entry\n"));
  EXPECT_THAT(fakes::notifications(), SizeIs(1));
  EXPECT_TRUE(takes_refresh_mark(class_number::processor));
  EXPECT_EQ(fault_database[3], nullptr);
}

class ClearOrderTest : public FaultTableTest {
 protected:
  // Applies the record and returns what is logged, with "signalled" where the refresh thread is signalled.
  static std::vector<std::string> steps_of(const fakes::FaultRecord &record) {
    std::vector<std::string> steps;
    fakes::on_log([&](const LogLine &line) { steps.push_back(line.text); });
    fakes::answer_next_signal([&] {
      steps.emplace_back("signalled");
      return 0;
    });
    apply(record);
    fakes::reset_net_snmp();
    return steps;
  }
};

TEST_F(ClearOrderTest, SignalsTheRefreshThreadThenFreesNodeAndRow) {
  apply(fault(3, 7, 5));
  EXPECT_THAT(steps_of(fault(3, 7, 0)), ElementsAre("signalled", "Deleting FaultIndex 7: ", "Deleted\n",
                                                    "Removed an entry, Total Fault entries:0\n"));
}

TEST_F(ClearOrderTest, AnUnknownFaultsRowGoesLastToo) {
  EXPECT_THAT(steps_of(fault(3, 7, 0)),
              ElementsAre("signalled", "Deleting FaultIndex 7: ", "Deleted\n", "Clearing a Table_entry\n"));
}

TEST_F(FaultTableTest, NothingIsNotifiedWhileTheFlagIsOff) {
  for (const int flag : {0, 2}) {
    needToSendTrapFlag = flag;
    apply(fault(3, 7, 5));
    apply(fault(3, 7, 4));
    apply(fault(3, 7, 0));
    apply(fault(3, 7, 0));
  }
  EXPECT_THAT(fakes::notifications(), IsEmpty());
}

TEST_F(FaultTableTest, TheRowShowsThePlainTextThatTheNotificationPrefixed) {
  start_up_with_serial_number("SERIAL-0001");
  needToSendTrapFlag = 1;
  const std::string plain = "sys/rack-unit-1/board/cpu-1";
  apply(fault(3, 7, 5));
  EXPECT_EQ(notified_affected_object(), "[Serial No: SERIAL-0001] " + plain);
  EXPECT_EQ(read(5, 7), text(plain));
  apply(fault(3, 7, 4));
  EXPECT_EQ(notified_affected_object(), "[Serial No: SERIAL-0001] " + plain);
  EXPECT_EQ(read(5, 7), text(plain));
  apply(fault(3, 7, 0));
  EXPECT_EQ(notified_affected_object(), "[Serial No: SERIAL-0001] " + plain);
}

TEST_F(FaultTableTest, OneFaultIndexInTwoClassesIsTwoFaults) {
  apply(fault(3, 7, 5));
  apply(fault(8, 7, 4));
  EXPECT_THAT(listed_indexes(), ElementsAre(7, 7));
  apply(fault(3, 7, 0));
  EXPECT_EQ(only_row().severity, 4);
}

TEST_F(FaultTableTest, ClassCodesAbove255AreClassesOfTheirOwn) {
  start_up();
  const std::vector<std::uint32_t> classes = {5, 261, 0x10005, 0xFFFFFF05};
  for (std::size_t i = 0; i < classes.size(); ++i) {
    apply(fault(classes[i], 7, static_cast<std::uint32_t>(i) + 1));
  }
  EXPECT_THAT(listed_indexes(), SizeIs(4));
  apply(fault(261, 7, 9));
  EXPECT_THAT(listed_indexes(), SizeIs(4)) << "an update of one of them";
  for (const std::uint32_t class_code : classes) {
    apply(fault(class_code, 7, 0));
  }
  EXPECT_THAT(listed_indexes(), IsEmpty());
  EXPECT_EQ(fault_database[5], nullptr);
}

TEST_F(FaultTableTest, ANullRecordIsRefused) {
  EXPECT_EQ(populate_fault_table_from_fe(nullptr), -1);
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_F(FaultTableTest, ARecordIsDroppedInSilenceWhenThereIsNoMemory) {
  needToSendTrapFlag = 1;
  for (const int successes : {0, 1}) {
    fakes::fail_allocations(successes, 1);
    apply(fault(3, 7, 5));
    EXPECT_EQ(fakes::failed_allocations(), successes + 1);
  }
  EXPECT_THAT(listed_indexes(), IsEmpty());
  EXPECT_EQ(fault_database[3], nullptr);
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
  EXPECT_THAT(fakes::notifications(), IsEmpty());
}

TEST_F(FaultTableTest, WithoutADatabaseARecordIsDropped) {
  EntityNode **const database = std::exchange(fault_database, nullptr);
  apply(fault(3, 7, 5));
  EXPECT_THAT(listed_indexes(), IsEmpty());
  fault_database = database;
}

TEST_F(FaultTableTest, AnUpdateWaitsForAManagerThatReadsTheRow) {
  apply(fault(3, 7, 5));
  const FaultRow before = only_row();
  needToSendTrapFlag = 1;
  ASSERT_EQ(fault_list_lock.acquire(), 0);  // as a request does from its first row to its end
  std::thread engine([] { apply(fault(3, 7, 4).text(FAULT_DESCRIPTION, "Changed\0"sv)); });
  EXPECT_TRUE(fakes::wait_for_notifications(1));
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
  bool untouched = true;
  while (untouched && std::chrono::steady_clock::now() < end) {
    untouched = std::memcmp(tavoFaultTable_head, &before, sizeof before) == 0;
  }
  EXPECT_TRUE(untouched);
  fault_list_lock.release();
  engine.join();
  EXPECT_EQ(only_row().severity, 4);
  EXPECT_STREQ(only_row().description.text, "Changed");
}

// Each debug message is a moment at which a manager might read the row.
TEST_F(FaultTableTest, ARowNeverShowsTheSerialNumber) {
  start_up_with_serial_number("SERIAL-0001");
  needToSendTrapFlag = 1;
  fakes::set_debugging(true);
  std::string shown;
  fakes::on_debug_message([&shown] {
    if (tavoFaultTable_head != nullptr) {
      shown += tavoFaultTable_head->affected_object.text;
    }
  });
  apply(fault(3, 7, 5));
  apply(fault(3, 7, 4));
  fakes::on_debug_message(nullptr);
  EXPECT_THAT(shown, testing::HasSubstr("cpu-1"));
  EXPECT_THAT(shown, testing::Not(testing::HasSubstr("SERIAL")));
  EXPECT_THAT(notified_affected_object(), testing::HasSubstr("SERIAL"));
}

TEST_F(FaultTableTest, CreateListsARowWithItsPlainText) {
  auto *row = static_cast<FaultRow *>(std::calloc(1, sizeof(FaultRow)));
  row->index = 12;
  std::fill(std::begin(row->affected_object.text), std::end(row->affected_object.text), 'x');
  fakes::set_debugging(true);
  EXPECT_EQ(tavoFaultTable_createEntry(99, row, 0, class_number::adaptor, "plain"), row);
  const auto traces = fakes::traces();
  EXPECT_EQ(traces.at(0).text, "tavoFaultTable_createEntry\n");
  EXPECT_EQ(traces.at(0).source, "tavoFaultTable");
  EXPECT_EQ(only_row().index, 12U) << "the row has its own index";
  EXPECT_STREQ(only_row().affected_object.text, "plain");
  EXPECT_EQ(only_row().affected_object.text[191], '\0') << "zeroed to its end";
  EXPECT_EQ(only_row().affected_object.length, 5);
  EXPECT_TRUE(takes_refresh_mark(class_number::adaptor));
}

TEST_F(FaultTableTest, CreateTakesOneLockAfterTheOther) {
  apply(fault(3, 7, 5));
  // A list lock held while the mark is set would be busy here, where the inventory lock is held.
  acquire_inventory_lock();
  std::thread engine([] { apply(fault(3, 7, 4)); });
  ASSERT_TRUE(fakes::wait_for_log("Updated an entry, Total Fault entries:1\n"));
  EXPECT_EQ(fault_list_lock.acquire(), 0);
  fault_list_lock.release();
  release_inventory_lock();
  engine.join();
  EXPECT_EQ(fault_list_lock.hold_count(), 0);
}

TEST_F(FaultTableTest, CreateWithoutARowFails) {
  EXPECT_EQ(tavoFaultTable_createEntry(1, nullptr, 0, class_number::adaptor, "plain"), nullptr);
  EXPECT_EQ(tavoFaultTable_createEntry(1, nullptr, 1, class_number::adaptor, "plain"), nullptr);
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_F(FaultTableTest, RemoveTakesARowFromAnywhereInTheList) {
  for (const std::uint32_t index : {1U, 2U, 3U}) {
    apply(fault(3, index, 5));
  }
  free_entity_nodes();
  fakes::reset_net_snmp();
  EXPECT_EQ(tavoFaultTable_removeEntry(tavoFaultTable_head->next), 0);
  EXPECT_THAT(listed_indexes(), ElementsAre(3, 1));
  EXPECT_EQ(tavoFaultTable_removeEntry(tavoFaultTable_head), 0);
  EXPECT_THAT(listed_indexes(), ElementsAre(1));
  EXPECT_THAT(fakes::log_texts(),
              ElementsAre("Removed an entry, Total Fault entries:2\n", "Removed an entry, Total Fault entries:1\n"));
}

TEST_F(FaultTableTest, RemoveLeavesANullOrAStrangersRowAlone) {
  apply(fault(3, 1, 5));
  fakes::reset_net_snmp();
  FaultRow stranger = {};
  EXPECT_EQ(tavoFaultTable_removeEntry(nullptr), 0);
  EXPECT_EQ(tavoFaultTable_removeEntry(&stranger), 0);
  EXPECT_THAT(listed_indexes(), ElementsAre(1));
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_F(FaultTableTest, ClearRemovesAndCountsEveryRow) {
  for (const std::uint32_t index : {1U, 2U, 3U}) {
    apply(fault(3, index, 5));
  }
  free_entity_nodes();
  fakes::reset_net_snmp();
  EXPECT_EQ(clear_fault_table_entries(), 0);
  EXPECT_EQ(clear_fault_table_entries(), 0);
  EXPECT_EQ(tavoFaultTable_head, nullptr);
  EXPECT_THAT(fakes::log_lines(), ElementsAre(LogLine{LOG_DEBUG, "Removed 3 fault entries\n"},
                                              LogLine{LOG_DEBUG, "Removed 0 fault entries\n"}));
  apply(fault(3, 1, 5));
  EXPECT_EQ(fakes::log_texts().back(), "Added an entry, Total Fault entries:1\n") << "the count went down accordingly";
}

TEST_F(FaultTableTest, NullArgumentsDoNothing) {
  update_fan_prs_and_sev(nullptr);
  delete_entity_node(nullptr, nullptr);
  EXPECT_EQ(tavoFaultTable_createEntry(7, nullptr, 0, 3, "text"), nullptr);
  EXPECT_EQ(row_count(), 0U);
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_F(FaultTableTest, AnEntryWithoutATextAffectsNothing) {
  start_up();
  auto *const row = static_cast<FaultRow *>(std::calloc(1, sizeof(FaultRow)));
  row->index = 7;
  EXPECT_EQ(tavoFaultTable_createEntry(7, row, 0, 3, nullptr), row);
  EXPECT_EQ(read(5, 7), fakes::text(""));
}

using FaultDatabaseTest = FaultTableTest;

TEST_F(FaultDatabaseTest, TellsRaiseUpdateAndClearApart) {
  FaultRow *row = nullptr;
  EXPECT_EQ(lookup_and_modify_fault_table(fault(3, 7, 5).data(), &row), 2);
  const std::unique_ptr<FaultRow, decltype(&std::free)> owned(row, &std::free);
  ASSERT_NE(row, nullptr);
  FaultRow *again = nullptr;
  EXPECT_EQ(lookup_and_modify_fault_table(fault(3, 7, 1).data(), &again), 1);
  EXPECT_EQ(again, row);
  EXPECT_EQ(lookup_and_modify_fault_table(fault(3, 7, 0).data(), &again), 3);
  EXPECT_EQ(again, row);
  delete_entity_node(fault(3, 7, 0).data(), row);
  EXPECT_EQ(lookup_and_modify_fault_table(fault(3, 7, 0).data(), &again), 4);
  ASSERT_NE(again, nullptr);
  delete_entity_node(fault(3, 7, 0).data(), again);
  std::free(again);
}

// More classes than the database has chains, so some share theirs.
TEST_F(FaultDatabaseTest, ClassesWithOneIndexAreToldApart) {
  constexpr std::uint32_t classes = 5000;
  for (std::uint32_t class_code = 1000; class_code < 1000 + classes; ++class_code) {
    apply(fault(class_code, 7, 5));
  }
  EXPECT_EQ(row_count(), classes);
}

TEST_F(FaultDatabaseTest, WithoutMemoryThereIsNoRow) {
  for (const int successes : {0, 1}) {
    FaultRow stranger = {};
    FaultRow *row = &stranger;
    fakes::fail_allocations(successes, 1);
    EXPECT_EQ(lookup_and_modify_fault_table(fault(3, 7, 5).data(), &row), 0);
    EXPECT_EQ(row, nullptr);
  }
}

TEST_F(FaultDatabaseTest, NewNodesStandAtTheHeadOfTheirBucket) {
  apply(fault(3, 7, 5));
  apply(fault(3, 8, 5));
  ASSERT_NE(fault_database[3], nullptr);
  EXPECT_EQ(fault_database[3]->row->index, 8U);
  EXPECT_EQ(fault_database[3]->next->row->index, 7U);
  EXPECT_EQ(fault_database[3]->next->next, nullptr);
  EXPECT_EQ(fault_database[7], nullptr);
}

// Two classes of one bucket, with the same indexes.
TEST_F(FaultDatabaseTest, AChainKeepsItsOrderWhateverComesAndGoes) {
  using Fault = std::pair<std::uint32_t, std::uint32_t>;  // class code and index
  std::vector<Fault> expected;                            // the newest first
  std::minstd_rand random(12);                            // NOLINT(bugprone-random-generator-seed)
  for (int round = 0; round < 3000; ++round) {
    const Fault changed(random() % 2 == 0 ? 3 : 259, random() % 40);
    const bool clears = random() % 2 == 0;
    apply(fault(changed.first, changed.second, clears ? 0 : 5));
    if (clears) {
      std::erase(expected, changed);
    } else if (std::ranges::count(expected, changed) == 0) {
      expected.insert(expected.begin(), changed);
    }
    std::vector<Fault> chain;
    for (const EntityNode *node = fault_database[3]; node != nullptr; node = node->next) {
      chain.emplace_back(node->class_code, node->row->index);
    }
    ASSERT_EQ(chain, expected) << "round " << round;
  }
}

// The processor time of 3,000 records about faults of one class, half of them clears and half raises, while `active`
// are active. Real time would count the programs that run beside this one, too.
TEST_F(FaultDatabaseTest, ALongChainIsNoSlowerThanAShortOne) {
  const auto time_among = [](std::uint32_t active) {
    for (std::uint32_t index = 0; index < active; ++index) {
      apply(fault(3, index, 5));
    }
    const std::clock_t begin = std::clock();
    for (std::uint32_t i = 0; i < 3000; ++i) {
      apply(fault(3, i / 2 * 7919 % active, i % 2 == 0 ? 0 : 5));
    }
    const std::clock_t end = std::clock();
    fakes::reset_net_snmp();
    return end - begin;
  };
  const auto among_few = time_among(100);
  EXPECT_LT(time_among(30'000), 20 * among_few);
}

TEST_F(FaultDatabaseTest, DeleteFreesTheNodeAndNotTheRow) {
  apply(fault(3, 7, 5));
  apply(fault(3, 8, 5));
  fakes::reset_net_snmp();
  delete_entity_node(fault(3, 7, 5).data(), nullptr);
  EXPECT_THAT(listed_indexes(), ElementsAre(8, 7));
  EXPECT_EQ(fault_database[3]->next, nullptr);
  delete_entity_node(fault(3, 7, 5).data(), nullptr);
  EXPECT_THAT(fakes::log_lines(),
              ElementsAre(LogLine{LOG_DEBUG, "Deleting FaultIndex 7: "}, LogLine{LOG_DEBUG, "Deleted\n"},
                          LogLine{LOG_DEBUG, "Deleting FaultIndex 7: "}, LogLine{LOG_DEBUG, "Not found\n"}));
}

TEST_F(FaultDatabaseTest, ARemovedRowTakesItsNodeAlong) {
  apply(fault(3, 7, 5));
  apply(fault(3, 8, 5));
  EXPECT_EQ(tavoFaultTable_removeEntry(tavoFaultTable_head), 0);
  apply(fault(3, 7, 0));
  EXPECT_THAT(listed_indexes(), IsEmpty());
  ASSERT_EQ(fault_database[3], nullptr);
  apply(fault(3, 8, 5));
  EXPECT_THAT(listed_indexes(), ElementsAre(8)) << "a new fault";
}

TEST_F(FaultDatabaseTest, ARowThatIsNotListedKeepsItsNode) {
  FaultRow *row = nullptr;
  ASSERT_EQ(lookup_and_modify_fault_table(fault(3, 7, 5).data(), &row), 2);
  EXPECT_EQ(tavoFaultTable_removeEntry(row), 0);
  ASSERT_NE(fault_database[3], nullptr);
  EXPECT_EQ(fault_database[3]->row, row);
  delete_entity_node(fault(3, 7, 0).data(), row);
  std::free(row);
}

TEST_F(FaultDatabaseTest, AnEmptiedTableHasNoNodes) {
  for (const std::uint32_t class_code : {3U, 3U, 8U}) {
    apply(fault(class_code, 7, 5));
  }
  clear_fault_table_entries();
  ASSERT_THAT(std::vector(fault_database, fault_database + fault_bucket_count), Each(nullptr));
  apply(fault(3, 7, 5));
  EXPECT_THAT(listed_indexes(), ElementsAre(7)) << "a new fault";
}

TEST_F(FaultDatabaseTest, AFaultIndexIsLoggedSigned) {
  delete_entity_node(fault(3, 0xFFFFFFFF, 5).data(), nullptr);
  EXPECT_EQ(fakes::log_texts().front(), "Deleting FaultIndex -1: ");
}

TEST_F(FaultDatabaseTest, ANodeIsZeroed) {
  auto *node = static_cast<EntityNode *>(create_entity_node());
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->row, nullptr);
  EXPECT_EQ(node->next, nullptr);
  std::free(node);
  fakes::fail_allocations(0, 1);
  EXPECT_EQ(create_entity_node(), nullptr);
}

TEST_F(FaultDatabaseTest, FreeingCountsEveryNodeOfEveryBucket) {
  for (const std::uint32_t class_code : {0U, 3U, 255U, 511U}) {
    apply(fault(class_code, 7, 5));
  }
  EXPECT_EQ(free_entity_nodes(), 4);
  EXPECT_EQ(free_entity_nodes(), 0);
  EXPECT_THAT(std::vector(fault_database, fault_database + fault_bucket_count), Each(nullptr));
}

}  // namespace
}  // namespace tavo
