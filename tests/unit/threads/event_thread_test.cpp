#include "threads/event_thread.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tables/faults/fault_database.h"
#include "tables/faults/tavoFaultTable.h"
#include "tables/faults/tavoFaultTable_traps.h"
#include "tests/fakes/allocation.h"
#include "tests/fakes/clock.h"
#include "tests/fakes/daemon.h"
#include "tests/fakes/mutexes.h"
#include "tests/fakes/threads.h"
#include "tests/fixtures/fault_table_fixture.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using fakes::fault;
using fakes::FaultRecord;
using fakes::LogLine;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

// The thread makes its own database.
class EventThreadTest : public FaultTableTest {
 protected:
  EventThreadTest() {
    std::free(fault_database);
    fault_database = nullptr;
  }

  ~EventThreadTest() override { end(); }

  // Starts the thread and waits for its first listen.
  void start() {
    ASSERT_EQ(create_FE_thread(), 0);
    running_ = true;
    ASSERT_TRUE(fakes::wait_until_listening());
  }

  void start_warm() {
    files_.write("/var/tvmcWarmStartup", "");
    start();
  }

  // Broadcasts a record and waits until the thread has applied it.
  static void tell(const FaultRecord &record) {
    fakes::broadcast(record);
    ASSERT_TRUE(fakes::wait_until_listening());
  }

  static void tell_result(int result, int error) {
    fakes::broadcast_result(result, error);
    ASSERT_TRUE(fakes::wait_until_listening());
  }

  // A stopped thread ends after one more record.
  void end() {
    if (running_) {
      running_ = false;
      stop_FE_thread();
      fakes::broadcast(fault(3, 999, 0));
      join_FE_thread();
    }
  }

  static std::vector<std::string> kinds_sent() {
    std::vector<std::string> kinds;
    for (const fakes::Notification &notification : fakes::notifications()) {
      const auto varbinds = varbinds_of(notification);
      kinds.push_back(notification.call == fakes::Notification::Call::send_enterprise_trap_vars
                          ? "start-up"
                          : varbinds.at(0).value.content + ' ' + varbinds.at(1).value.content);
    }
    return kinds;
  }

