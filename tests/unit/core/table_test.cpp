#include "core/table.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "tests/fakes/allocation.h"
#include "tests/fakes/daemon.h"
#include "tests/fakes/mutexes.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fixtures/sample_table.h"
#include "tests/fixtures/sample_table_fixture.h"
#include "tests/harness/manager.h"
#include "tests/harness/own_process.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using fakes::add_row;
using fakes::cell;
using fakes::ev_root;
using fakes::ev_sample;
using fakes::is_locked;
using fakes::SampleRow;
using fakes::subagent_root;
using fakes::subagent_sample;
using fakes::text;
using testing::ElementsAre;
using testing::IsEmpty;

class TableTest : public fakes::SampleTableTest {};

std::vector<const SampleRow *> listed(const fakes::SampleTable &sample) {
  std::vector<const SampleRow *> rows;
  for (const SampleRow *row = sample.head; row != nullptr; row = row->next) {
    rows.push_back(row);
  }
  return rows;
}

void *create(std::uint32_t index, const SampleRow *filled) {
  const ListGuard guard(ev_sample.table.lock());
  return ev_sample.table.create(index, filled);
}

// Rows.

TEST_F(TableTest, ARowIsACopyWithItsOwnIndexInFrontOfTheList) {
  SampleRow *older = add_row(ev_sample, 1);
  SampleRow filled = {};
  filled.index = 77;
  std::strcpy(filled.name, "row");
  filled.level = -1;
  filled.total = 0x0102030405060708;
  filled.next = &filled;
  auto *row = static_cast<SampleRow *>(create(5, &filled));
  ASSERT_NE(row, nullptr);
  EXPECT_NE(row, &filled);
  EXPECT_EQ(row->index, 5U);
  EXPECT_STREQ(row->name, "row");
  EXPECT_EQ(row->level, -1);
  EXPECT_EQ(row->total, 0x0102030405060708U);
  EXPECT_THAT(listed(ev_sample), ElementsAre(row, older));
}

TEST_F(TableTest, TheListIsInReverseOrderOfCreation) {
  SampleRow *one = add_row(ev_sample, 1);
  SampleRow *three = add_row(ev_sample, 3);
  SampleRow *two = add_row(ev_sample, 2);
  EXPECT_THAT(listed(ev_sample), ElementsAre(two, three, one));
}

TEST_F(TableTest, ATextThatFillsItsFieldLosesItsLastOctetToTheNul) {
  SampleRow filled = {};
  std::memset(filled.name, 'n', sizeof filled.name);
  std::memset(filled.code.text, 'c', sizeof filled.code.text);  // counted, so it needs no NUL
  const auto *row = static_cast<const SampleRow *>(create(1, &filled));
  ASSERT_NE(row, nullptr);
  EXPECT_STREQ(row->name, "nnnnnnnnnnnnnnn");
  EXPECT_EQ(std::string_view(row->code.text, sizeof row->code.text), "cccccccc");
}

TEST_F(TableTest, NoRowIsMadeOfNothing) {
  EXPECT_EQ(create(1, nullptr), nullptr);
  EXPECT_THAT(listed(ev_sample), IsEmpty());
}

TEST_F(TableTest, NoRowIsMadeWithoutMemory) {
  const SampleRow filled = {};
  fakes::fail_allocations(0);
  EXPECT_EQ(create(1, &filled), nullptr);
  EXPECT_THAT(listed(ev_sample), IsEmpty());
}

TEST_F(TableTest, RemovesARowUnderTheLock) {
  SampleRow *one = add_row(ev_sample, 1);
  SampleRow *two = add_row(ev_sample, 2);
  SampleRow *three = add_row(ev_sample, 3);
  EXPECT_EQ(ev_sample.table.remove(two), 0);
  EXPECT_THAT(listed(ev_sample), ElementsAre(three, one));
  EXPECT_EQ(ev_sample.table.remove(three), 0);
  EXPECT_EQ(ev_sample.table.remove(one), 0);
  EXPECT_EQ(ev_sample.head, nullptr);
  EXPECT_FALSE(is_locked(ev_sample));
}

TEST_F(TableTest, RemovingANullRowDoesNothing) {
  fakes::fail_next_mutex_call(EINVAL);  // not even lock
  EXPECT_EQ(ev_sample.table.remove(nullptr), 0);
  fakes::fail_next_mutex_call(0);
}

TEST_F(TableTest, ARowThatIsNotListedIsLeftAlone) {
  SampleRow *one = add_row(ev_sample, 1);
  SampleRow stranger = {};
  stranger.next = one;
  EXPECT_EQ(ev_sample.table.remove(&stranger), 0);
  EXPECT_EQ(stranger.next, one);
  EXPECT_THAT(listed(ev_sample), ElementsAre(one));
  EXPECT_FALSE(is_locked(ev_sample));
}

TEST_F(TableTest, WithoutTheLockNoRowIsRemoved) {
  SampleRow *one = add_row(ev_sample, 1);
  fakes::fail_next_mutex_call(EINVAL);
  EXPECT_EQ(ev_sample.table.remove(one), EINVAL);
  EXPECT_THAT(listed(ev_sample), ElementsAre(one));
}

