// The three kinds of notification that leave the module.
#include "tables/faults/tavoFaultTable_traps.h"

#include <gmock/gmock.h>

#include <string>

#include "tests/fakes/allocation.h"
#include "tests/fakes/clock.h"
#include "tests/fakes/daemon.h"
#include "tests/fixtures/fault_table_fixture.h"

namespace tavo {
namespace {

using fakes::Answer;
using fakes::counter;
using fakes::counter64;
using fakes::fault;
using fakes::gauge;
using fakes::integer;
using fakes::Notification;
using fakes::object_identifier;
using fakes::Oid;
using fakes::text;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;
using namespace std::string_literals;

const Oid trap_oid = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
const Oid raised = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 0, 1};
const Oid cleared = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 0, 2};
const Oid affected_id = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 41, 9, 1, 2, 1};

Oid column(oid number, oid instance) {
  return fakes::cell(fault_table, number, instance);
}

std::vector<Answer> varbinds_of_fault(const Oid &kind, std::uint32_t index, std::int32_t severity) {
  return {{trap_oid, object_identifier(kind)},
          {column(1, index), gauge(index)},
          {column(11, index), text("Processor 1 has failed")},
          {column(4, index), object_identifier(affected_id)},
          {column(5, index), text("sys/rack-unit-1/board/cpu-1")},
          {column(10, index), text("\x07\xE7\x0B\x0E\x16\x0D\x14\x00"s)},
          {column(14, index), text("\x07\xE7\x0B\x0E\x17\x0D\x14\x00"s)},
          {column(9, index), integer(1001)},
          {column(22, index), integer(5)},
          {column(7, index), integer(17)},
          {column(20, index), integer(severity)},
          {column(16, index), counter(200)},
          {column(13, index), counter64(std::uint64_t{index} << 32)}};
}

class FaultNotificationTest : public FaultTableTest {
 protected:
  FaultNotificationTest() { needToSendTrapFlag = 1; }
};

TEST_F(FaultNotificationTest, RaiseUpdateAndClearCarryThirteenVarbindsEach) {
  apply(fault(3, 7, 3));
  apply(fault(3, 7, 5));
  apply(fault(3, 7, 0));
  const auto sent = fakes::notifications();
  ASSERT_THAT(sent, SizeIs(3));
  for (const Notification &notification : sent) {
    EXPECT_EQ(notification.call, Notification::Call::send_v3trap);
    EXPECT_EQ(notification.context, "0x8000F00D0300002A6B7C8D01");
  }
  EXPECT_EQ(varbinds_of(sent[0]), varbinds_of_fault(raised, 7, 3));
  EXPECT_EQ(varbinds_of(sent[1]), varbinds_of_fault(raised, 7, 5));
  EXPECT_EQ(varbinds_of(sent[2]), varbinds_of_fault(cleared, 7, 0));
}

TEST_F(FaultNotificationTest, EachChangeIsReported) {
  const fakes::RecordedReports reports;
  apply(fault(3, 7, 3));
  needToSendTrapFlag = 0;
  apply(fault(3, 7, 0));
  needToSendTrapFlag = 1;
  apply(fault(3, 8, 0));
  EXPECT_THAT(reports.take(), ElementsAre("fault 7 has severity 3, notified", "fault 7 has severity 0",
                                          "fault 8 has severity 0, notified"));
}

TEST_F(FaultNotificationTest, AChangeWithoutMemoryIsReportedUnnotified) {
  const fakes::RecordedReports reports;
  fakes::fail_allocations(0, 1);
  apply(fault(3, 7, 5));
  EXPECT_THAT(reports.take(), ElementsAre("fault 7 has severity 5"));
}

TEST_F(FaultNotificationTest, WithoutOneOfItsVarbindsItIsNotSent) {
  FaultRow row = {};
  for (int varbinds = 0; varbinds < 13; ++varbinds) {
    fakes::refuse_varbind(varbinds);
    EXPECT_EQ(send_fault_trap(7, &row), -1) << varbinds;
  }
  EXPECT_THAT(fakes::notifications(), IsEmpty());
  EXPECT_EQ(send_fault_trap(7, &row), 0);
}

TEST_F(FaultNotificationTest, NamesAndIndexAreUnsigned) {
  apply(fault(3, 0xFFFFFFFF, 3));
  EXPECT_EQ(varbinds_of(fakes::notifications().at(0)), varbinds_of_fault(raised, 0xFFFFFFFF, 3));
}