  bool running_ = false;
  fakes::FakeClock clock_{1'700'000'000};
};

const std::string raised = "1.3.6.1.4.1.61453.4.207.0.1 ";
const std::string cleared = "1.3.6.1.4.1.61453.4.207.0.2 ";

TEST_F(EventThreadTest, AColdStartNotifiesTheStartAndEveryActiveFault) {
  fakes::set_active_faults({fault(3, 7, 5), fault(8, 9, 3)});
  start();
  EXPECT_THAT(clock_.sleeps(), ElementsAre(60, 1));
  EXPECT_THAT(kinds_sent(), ElementsAre("start-up", raised + "7", raised + "9"));
  EXPECT_THAT(listed_indexes(), ElementsAre(9, 7));
  EXPECT_THAT(
      fakes::log_texts(),
      ElementsAre("EventThread initiated\n", "Cleared 0 event nodes\n", "Removed 0 fault entries\n", "FE End Index 2\n",
                  "Added an entry, Total Fault entries:1\n", "Added an entry, Total Fault entries:2\n"));
  EXPECT_THAT(fakes::log_lines(), Each(Field(&LogLine::priority, LOG_DEBUG)));
}

TEST_F(EventThreadTest, AWarmStartNotifiesNothingButChanges) {
  fakes::set_active_faults({fault(3, 7, 5), fault(8, 9, 3)});
  start_warm();
  EXPECT_THAT(clock_.sleeps(), IsEmpty());
  EXPECT_THAT(kinds_sent(), IsEmpty());
  EXPECT_THAT(listed_indexes(), ElementsAre(9, 7));
  EXPECT_EQ(needToSendTrapFlag, 1);
  tell(fault(3, 7, 0));
  EXPECT_THAT(kinds_sent(), ElementsAre(cleared + "7"));
}

TEST_F(EventThreadTest, LoadsFirstAndThenConnectsAndListens) {
  fakes::set_active_faults({fault(3, 7, 5)});
  start_warm();
  EXPECT_THAT(fakes::fault_engine_calls(), ElementsAre("get_fe_table_count", "get_fe_table 0 1",
                                                       "connect_to_fe_broadcaster", "listen_to_fe_broadcaster"));
  EXPECT_EQ(fakes::connection_before_the_first(), -1);
}

TEST_F(EventThreadTest, AFaultWaitsUntilThereIsMemoryForIt) {
  start_warm();
  fakes::fail_allocations(0);
  clock_.on_sleep([this](unsigned) {
    if (clock_.sleeps().size() == 2) {
      fakes::reset_allocations();
    }
  });
  tell(fault(3, 7, 5));
  EXPECT_THAT(clock_.sleeps(), ElementsAre(1, 1, 1));
  EXPECT_THAT(kinds_sent(), ElementsAre(raised + "7"));
  EXPECT_THAT(listed_indexes(), ElementsAre(7));
  EXPECT_EQ(std::ranges::count(fakes::log_texts(), "memory is short: a fault has to wait\n"), 1);
}

TEST_F(EventThreadTest, AClearThatThereIsNoMemoryForIsNotWaitedFor) {
  start_warm();
  fakes::fail_allocations(0);
  tell(fault(3, 7, 0));
  EXPECT_THAT(clock_.sleeps(), IsEmpty());
}

TEST_F(EventThreadTest, AppliesEachChangeInItsOrder) {
  start_warm();
  tell(fault(3, 7, 5));
  tell(fault(3, 8, 5));
  tell(fault(3, 7, 4));
  tell(fault(3, 8, 0));
  EXPECT_THAT(kinds_sent(), ElementsAre(raised + "7", raised + "8", raised + "7", cleared + "8"));
  EXPECT_EQ(only_row().severity, 4);
  EXPECT_EQ(fakes::careless_listens(), 0);
}

TEST_F(EventThreadTest, TriesToConnectUntilItSucceedsAndTracesEachFailure) {
  fakes::set_debugging(true);
  fakes::refuse_connects({ECONNREFUSED, 0x1F});
  start_warm();
  EXPECT_THAT(fakes::fault_engine_calls(),
              ElementsAre("get_fe_table_count", "get_fe_table 0 0", "connect_to_fe_broadcaster",
                          "connect_to_fe_broadcaster", "connect_to_fe_broadcaster", "listen_to_fe_broadcaster"));
  std::vector<std::string> failures;
  for (const fakes::Trace &trace : fakes::traces()) {
    if (trace.text.starts_with("Connection")) {
      EXPECT_EQ(trace.function, "FE_thread");
      EXPECT_EQ(trace.source, "event_thread");
      failures.push_back(trace.text);
    }
  }
  EXPECT_THAT(failures, ElementsAre("Connection to FE broadcaster failed 6f, Reconnecting\n",
                                    "Connection to FE broadcaster failed 1f, Reconnecting\n"));
  EXPECT_THAT(clock_.sleeps(), IsEmpty()) << "there is no delay between tries";
}

TEST_F(EventThreadTest, ConnectFailuresAreSilentWhileDebuggingIsOff) {
  fakes::refuse_connects({ECONNREFUSED});
  start_warm();
  EXPECT_THAT(fakes::debug_messages(), IsEmpty());
  EXPECT_THAT(fakes::log_texts(), Each(Not(HasSubstr("Connection"))));
}

TEST_F(EventThreadTest, AClosedBroadcasterIsReconnectedAndFaultsReloaded) {
  fakes::set_active_faults({fault(3, 7, 5), fault(3, 8, 5)});
  start_warm();
  tell(fault(8, 9, 3));
  fakes::reset_net_snmp();
  fakes::set_debugging(true);
  fakes::set_active_faults({fault(3, 8, 5), fault(11, 20, 2)});
  fakes::refuse_connects({ECONNREFUSED, ECONNREFUSED});
  const std::size_t calls_before = fakes::fault_engine_calls().size();

  tell_result(0, 0);
  EXPECT_FALSE(fakes::connection_is_open(1));
  EXPECT_TRUE(fakes::connection_is_open(2));
  EXPECT_EQ(fakes::careless_listens(), 0);
  auto calls = fakes::fault_engine_calls();
  calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(calls_before));
  EXPECT_THAT(calls, ElementsAre("connect_to_fe_broadcaster", "connect_to_fe_broadcaster", "connect_to_fe_broadcaster",
                                 "get_fe_table_count", "get_fe_table 0 2", "listen_to_fe_broadcaster"));
  EXPECT_THAT(fakes::log_texts(),
              ElementsAre("Cleared 3 event nodes\n", "Removed 3 fault entries\n", "FE End Index 2\n",
                          "Added an entry, Total Fault entries:1\n", "Added an entry, Total Fault entries:2\n"));
  EXPECT_THAT(kinds_sent(), ElementsAre(raised + "8", raised + "20")) << "what is active is notified again";
  EXPECT_THAT(listed_indexes(), ElementsAre(20, 8));
  EXPECT_THAT(fakes::trace_texts(), Each(Not(HasSubstr("Reconnecting")))) << "only the first connection is traced";
}

// The engine counts more faults than it then has, as often as `times`.
void count_too_many(int times) {
  fakes::set_active_fault_count(3);
  fakes::on_log([left = std::make_shared<int>(times)](const LogLine &line) {
    if (line.text == "Reached end of SEL info from FE\n" && --*left == 0) {
      fakes::set_active_fault_count(std::nullopt);
    }
  });
}