TEST_F(TableTest, RemovesAllRows) {
  add_row(ev_sample, 1);
  add_row(ev_sample, 2);
  remove_rows(ev_sample);
  EXPECT_EQ(ev_sample.head, nullptr);
}

// Traces.

TEST_F(TableTest, EntryPointsTraceTheirNamesInTablesThatTrace) {
  fakes::set_debugging(true);
  ev_sample.table.trace_entry(TracedFunction::CreateEntry, 42);
  subagent_sample.table.trace_entry(TracedFunction::CreateEntry, 43);
  const auto traces = fakes::traces();
  ASSERT_EQ(traces.size(), 1U);
  EXPECT_EQ(traces[0].function, "evSampleTable_createEntry");
  EXPECT_EQ(traces[0].source, "evSampleTable");
  EXPECT_EQ(traces[0].line, 42);
  EXPECT_EQ(traces[0].text, "evSampleTable_createEntry\n");
}

TEST_F(TableTest, NothingIsTracedWhileDebuggingIsOff) {
  ev_sample.table.trace_entry(TracedFunction::CreateEntry, 42);
  EXPECT_THAT(fakes::debug_messages(), IsEmpty());
}

// Registration.

TEST_F(TableTest, IsServedOnceRegistered) {
  add_row(ev_sample, 1);
  EXPECT_EQ(fakes::get({cell(ev_root, 2, 1)}).answers.at(0).value, fakes::no_such_object);
  EXPECT_EQ(ev_sample.table.register_with_agent(), MIB_REGISTERED_OK);
  EXPECT_EQ(fakes::get({cell(ev_root, 2, 1)}).answers.at(0).value, text("row-1"));
}

TEST_F(TableTest, ServesTheColumnsItDescribesAndNoOthers) {
  add_row(ev_sample, 1);
  ev_sample.table.register_with_agent();
  for (oid column = 2; column <= 11; ++column) {
    EXPECT_LT(fakes::get({cell(ev_root, column, 1)}).answers.at(0).value.type, SNMP_NOSUCHOBJECT) << column;
  }
  for (const oid column : {0UL, 1UL, 12UL, 255UL, 256UL + 2, 0xFFFFFFFFUL}) {
    EXPECT_EQ(fakes::get({cell(ev_root, column, 1)}).answers.at(0).value, fakes::no_such_object) << column;
  }
  EXPECT_EQ(fakes::walk(ev_root).size(), 10U);
}

TEST_F(TableTest, AMissingRowIsNoSuchInstance) {
  ev_sample.table.register_with_agent();
  EXPECT_EQ(fakes::get({cell(ev_root, 2, 1)}).answers.at(0).value, fakes::no_such_instance);  // an empty table
  add_row(ev_sample, 1);
  add_row(ev_sample, 2);
  EXPECT_EQ(fakes::get({cell(ev_root, 2, 9)}).answers.at(0).value, fakes::no_such_instance);
  EXPECT_EQ(fakes::get({cell(ev_root, 2, 0)}).answers.at(0).value, fakes::no_such_instance);
}

TEST_F(TableTest, IsReadOnly) {
  add_row(ev_sample, 1);
  ev_sample.table.register_with_agent();
  const fakes::Response response = fakes::set({cell(ev_root, 5, 1)}, 7);
  EXPECT_EQ(response.error_status, SNMP_ERR_NOTWRITABLE);
  EXPECT_EQ(ev_sample.head->level, 0);
  EXPECT_FALSE(is_locked(ev_sample));
}

TEST_F(TableTest, IsNoLongerServedOnceDeRegistered) {
  add_row(ev_sample, 1);
  ev_sample.table.register_with_agent();
  EXPECT_EQ(ev_sample.table.de_register(), 0);
  EXPECT_EQ(fakes::get({cell(ev_root, 2, 1)}).answers.at(0).value, fakes::no_such_object);
  EXPECT_FALSE(is_locked(ev_sample));
  EXPECT_NE(ev_sample.head, nullptr) << "rows stay";
}

TEST_F(TableTest, DeRegisteringTwiceOrWithoutRegistrationDoesNothing) {
  EXPECT_EQ(ev_sample.table.de_register(), 0);
  ev_sample.table.register_with_agent();
  EXPECT_EQ(ev_sample.table.de_register(), 0);
  EXPECT_EQ(ev_sample.table.de_register(), 0);
}

TEST_F(TableTest, CanBeRegisteredAgain) {
  add_row(ev_sample, 1);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(ev_sample.table.register_with_agent(), MIB_REGISTERED_OK);
    EXPECT_EQ(fakes::walk(ev_root).size(), 10U);
    EXPECT_EQ(ev_sample.table.de_register(), 0);
  }
}

TEST_F(TableTest, WithoutTheLockItStaysRegistered) {
  add_row(ev_sample, 1);
  ev_sample.table.register_with_agent();
  fakes::fail_next_mutex_call(EINVAL);
  EXPECT_EQ(ev_sample.table.de_register(), EINVAL);
  EXPECT_EQ(fakes::walk(ev_root).size(), 10U);
}