TEST_F(FaultNotificationTest, EveryVarbindIsWhatAGetAnswers) {
  start_up();
  apply(fault(3, 7, 5));
  auto varbinds = varbinds_of(fakes::notifications().at(0));
  varbinds.erase(varbinds.begin(), varbinds.begin() + 2);  // snmpTrapOID and the index, which no GET reads
  std::vector<Oid> names;
  for (const Answer &varbind : varbinds) {
    names.push_back(varbind.name);
  }
  EXPECT_EQ(fakes::get(names).answers, varbinds);
}

TEST_F(FaultNotificationTest, IsSentBeforeTheTableChanges) {
  std::vector<std::string> table_when_sent;
  fakes::on_notification([&] {
    table_when_sent.push_back(row_count() == 0 ? "empty" : "severity " + std::to_string(only_row().severity));
  });
  apply(fault(3, 7, 5));
  apply(fault(3, 7, 4));
  apply(fault(3, 7, 0));
  EXPECT_THAT(table_when_sent, ElementsAre("empty", "severity 5", "severity 4"));
}

TEST_F(FaultNotificationTest, TheInstanceIsTheCallers) {
  apply(fault(3, 7, 5));
  FaultRow row = only_row();
  EXPECT_EQ(send_fault_trap(1234, &row), 0);
  const auto varbinds = varbinds_of(fakes::notifications().back());
  EXPECT_EQ(varbinds.at(1), (Answer{column(1, 1234), gauge(7)}));
  EXPECT_EQ(varbinds.at(12).name, column(13, 1234));
}

TEST_F(FaultNotificationTest, AnIdentifierThatHasNoEncodingIsSentEmpty) {
  start_up();
  const std::vector<std::vector<std::uint32_t>> identifiers = {{3, 1, 1}, {0, 40}, {1, 41, 2}, {2, 0xFFFFFFB0}, {9}};
  for (const auto &identifier : identifiers) {
    apply(fault(3, 7, 5).identifier(identifier));
    EXPECT_EQ(varbinds_of(fakes::notifications().back()).at(3), (Answer{column(4, 7), object_identifier({})}));
    EXPECT_EQ(read(4, 7), object_identifier({}));
  }
  apply(fault(3, 7, 5).identifier({2, 0xFFFFFFAF, 1}));
  EXPECT_EQ(read(4, 7), object_identifier(Oid{2, 0xFFFFFFAF, 1}));
}

TEST_F(FaultNotificationTest, ANullRowIsRefusedAndTraced) {
  fakes::set_debugging(true);
  EXPECT_EQ(send_fault_trap(7, nullptr), -103);
  EXPECT_EQ(create_dummy_trap_entry(nullptr), -103);
  const auto traces = fakes::traces();
  ASSERT_THAT(traces, SizeIs(2));
  EXPECT_EQ(traces[0].function, "send_fault_trap");
  EXPECT_EQ(traces[0].text, "send_fault_trap: Invalid args\n");
  EXPECT_EQ(traces[1].function, "create_dummy_trap_entry");
  EXPECT_EQ(traces[1].text, "create_dummy_trap_entry: Invalid args\n");
  EXPECT_THAT(traces, Each(Field(&fakes::Trace::source, "tavoFaultTable")));
  EXPECT_THAT(fakes::notifications(), IsEmpty());
  fakes::reset_net_snmp();
  EXPECT_EQ(send_fault_trap(7, nullptr), -103);
  EXPECT_THAT(fakes::debug_messages(), IsEmpty());
}

TEST_F(FaultNotificationTest, TheTestFaultGoesOutAsAClear) {
  FaultRow row = {};
  EXPECT_EQ(create_dummy_trap_entry(&row), 0);
  EXPECT_EQ(send_fault_trap(1, &row), 0);
  EXPECT_EQ(varbinds_of(fakes::notifications().at(0)),
            (std::vector<Answer>{{trap_oid, object_identifier(cleared)},
                                 {column(1, 1), gauge(0)},
                                 {column(11, 1), text("Test Fault")},
                                 {column(4, 1), object_identifier({})},
                                 {column(5, 1), text("sys/rack-unit-1/test-entity")},
                                 {column(10, 1), text("")},
                                 {column(14, 1), text("")},
                                 {column(9, 1), integer(0)},
                                 {column(22, 1), integer(5)},
                                 {column(7, 1), integer(0)},
                                 {column(20, 1), integer(0)},
                                 {column(16, 1), counter(1)},
                                 {column(13, 1), counter64(0x100000000)}}));
}