TEST_F(EventThreadTest, AFirstLoadThatEndsEarlyIsDoneAgainAtOnce) {
  fakes::set_active_faults({fault(3, 7, 5), fault(8, 9, 3)});
  count_too_many(1);
  start_warm();
  EXPECT_THAT(listed_indexes(), ElementsAre(9, 7));
  EXPECT_THAT(clock_.sleeps(), IsEmpty());
}

TEST_F(EventThreadTest, AReloadThatEndsEarlyIsDoneAgain) {
  fakes::set_active_faults({fault(3, 7, 5), fault(8, 9, 3)});
  start_warm();
  fakes::reset_net_snmp();
  count_too_many(3);
  tell_result(0, 0);
  EXPECT_THAT(listed_indexes(), ElementsAre(9, 7));
  EXPECT_THAT(kinds_sent(), ElementsAre(raised + "7", raised + "9"));
  EXPECT_THAT(clock_.sleeps(), ElementsAre(1, 1));
}

TEST_F(EventThreadTest, AnEngineWhoseListAlwaysEndsEarlyIsBelieved) {
  fakes::set_active_faults({fault(3, 7, 5)});
  count_too_many(1000);
  start_warm();
  EXPECT_THAT(listed_indexes(), IsEmpty());
  EXPECT_THAT(clock_.sleeps(), ElementsAreArray(std::vector<unsigned>(8, 1)));
  EXPECT_THAT(fakes::log_texts(), Contains("Reached end of SEL info from FE\n").Times(10));
  tell(fault(3, 8, 5));
  EXPECT_THAT(listed_indexes(), ElementsAre(8));
}

TEST_F(EventThreadTest, AListThatHasBecomeEmptyIsNotReadAgain) {
  fakes::set_active_fault_count(1);
  fakes::on_log([](const LogLine &line) {
    if (line.text == "Reached end of SEL info from FE\n") {
      fakes::set_active_fault_count(0);
    }
  });
  start_warm();
  EXPECT_THAT(fakes::log_texts(), Contains("Reached end of SEL info from FE\n").Times(1));
  EXPECT_THAT(fakes::fault_engine_calls(), Not(Contains("get_fe_table 0 0")));
}

TEST_F(EventThreadTest, AWholeLoadIsReportedWithItsFaults) {
  const fakes::RecordedReports reports;
  fakes::set_active_faults({fault(3, 7, 5), fault(8, 9, 3)});
  start_warm();
  EXPECT_THAT(reports.take(),
              ElementsAre("a load begins", "fault 7 has severity 5", "fault 9 has severity 3", "a whole load ends"));
  tell(fault(3, 7, 0));
  tell_result(0, 0);
  EXPECT_THAT(reports.take(),
              ElementsAre("fault 7 has severity 0, notified", "a load begins", "fault 7 has severity 5, notified",
                          "fault 9 has severity 3, notified", "a whole load ends"));
}

TEST_F(EventThreadTest, ALoadOfTriesIsReportedAsOne) {
  const fakes::RecordedReports reports;
  fakes::set_active_faults({fault(3, 7, 5)});
  count_too_many(3);
  start_warm();
  EXPECT_THAT(reports.take(), ElementsAre("a load begins", "fault 7 has severity 5", "a whole load ends"));
}

TEST_F(EventThreadTest, AListThatIsNotReadIsNoWholeLoad) {
  const fakes::RecordedReports reports;
  fakes::set_active_faults({fault(3, 7, 5)});
  count_too_many(1000);
  start_warm();
  EXPECT_THAT(reports.take(), ElementsAre("a load begins", "a load ends early"));
}

TEST_F(EventThreadTest, TheConnectionIsClosedWhenTheThreadEnds) {
  start_warm();
  EXPECT_TRUE(fakes::connection_is_open(1));
  end();
  EXPECT_FALSE(fakes::connection_is_open(1));
}

TEST_F(EventThreadTest, AnErrorWhileListeningIsListenedOver) {
  start_warm();
  tell_result(-1, EINTR);
  tell_result(0, EINTR);
  tell_result(-1, ECONNRESET);
  tell_result(-7, 0);
  tell(fault(3, 7, 5));
  EXPECT_THAT(kinds_sent(), ElementsAre(raised + "7"));
  EXPECT_THAT(fakes::fault_engine_calls(), testing::Contains("connect_to_fe_broadcaster").Times(1));
  EXPECT_TRUE(fakes::connection_is_open(1));
}

TEST_F(EventThreadTest, ACloseBehindAnInterruptedCallIsStillAClose) {
  start_warm();
  tell_result(-1, EINTR);  // errno keeps its value until a call sets it
  tell_result(0, 0);
  EXPECT_THAT(fakes::fault_engine_calls(), testing::Contains("connect_to_fe_broadcaster").Times(2));
}