TEST_F(TableTest, DeRegisteringGivesTheResultOfTheLocksRelease) {
  ev_sample.table.register_with_agent();
  fakes::fail_next_mutex_call(EPERM, 1);
  EXPECT_EQ(ev_sample.table.de_register(), EPERM);
  EXPECT_EQ(ev_sample.table.lock().release(), 0) << "it has not been released";
  EXPECT_EQ(fakes::get({cell(ev_root, 2, 1)}).answers.at(0).value, fakes::no_such_object);
}

TEST_F(TableTest, RemovingARowGivesTheResultOfTheLocksRelease) {
  SampleRow *one = add_row(ev_sample, 1);
  fakes::fail_next_mutex_call(EPERM, 1);
  EXPECT_EQ(ev_sample.table.remove(one), EPERM);
  EXPECT_EQ(ev_sample.table.lock().release(), 0) << "it has not been released";
  EXPECT_THAT(listed(ev_sample), IsEmpty());
}

// What a table has been registered with once serves it again.
TEST_F(TableTest, WithoutMemoryItIsNotRegistered) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  fakes::fail_allocations(0, 1);
  EXPECT_EQ(ev_sample.table.register_with_agent(), MIB_REGISTRATION_FAILED);
  EXPECT_EQ(fakes::failed_allocations(), 1);
  fakes::reset_allocations();
  EXPECT_EQ(ev_sample.table.de_register(), 0);
  EXPECT_EQ(ev_sample.table.register_with_agent(), MIB_REGISTERED_OK);
}

TEST_F(TableTest, ASecondRegistrationFailsAndTheFirstStays) {
  add_row(ev_sample, 1);
  ASSERT_EQ(ev_sample.table.register_with_agent(), MIB_REGISTERED_OK);
  EXPECT_EQ(ev_sample.table.register_with_agent(), MIB_DUPLICATE_REGISTRATION);
  EXPECT_EQ(fakes::walk(ev_root).size(), 10U);
  EXPECT_EQ(ev_sample.table.de_register(), 0);
  EXPECT_THAT(fakes::walk(ev_root), IsEmpty());
}

TEST_F(TableTest, ATableThatKeepsNoRegistrationStaysRegistered) {
  add_row(subagent_sample, 1);
  ASSERT_EQ(subagent_sample.table.register_with_agent(), MIB_REGISTERED_OK);
  EXPECT_EQ(subagent_sample.table.de_register(), 0);
  EXPECT_EQ(fakes::walk(subagent_root).size(), 10U);
  EXPECT_EQ(unregister_mib(const_cast<oid *>(subagent_root.data()), subagent_root.size()), MIB_UNREGISTERED_OK);
}

TEST_F(TableTest, ItReportsItsRegistration) {
  const fakes::RecordedReports reports;
  add_row(ev_sample, 1);
  add_row(ev_sample, 2);
  ASSERT_EQ(ev_sample.table.register_with_agent(), MIB_REGISTERED_OK);
  EXPECT_EQ(ev_sample.table.register_with_agent(), MIB_DUPLICATE_REGISTRATION);
  EXPECT_THAT(reports.take(), ElementsAre("evSampleTable is registered with 2 rows"));
}

TEST_F(TableTest, ItReportsARebuildAndWhetherItSucceeded) {
  static int result;
  const TableDescription description = {.name = "builtTable",
                                        .root = ev_root,
                                        .lock = ev_sample.table.lock(),
                                        .columns = fakes::sample_columns,
                                        .row = layout_of<SampleRow>(),
                                        .build = [](int refresh) { return result + refresh; }};
  SampleRow *head = nullptr;
  Table table(description, {}, &head);
  const fakes::RecordedReports reports;
  for (const int good : {0, 1}) {
    result = good;
    EXPECT_EQ(table.build(0), good);
    EXPECT_THAT(reports.take(), ElementsAre("builtTable begins", "builtTable succeeds"));
  }
  for (const int bad : {-1, -106, EINVAL}) {
    result = bad - 1;
    EXPECT_EQ(table.build(1), bad);
    EXPECT_THAT(reports.take(), ElementsAre("builtTable begins", "builtTable fails"));
  }
}

TEST_F(TableTest, AValueThatIsRefusedIsAGenErrAtItsPlaceInThePdu) {
  add_row(ev_sample, 1);
  ev_sample.table.register_with_agent();
  ASSERT_EQ(fakes::get({cell(ev_root, 2, 1)}).error_status, SNMP_ERR_NOERROR);  // starts the agent
  fakes::refuse_value(1);
  const fakes::Response response = fakes::get({cell(ev_root, 2, 1), cell(ev_root, 5, 1), cell(ev_root, 8, 1)});
  EXPECT_EQ(response.error_status, SNMP_ERR_GENERR);
  EXPECT_EQ(response.error_index, 2);
  EXPECT_FALSE(is_locked(ev_sample));
  EXPECT_EQ(fakes::get({cell(ev_root, 2, 1), cell(ev_root, 5, 1)}).error_status, SNMP_ERR_NOERROR);
}

}  // namespace
}  // namespace tavo