TEST_F(FaultNotificationTest, TheTestFaultFillsTheColumnsThatAreNotSentToo) {
  FaultRow row = {};
  create_dummy_trap_entry(&row);
  EXPECT_STREQ(row.dn.text, "sys/rack-unit-1/test-trap");
  EXPECT_EQ(row.dn.length, 25);
  EXPECT_STREQ(row.rn.text, "test-trap");
  EXPECT_EQ(row.rn.length, 9);
  EXPECT_EQ(row.column_6, 1);
  EXPECT_STREQ(row.column_8.text, "unknown");
  EXPECT_EQ(row.column_8.length, 7);
  EXPECT_EQ(row.highest_severity, 6);
  EXPECT_EQ(row.column_15, 0);
  EXPECT_EQ(row.severity, 0);
  EXPECT_EQ(row.tag, 0);
  EXPECT_EQ(row.index, 0U);
  EXPECT_EQ(row.affected_id.count, 0);
  EXPECT_EQ(row.first_time.length, 0);
  EXPECT_EQ(row.last_time.length, 0);
}

class StartUpNotificationTest : public FaultTableTest {
 protected:
  fakes::FakeClock clock_{1'700'000'000};
};

TEST_F(StartUpNotificationTest, AColdStartSendsOneAndTurnsNotificationsOn) {
  tvmc_Startup_Trap();
  const auto sent = fakes::notifications();
  ASSERT_THAT(sent, SizeIs(1));
  EXPECT_EQ(sent[0].call, Notification::Call::send_enterprise_trap_vars);
  EXPECT_EQ(sent[0].generic, 1);
  EXPECT_EQ(sent[0].specific, -1);
  EXPECT_EQ(sent[0].enterprise, (Oid{1, 3, 6, 1, 4, 1, 61453, 1, 3301}));
  EXPECT_THAT(varbinds_of(sent[0]), ElementsAre(Answer{Oid{1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 1, 1, 1, 10, 0},
                                                       text("\x07\xE7\x0B\x0E\x16\x0E\x14\x00"s)}))
      << "the time when the minute is over";
  EXPECT_THAT(clock_.sleeps(), ElementsAre(60, 1));
  EXPECT_EQ(needToSendTrapFlag, 1);

  tvmc_Startup_Trap();
  EXPECT_THAT(fakes::notifications(), SizeIs(1)) << "the marker is there now";
  EXPECT_EQ(needToSendTrapFlag, 0);
  EXPECT_EQ(files_.read("/var/tvmcWarmStartup"), "");
}

TEST_F(StartUpNotificationTest, CarriesATimeBeyondThirtyTwoBits) {
  clock_.set(2'147'483'648 - 60);
  tvmc_Startup_Trap();
  ASSERT_THAT(fakes::notifications(), SizeIs(1));
  EXPECT_THAT(varbinds_of(fakes::notifications()[0]),
              ElementsAre(testing::Field(&Answer::value, text("\x07\xF6\x01\x13\x03\x0E\x08\x00"s))));
}

TEST_F(StartUpNotificationTest, IsSentWithoutATimeIfNoneIsKnown) {
  clock_.set(-1 - 60);
  tvmc_Startup_Trap();
  ASSERT_THAT(fakes::notifications(), SizeIs(1));
  EXPECT_THAT(varbinds_of(fakes::notifications()[0]), ElementsAre(testing::Field(&Answer::value, text(""))));
}

TEST_F(StartUpNotificationTest, AWarmStartSendsNoneAndTurnsNotificationsOff) {
  files_.write("/var/tvmcWarmStartup", "");
  needToSendTrapFlag = 1;
  tvmc_Startup_Trap();
  EXPECT_THAT(fakes::notifications(), IsEmpty());
  EXPECT_THAT(clock_.sleeps(), IsEmpty());
  EXPECT_EQ(needToSendTrapFlag, 0);
}

TEST_F(StartUpNotificationTest, AMarkerThatCannotBeMadeIsIgnored) {
  fakes::refuse_open("/var/tvmcWarmStartup", EACCES);
  tvmc_Startup_Trap();
  EXPECT_EQ(needToSendTrapFlag, 1);
  EXPECT_THAT(fakes::notifications(), SizeIs(1));
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_F(StartUpNotificationTest, ATimeThatCannotBeConvertedIsSentEmpty) {
  fakes::set_date_and_time_result(1);
  tvmc_Startup_Trap();
  EXPECT_EQ(varbinds_of(fakes::notifications().at(0)).at(0).value, text(""));
}

}  // namespace
}  // namespace tavo