TEST_F(EventThreadTest, AStoppedThreadEndsAfterTheNextRecord) {
  start_warm();
  tell(fault(3, 7, 5));
  fakes::reset_net_snmp();
  stop_FE_thread();
  fakes::broadcast(fault(3, 8, 5));
  fakes::broadcast(fault(3, 9, 5));
  running_ = false;
  EXPECT_EQ(join_FE_thread(), 1);
  EXPECT_THAT(kinds_sent(), ElementsAre(raised + "8"));
  EXPECT_THAT(fakes::log_texts(), ElementsAre("Stopping EventThread\n", "Added an entry, Total Fault entries:2\n",
                                              "Removed 2 fault entries\n", "EventThread exited\n"));
  EXPECT_EQ(tavoFaultTable_head, nullptr);
  EXPECT_EQ(fault_database, nullptr);
}

TEST_F(EventThreadTest, CreatesAJoinableThread) {
  fakes::start_no_threads();
  fakes::set_debugging(true);
  EXPECT_EQ(create_FE_thread(), 0);
  ASSERT_THAT(fakes::created_threads(), SizeIs(1));
  EXPECT_EQ(fakes::created_threads()[0].start_routine, FE_thread);
  EXPECT_EQ(fakes::created_threads()[0].detach_state, PTHREAD_CREATE_JOINABLE);
  EXPECT_EQ(fakes::created_threads()[0].argument, nullptr);
  ASSERT_THAT(fakes::traces(), SizeIs(1));
  EXPECT_EQ(fakes::traces()[0].function, "create_FE_thread");
  EXPECT_EQ(fakes::traces()[0].source, "event_thread");
  EXPECT_EQ(fakes::traces()[0].text, "create_FE_thread:Creating event thread\n");
  ASSERT_NE(fault_database, nullptr);
  EXPECT_THAT(std::vector(fault_database, fault_database + fault_bucket_count), Each(nullptr));
  join_FE_thread();
}

TEST_F(EventThreadTest, WithoutMemoryForTheDatabaseThereIsNoThread) {
  const fakes::RecordedReports reports;
  fakes::fail_allocations(0, 1);
  EXPECT_EQ(create_FE_thread(), -1);
  EXPECT_THAT(fakes::log_lines(), ElementsAre(LogLine{LOG_DEBUG, "CREATE_EVENT_THREAD:Failed memory allocation\n"}));
  EXPECT_THAT(fakes::created_threads(), IsEmpty());
  EXPECT_THAT(reports.take(), ElementsAre("create_FE_thread: Cannot allocate memory"));
}

TEST_F(EventThreadTest, AThreadThatCannotBeCreatedLeavesNoDatabase) {
  fakes::fail_thread_creation(EAGAIN);
  EXPECT_EQ(create_FE_thread(), -1);
  EXPECT_THAT(fakes::log_lines(), ElementsAre(LogLine{LOG_DEBUG, "!!! unable to create event_thread thread !!!!\n"}));
  EXPECT_EQ(fault_database, nullptr);
}

TEST_F(EventThreadTest, AFailedJoinIsLoggedAndTheRestIsFreed) {
  fakes::start_no_threads();
  create_FE_thread();
  populate_fault_table_from_fe(fault(3, 7, 5).data());
  fakes::reset_net_snmp();
  fakes::fail_thread_join(EINVAL);
  EXPECT_EQ(join_FE_thread(), 1);
  EXPECT_THAT(fakes::log_texts(), ElementsAre("!!! Unable to join event thread !!!!\n", "Removed 1 fault entries\n",
                                              "EventThread exited\n"));
  EXPECT_EQ(fault_database, nullptr);
  EXPECT_EQ(tavoFaultTable_head, nullptr);
}

TEST_F(EventThreadTest, AJoinDestroysAttributesBeforeItFreesTheDatabase) {
  fakes::start_no_threads();
  create_FE_thread();
  const fakes::Destructions destructions;
  std::vector<std::pair<std::string, std::size_t>> destroyed_at;
  fakes::on_log([&](const LogLine &line) { destroyed_at.emplace_back(line.text, destructions.so_far().size()); });
  join_FE_thread();
  fakes::reset_net_snmp();
  EXPECT_THAT(destroyed_at,
              ElementsAre(std::pair("Removed 0 fault entries\n", 1U), std::pair("EventThread exited\n", 1U)));
}

TEST_F(EventThreadTest, TheHooksDoNothing) {
  EXPECT_EQ(FE_poll(42), 42);
  EXPECT_EQ(FE_poll(-1), -1);
  const FaultRecord record = fault(3, 7, 5);
  PrintDataFromFE(record.data());
  PrintDataFromFE(nullptr);
  EXPECT_EQ(record.octets, fault(3, 7, 5).octets);
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

}  // namespace
}  // namespace tavo
