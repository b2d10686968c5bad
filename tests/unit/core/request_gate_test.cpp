// Requests that meet a busy table: the agent sets them aside, serves others, and answers them when the lock is free.
#include "core/request_gate.h"

#include <gmock/gmock.h>
#include <net-snmp/agent/agent_callbacks.h>
#include <net-snmp/library/fd_event_manager.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <future>
#include <optional>
#include <thread>
#include <vector>

#include "tests/fakes/allocation.h"
#include "tests/fakes/daemon.h"
#include "tests/fixtures/lock_holder.h"
#include "tests/fixtures/sample_table.h"
#include "tests/fixtures/sample_table_fixture.h"
#include "tests/harness/eventually.h"
#include "tests/harness/manager.h"
#include "tests/harness/own_process.h"
#include "tests/harness/threaded.h"

extern "C" {
int handle_snmp_packet(int operation, netsnmp_session *session, int request_id, netsnmp_pdu *pdu, void *magic);
extern netsnmp_session *agentx_callback_sess;
}

namespace tavo {
namespace {

using fakes::add_row;
using fakes::Answer;
using fakes::cell;
using fakes::ev_root;
using fakes::ev_sample;
using fakes::integer;
using fakes::LockHolder;
using fakes::Oid;
using fakes::PendingResponse;
using fakes::subagent_root;
using fakes::subagent_sample;
using fakes::text;
using testing::ElementsAre;
using testing::IsEmpty;

Oid root_of(std::span<const oid> root) {
  return {root.begin(), root.end()};
}

class RequestGateTest : public fakes::SampleTableTest {
 protected:
  RequestGateTest() {
    ev_sample.table.register_with_agent();
    subagent_sample.table.register_with_agent();
    for (std::uint32_t index = 1; index <= 3; ++index) {
      add_row(ev_sample, index, static_cast<int>(index));
      add_row(subagent_sample, index, static_cast<int>(10 * index));
    }
    fakes::get({cell(ev_root, 5, 1)});  // starts the agent
  }
  ~RequestGateTest() override {
    EXPECT_EQ(RequestGate::instance().waiting(), 0U);
    EXPECT_FALSE(fakes::is_locked(ev_sample));
    EXPECT_FALSE(fakes::is_locked(subagent_sample));
    RequestGate::instance().set_answer_limit(std::chrono::milliseconds(0));
    unregister_mib(const_cast<oid *>(subagent_root.data()), subagent_root.size());
  }

  // The lock is free. A reservation would keep a thread out for a second.
  static void expect_no_reservation(ListLock &lock) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));  // too old to be overtaken
    const auto begin = std::chrono::steady_clock::now();
    { const LockHolder next(lock); }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(800));
  }

  ListLock &ev_lock_ = ev_sample.table.lock();
  ListLock &subagent_lock_ = subagent_sample.table.lock();
};

TEST_F(RequestGateTest, AWaitingGetDelaysNoOther) {
  LockHolder holder(ev_lock_);
  const PendingResponse waiting = fakes::send_get({cell(ev_root, 5, 2)});
  for (int i = 0; i < 20; ++i) {
    EXPECT_FALSE(waiting.arrived());
    EXPECT_THAT(fakes::get({cell(subagent_root, 5, 2)}).answers,
                ElementsAre(Answer{cell(subagent_root, 5, 2), integer(20)}));
  }
  EXPECT_EQ(RequestGate::instance().waiting(), 1U);
  holder.release();
  const auto response = waiting.wait();
  EXPECT_EQ(response.error_status, SNMP_ERR_NOERROR);
  EXPECT_THAT(response.answers, ElementsAre(Answer{cell(ev_root, 5, 2), integer(2)}));
}

TEST_F(RequestGateTest, WhoWaitsIsReportedOnce) {
  const fakes::RecordedReports reports;
  LockHolder ev(ev_lock_);
  LockHolder subagent(subagent_lock_);
  const PendingResponse waiting = fakes::send_get_next({cell(ev_root, 11, 3), cell(ev_root, 5, 1)});
  EXPECT_FALSE(waiting.arrived());
  EXPECT_THAT(reports.take(), ElementsAre("a request is set aside"));
  ev.release();
  EXPECT_FALSE(waiting.arrived());
  EXPECT_THAT(reports.take(), IsEmpty()) << "it waits for the next table";
  subagent.release();
  waiting.wait();
  EXPECT_THAT(reports.take(), ElementsAre("a request has ended"));
  fakes::get({cell(ev_root, 5, 2)});
  EXPECT_THAT(reports.take(), IsEmpty());
}

TEST_F(RequestGateTest, AnIdleAgentWakesForTheWaitingGet) {
  LockHolder holder(ev_lock_);
  const PendingResponse waiting = fakes::send_get({cell(ev_root, 5, 2)});
  EXPECT_FALSE(waiting.arrived());
  std::thread later([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    holder.release();
  });
  EXPECT_THAT(waiting.wait().answers, ElementsAre(Answer{cell(ev_root, 5, 2), integer(2)}));
  later.join();
}

TEST_F(RequestGateTest, AGetOfSeveralTablesWaitsForTheLast) {
  LockHolder ev(ev_lock_);
  LockHolder subagent(subagent_lock_);
  const PendingResponse waiting = fakes::send_get({cell(subagent_root, 5, 1), cell(ev_root, 5, 1), cell(ev_root, 2, 9),
                                                   cell(ev_root, 12, 1), cell(subagent_root, 2, 3)});
  EXPECT_FALSE(waiting.arrived());
  ev.release();
  EXPECT_FALSE(waiting.arrived());
  subagent.release();
  const auto response = waiting.wait();
  EXPECT_EQ(response.error_status, SNMP_ERR_NOERROR);
  EXPECT_THAT(response.answers,
              ElementsAre(Answer{cell(subagent_root, 5, 1), integer(10)}, Answer{cell(ev_root, 5, 1), integer(1)},
                          Answer{cell(ev_root, 2, 9), fakes::no_such_instance},
                          Answer{cell(ev_root, 12, 1), fakes::no_such_object},
                          Answer{cell(subagent_root, 2, 3), text("row-3")}));
}

TEST_F(RequestGateTest, AGetNextGoesOnIntoABusyTable) {
  LockHolder ev(ev_lock_);
  LockHolder subagent(subagent_lock_);
  const PendingResponse waiting = fakes::send_get_next({cell(ev_root, 11, 3), cell(ev_root, 5, 1)});
  EXPECT_FALSE(waiting.arrived());
  ev.release();
  EXPECT_FALSE(waiting.arrived());
  subagent.release();
  EXPECT_THAT(waiting.wait().answers,
              ElementsAre(Answer{cell(subagent_root, 2, 1), text("row-1")}, Answer{cell(ev_root, 5, 2), integer(2)}));
}

TEST_F(RequestGateTest, ABulkWaitsForTheTableBehindAFreeOne) {
  const auto idle = fakes::send_get_bulk({cell(ev_root, 11, 1), cell(subagent_root, 5, 1)}, 6).wait();
  LockHolder subagent(subagent_lock_);
  const PendingResponse waiting = fakes::send_get_bulk({cell(ev_root, 11, 1), cell(subagent_root, 5, 1)}, 6);
  EXPECT_FALSE(waiting.arrived());
  subagent.release();
  EXPECT_EQ(waiting.wait().answers, idle.answers);
}

// As an AgentX master asks for what follows the start of a range, or the start itself.
PendingResponse send_inclusive(const Oid &start, const Oid &other = {}) {
  netsnmp_pdu *pdu = snmp_pdu_create(SNMP_MSG_GETNEXT);
  pdu->version = SNMP_VERSION_2c;
  pdu->flags |= UCD_MSG_FLAG_ALWAYS_IN_VIEW;
  const oid end[] = {1, 3, 6, 1, 4, 1, 61454};
  snmp_pdu_add_variable(pdu, start.data(), start.size(), ASN_PRIV_INCL_RANGE, end, sizeof end);
  if (!other.empty()) {
    snmp_pdu_add_variable(pdu, other.data(), other.size(), ASN_PRIV_EXCL_RANGE, end, sizeof end);
  }
  return fakes::send_pdu(pdu);
}

TEST_F(RequestGateTest, AnInclusiveRangeStartWaitsAsGetNext) {
  LockHolder holder(ev_lock_);
  const PendingResponse waiting = send_inclusive(root_of(ev_root), cell(ev_root, 5, 1));
  EXPECT_FALSE(waiting.arrived());
  EXPECT_EQ(fakes::get({cell(subagent_root, 5, 2)}).answers.at(0).value, integer(20));
  holder.release();
  EXPECT_THAT(waiting.wait().answers,
              ElementsAre(Answer{cell(ev_root, 2, 1), text("row-1")}, Answer{cell(ev_root, 5, 2), integer(2)}));
}

TEST_F(RequestGateTest, AnInclusiveInstanceIsWaitedForInPlace) {
  LockHolder holder(ev_lock_);
  std::thread later([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    holder.release();
  });
  EXPECT_THAT(send_inclusive(cell(ev_root, 5, 2)).wait().answers, ElementsAre(Answer{cell(ev_root, 5, 2), integer(2)}));
  later.join();
  EXPECT_THAT(send_inclusive(cell(ev_root, 5, 0)).wait().answers, ElementsAre(Answer{cell(ev_root, 5, 1), integer(1)}));
}

TEST_F(RequestGateTest, ASecondWaitOfATransactionIsNoted) {
  // Both have transaction id 0. One waits for a second table when the lock of the first is free.
  LockHolder ev(ev_lock_);
  LockHolder subagent(subagent_lock_);
  const PendingResponse there = fakes::send_get_next({cell(subagent_root, 5, 1)});
  EXPECT_FALSE(there.arrived());
  const PendingResponse goes_on = fakes::send_get_next({cell(ev_root, 11, 3)});
  EXPECT_FALSE(goes_on.arrived());
  ev.release();
  EXPECT_FALSE(goes_on.arrived());
  subagent.release();
  EXPECT_EQ(there.wait().answers.at(0).value, integer(20));
  EXPECT_EQ(goes_on.wait().answers.at(0).name, cell(subagent_root, 2, 1));
}

TEST_F(RequestGateTest, ManyWaitAndAllAreAnswered) {
  LockHolder holder(ev_lock_);
  std::vector<PendingResponse> waiting;
  for (oid i = 0; i < 100; ++i) {
    waiting.push_back(fakes::send_get({cell(ev_root, 5, 1 + i % 3)}));
    EXPECT_FALSE(waiting.back().arrived());
  }
  EXPECT_EQ(RequestGate::instance().waiting(), 100U);
  holder.release();
  for (oid i = 0; i < 100; ++i) {
    EXPECT_EQ(waiting.at(i).wait().answers.at(0).value, integer(static_cast<int>(1 + i % 3)));
  }
}

TEST_F(RequestGateTest, EightGoThroughInOneTurn) {
  LockHolder holder(ev_lock_);
  std::vector<PendingResponse> waiting;
  for (int i = 0; i < 20; ++i) {
    waiting.push_back(fakes::send_get({cell(ev_root, 5, 1)}));
    EXPECT_FALSE(waiting.back().arrived());
  }
  holder.release();
  for (const std::size_t left : {12U, 4U, 0U}) {
    const std::size_t before = RequestGate::instance().waiting();
    while (RequestGate::instance().waiting() == before) {
      agent_check_and_process(1);
    }
    ASSERT_EQ(RequestGate::instance().waiting(), left) << "others get their turn in between";
  }
  for (const PendingResponse &response : waiting) {
    EXPECT_EQ(response.wait().error_status, SNMP_ERR_NOERROR);
  }
}

TEST_F(RequestGateTest, MoreThanTheBoundGetGenErrAtOnce) {
  LockHolder holder(ev_lock_);
  std::vector<PendingResponse> waiting;
  for (std::size_t i = 0; i < RequestGate::most_waiting; ++i) {
    waiting.push_back(fakes::send_get({cell(ev_root, 5, 1)}));
    waiting.back().arrived();
  }
  for (const auto &refused : {fakes::send_get({cell(ev_root, 5, 1)}), fakes::send_get_next({root_of(ev_root)}),
                              fakes::send_get_bulk({root_of(ev_root)}, 5)}) {
    EXPECT_EQ(refused.wait().error_status, SNMP_ERR_GENERR);
  }
  EXPECT_EQ(RequestGate::instance().waiting(), RequestGate::most_waiting);
  {
    // Refused at a lock that nobody waits for, it leaves no place in its queue.
    LockHolder other(subagent_lock_);
    EXPECT_EQ(fakes::get({cell(subagent_root, 5, 1)}).error_status, SNMP_ERR_GENERR);
  }
  expect_no_reservation(subagent_lock_);
  EXPECT_EQ(fakes::get({cell(subagent_root, 5, 1)}).error_status, SNMP_ERR_NOERROR);
  holder.release();
  for (const PendingResponse &response : waiting) {
    EXPECT_EQ(response.wait().error_status, SNMP_ERR_NOERROR);
  }
}

TEST_F(RequestGateTest, AtTheBoundWhoHasWaitedMayWaitAgain) {
  LockHolder ev(ev_lock_);
  LockHolder subagent(subagent_lock_);
  std::vector<PendingResponse> waiting;
  for (std::size_t i = 0; i < RequestGate::most_waiting; ++i) {
    waiting.push_back(fakes::send_get_next({cell(ev_root, 11, 3)}));
    waiting.back().arrived();
  }
  ev.release();
  for (std::size_t i = 0; i < RequestGate::most_waiting; ++i) {
    // Newcomers must not take the place of one that goes on into the next table.
    fakes::send_get({cell(subagent_root, 5, 1)}).arrived();
  }
  subagent.release();
  for (const PendingResponse &response : waiting) {
    EXPECT_EQ(response.wait().error_status, SNMP_ERR_NOERROR);
    EXPECT_EQ(response.wait().answers.at(0).name, cell(subagent_root, 2, 1));
  }
}

// Numbered as AgentX numbers its PDUs: a copy has the transaction id of the first.
PendingResponse send_numbered(const Oid &name, int transaction) {
  netsnmp_pdu *pdu = snmp_pdu_create(SNMP_MSG_GET);
  pdu->version = SNMP_VERSION_2c;
  pdu->flags |= UCD_MSG_FLAG_ALWAYS_IN_VIEW;
  pdu->transid = transaction;
  snmp_add_null_var(pdu, name.data(), name.size());
  return fakes::send_pdu(pdu);
}

TEST_F(RequestGateTest, OfARepeatedRequestTheNewestIsAnswered) {
  LockHolder holder(ev_lock_);
  const PendingResponse first = send_numbered(cell(ev_root, 5, 1), 77);
  EXPECT_FALSE(first.arrived());
  const PendingResponse other_cell = send_numbered(cell(ev_root, 5, 2), 77);
  EXPECT_FALSE(other_cell.arrived());
  const PendingResponse other_transaction = send_numbered(cell(ev_root, 5, 1), 78);
  EXPECT_FALSE(other_transaction.arrived());
  const PendingResponse copy = send_numbered(cell(ev_root, 5, 1), 77);
  EXPECT_FALSE(copy.arrived());
  EXPECT_EQ(RequestGate::instance().waiting(), 3U);
  holder.release();
  EXPECT_EQ(copy.wait().answers.at(0).value, integer(1));
  EXPECT_EQ(other_cell.wait().answers.at(0).value, integer(2));
  EXPECT_EQ(other_transaction.wait().answers.at(0).value, integer(1));
  EXPECT_FALSE(first.arrived());
}

TEST_F(RequestGateTest, AtTheBoundARepeatedRequestIsTaken) {
  LockHolder holder(ev_lock_);
  const PendingResponse first = send_numbered(cell(ev_root, 5, 1), 77);
  EXPECT_FALSE(first.arrived());
  std::vector<PendingResponse> others;
  while (RequestGate::instance().waiting() < RequestGate::most_waiting) {
    others.push_back(fakes::send_get({cell(ev_root, 5, 1)}));
    others.back().arrived();
  }
  const PendingResponse copy = send_numbered(cell(ev_root, 5, 1), 77);
  EXPECT_FALSE(copy.arrived());
  holder.release();
  EXPECT_EQ(copy.wait().error_status, SNMP_ERR_NOERROR);
  for (const PendingResponse &response : others) {
    EXPECT_EQ(response.wait().error_status, SNMP_ERR_NOERROR);
  }
}

class ShortMemoryTest : public RequestGateTest {
 protected:
  // Asks for a row whose table is busy. The allocation after `successes` fails, and then the lock is free: the request
  // has a place in the lock's queue by then, and does not need it.
  void ask(int successes, bool is_repeated) {
    SCOPED_TRACE(testing::Message() << (is_repeated ? "a copy" : "the first") << ", after " << successes);
    const fakes::RecordedReports reports;
    LockHolder holder(ev_lock_);
    std::optional<PendingResponse> earlier;
    if (is_repeated) {
      earlier = send_numbered(cell(ev_root, 5, 2), 77);
      EXPECT_FALSE(earlier->arrived());
    }
    fakes::on_next_failed_allocation([&holder] { holder.release(); });
    fakes::fail_allocations(successes, 1);
    const PendingResponse request = send_numbered(cell(ev_root, 5, 2), 77);
    EXPECT_TRUE(request.arrived());
    EXPECT_EQ(fakes::failed_allocations(), 1);
    fakes::reset_allocations();
    holder.release();
    const auto response = request.wait();
    EXPECT_EQ(response.error_status, SNMP_ERR_NOERROR);
    EXPECT_THAT(response.answers, ElementsAre(Answer{cell(ev_root, 5, 2), integer(2)}));
    if (earlier) {
      // Kept if no memory was there to drop it.
      EXPECT_EQ(earlier->arrived(), successes == 0);
    }
    const auto changes = reports.take();
    EXPECT_EQ(std::ranges::count(changes, "a request is set aside"),
              std::ranges::count(changes, "a request has ended"));
    EXPECT_EQ(RequestGate::instance().waiting(), 0U);
    expect_no_reservation(ev_lock_);
  }
};

// In this order, since an array that has grown needs no memory.
TEST_F(ShortMemoryTest, ARequestThatCannotWaitIsAnswered) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  ask(0, false);  // the request's note
  ask(1, false);  // its groups
  ask(2, false);  // the requests that wait
  ask(0, true);   // those that are dropped for a copy
  ask(1, true);   // the copy's note
  ask(1, true);   // its groups, now that a request has been dropped
}

TEST_F(ShortMemoryTest, WhoCouldNotWaitWaitsForTheNextTable) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  LockHolder ev(ev_lock_);
  LockHolder subagent(subagent_lock_);
  fakes::on_next_failed_allocation([&ev] { ev.release(); });
  fakes::fail_allocations(2, 1);
  const PendingResponse request = fakes::send_get_next({cell(ev_root, 11, 3)});
  EXPECT_FALSE(request.arrived());
  EXPECT_EQ(fakes::failed_allocations(), 1);
  EXPECT_EQ(RequestGate::instance().waiting(), 1U);
  subagent.release();
  ASSERT_TRUE(eventually([&] { return request.arrived(); }, std::chrono::seconds(5)));
  EXPECT_THAT(request.wait().answers, ElementsAre(Answer{cell(subagent_root, 2, 1), text("row-1")}));
}

// Lets every request through access control, as a community with write access does.
int allow(int, int, void *check, void *) {
  static_cast<view_parameters *>(check)->errorcode = 0;
  return SNMPERR_SUCCESS;
}

PendingResponse send_checked_set(const Oid &name) {
  const long value = 1;
  netsnmp_pdu *pdu = snmp_pdu_create(SNMP_MSG_SET);
  pdu->version = SNMP_VERSION_2c;
  snmp_pdu_add_variable(pdu, name.data(), name.size(), ASN_INTEGER, &value, sizeof value);
  return fakes::send_pdu(pdu);
}

TEST_F(RequestGateTest, ASetEndsTheWaitOfTheOthers) {
  snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_ACM_CHECK_INITIAL, allow, nullptr);
  LockHolder holder(ev_lock_);
  const PendingResponse get = fakes::send_get({cell(ev_root, 5, 1), cell(subagent_root, 5, 1)});
  const PendingResponse get_next = fakes::send_get_next({cell(ev_root, 5, 1), cell(subagent_root, 5, 1)});
  const PendingResponse bulk = fakes::send_get_bulk({cell(subagent_root, 11, 1), cell(ev_root, 5, 1)}, 20);
  EXPECT_FALSE(get.arrived());
  EXPECT_FALSE(get_next.arrived());
  EXPECT_FALSE(bulk.arrived());
  EXPECT_NE(send_checked_set(cell(subagent_root, 5, 1)).wait().error_status, SNMP_ERR_NOERROR);
  EXPECT_EQ(fakes::get({cell(subagent_root, 5, 2)}).error_status, SNMP_ERR_NOERROR);
  EXPECT_EQ(get.wait().error_status, SNMP_ERR_GENERR);
  EXPECT_EQ(get_next.wait().error_status, SNMP_ERR_GENERR);
  EXPECT_EQ(bulk.wait().error_status, SNMP_ERR_GENERR);
  EXPECT_EQ(RequestGate::instance().waiting(), 0U);
  snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_ACM_CHECK_INITIAL, allow, nullptr, 1);
}

TEST_F(RequestGateTest, ASetThatAccessControlRefusesEndsNoWait) {
  LockHolder holder(ev_lock_);
  const PendingResponse get = fakes::send_get({cell(ev_root, 5, 1)});
  EXPECT_FALSE(get.arrived());
  const PendingResponse refused = send_checked_set(cell(subagent_root, 5, 1));
  EXPECT_FALSE(refused.arrived()) << "net-snmp drops it";
  EXPECT_FALSE(get.arrived());
  holder.release();
  EXPECT_EQ(get.wait().error_status, SNMP_ERR_NOERROR);
}

TEST_F(RequestGateTest, DeRegistrationEndsTheWaitOfAll) {
  // The first varbind of each request has left the table that goes, and would look for that table's successor.
  LockHolder holder(subagent_lock_);
  const PendingResponse get_next = fakes::send_get_next({cell(ev_root, 11, 3), cell(subagent_root, 5, 1)});
  const PendingResponse get = fakes::send_get({cell(ev_root, 5, 1), cell(subagent_root, 5, 1)});
  EXPECT_FALSE(get_next.arrived());
  EXPECT_FALSE(get.arrived());
  ev_sample.table.de_register();
  EXPECT_EQ(RequestGate::instance().waiting(), 0U);
  EXPECT_EQ(get_next.wait().error_status, SNMP_ERR_GENERR);
  EXPECT_EQ(get.wait().error_status, SNMP_ERR_GENERR);
}

TEST_F(RequestGateTest, TheEndOfAnAgentXSessionEndsTheWaitOfAll) {
  LockHolder holder(ev_lock_);
  const PendingResponse get = fakes::send_get({cell(ev_root, 5, 1)});
  const PendingResponse get_next = fakes::send_get_next({cell(ev_root, 5, 1)});
  EXPECT_FALSE(get.arrived());
  EXPECT_FALSE(get_next.arrived());
  snmp_call_callbacks(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, nullptr);
  EXPECT_EQ(RequestGate::instance().waiting(), 0U);
  EXPECT_EQ(get.wait().error_status, SNMP_ERR_GENERR);
  EXPECT_EQ(get_next.wait().error_status, SNMP_ERR_GENERR);
}

TEST_F(RequestGateTest, DeRegistrationOfTheBusyTableWaitsForIt) {
  LockHolder holder(ev_lock_);
  const PendingResponse get = fakes::send_get({cell(ev_root, 5, 1)});
  EXPECT_FALSE(get.arrived());
  std::thread later([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    holder.release();
  });
  EXPECT_EQ(ev_sample.table.de_register(), 0);
  later.join();
  EXPECT_EQ(get.wait().error_status, SNMP_ERR_GENERR);
}

// As the agent's session with one TCP client.
netsnmp_session *open_client_session() {
  netsnmp_session session;
  snmp_sess_init(&session);
  session.version = SNMP_VERSION_2c;
  session.peername = const_cast<char *>("udp:127.0.0.1:9");
  session.community = reinterpret_cast<u_char *>(const_cast<char *>("public"));
  session.community_len = 6;
  return snmp_open(&session);
}

void send_from(netsnmp_session *client, const Oid &name) {
  netsnmp_pdu *pdu = snmp_pdu_create(SNMP_MSG_GET);
  pdu->version = SNMP_VERSION_2c;
  pdu->flags |= UCD_MSG_FLAG_ALWAYS_IN_VIEW;
  snmp_add_null_var(pdu, name.data(), name.size());
  handle_snmp_packet(NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE, client, 1, pdu, nullptr);
  snmp_free_pdu(pdu);
}

TEST_F(RequestGateTest, AClientThatHasLeftIsNotAnswered) {
  LockHolder holder(ev_lock_);
  std::vector<netsnmp_session *> clients = {open_client_session(), open_client_session()};
  for (netsnmp_session *client : clients) {
    ASSERT_NE(client, nullptr);
    send_from(client, cell(ev_root, 5, 1));
  }
  EXPECT_EQ(RequestGate::instance().waiting(), 2U);
  for (netsnmp_session *client : clients) {
    snmp_close(client);
  }
  const PendingResponse stays = fakes::send_get({cell(ev_root, 5, 2)});
  EXPECT_FALSE(stays.arrived());
  const u_int sent = snmp_get_statistic(STAT_SNMPOUTGETRESPONSES);
  holder.release();
  EXPECT_EQ(stays.wait().answers.at(0).value, integer(2));
  EXPECT_EQ(snmp_get_statistic(STAT_SNMPOUTGETRESPONSES), sent + 1);
}

TEST_F(RequestGateTest, AClientThatHasLeftLeavesTheQueue) {
  LockHolder holder(ev_lock_);
  netsnmp_session *const client = open_client_session();
  ASSERT_NE(client, nullptr);
  send_from(client, cell(ev_root, 5, 1));
  EXPECT_EQ(RequestGate::instance().waiting(), 1U);
  snmp_close(client);
  // The agent looks after a request of another table, and sees that the client has left.
  LockHolder other(subagent_lock_);
  const PendingResponse elsewhere = fakes::send_get({cell(subagent_root, 5, 1)});
  EXPECT_FALSE(elsewhere.arrived());
  other.release();
  elsewhere.wait();
  EXPECT_EQ(RequestGate::instance().waiting(), 0U);
  holder.release();
  expect_no_reservation(ev_lock_);
}

TEST_F(RequestGateTest, AnAnswerLimitEndsTheWaitWithGenErr) {
  RequestGate::instance().set_answer_limit(std::chrono::milliseconds(100));
  LockHolder holder(ev_lock_);
  const auto begin = std::chrono::steady_clock::now();
  const PendingResponse get = fakes::send_get({cell(ev_root, 5, 1)});
  const PendingResponse get_next = fakes::send_get_next({root_of(ev_root)});
  EXPECT_EQ(get.wait().error_status, SNMP_ERR_GENERR);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(100));
  EXPECT_EQ(get_next.wait().error_status, SNMP_ERR_GENERR);
}

TEST_F(RequestGateTest, AnAnswerLimitCountsForEachOnItsOwn) {
  constexpr auto limit = std::chrono::milliseconds(600);
  RequestGate::instance().set_answer_limit(limit);
  LockHolder holder(ev_lock_);
  const PendingResponse first = fakes::send_get({cell(ev_root, 5, 1)});
  EXPECT_FALSE(first.arrived());
  std::this_thread::sleep_for(limit / 2);
  const auto begin = std::chrono::steady_clock::now();
  const PendingResponse second = fakes::send_get({cell(ev_root, 5, 1)});
  EXPECT_FALSE(second.arrived());
  EXPECT_EQ(first.wait().error_status, SNMP_ERR_GENERR);
  ASSERT_TRUE(eventually([&] { return second.arrived(); }));
  EXPECT_EQ(second.wait().error_status, SNMP_ERR_GENERR);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, limit);
}

TEST_F(RequestGateTest, ARequestComesBetweenEndlessRebuilds) {
  std::atomic<bool> stopped = false;
  std::thread rebuilds([&] {
    while (!stopped) {
      ev_lock_.acquire();
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      ev_lock_.release();
    }
  });
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(fakes::get({cell(ev_root, 5, 1)}).answers.at(0).value, integer(1));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
  stopped = true;
  rebuilds.join();
}

TEST_F(RequestGateTest, TheSubagentsSessionOutlastsTheWait) {
  netsnmp_session session = {};
  session.timeout = 30'000'000;
  agentx_callback_sess = &session;
  ev_sample.table.de_register();
  ev_sample.table.register_with_agent();
  agentx_callback_sess = nullptr;
  EXPECT_GE(session.timeout, 600'000'000);
}

class NoGateTest : public fakes::SampleTableTest {};

TEST_F(NoGateTest, AnAgentThatWatchesNoMoreFilesWaitsInPlace) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  int pipe_ends[2];
  ASSERT_EQ(::pipe(pipe_ends), 0);
  while (register_readfd(
             pipe_ends[0], [](int, void *) {}, nullptr) == FD_REGISTERED_OK) {
  }
  ev_sample.table.register_with_agent();
  add_row(ev_sample, 1, 1);
  fakes::get({cell(ev_root, 5, 1)});
  LockHolder holder(ev_sample.table.lock());
  std::thread later([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    holder.release();
  });
  const PendingResponse response = fakes::send_get({cell(ev_root, 5, 1)});
  EXPECT_EQ(response.wait().answers.at(0).value, integer(1));
  EXPECT_EQ(RequestGate::instance().waiting(), 0U);
  later.join();
}

// Acquires a lock, and stops when it is the first in the queue and has yet to take the lock.
class StoppedThread {
 public:
  // Returns when the thread has stopped.
  explicit StoppedThread(ListLock &lock)
      : thread_([this, &lock] {
          const auto stop = [this] {
            stopped_.set_value();
            goes_on_.get_future().wait();
          };
          // The queue's own mutex comes first.
          fakes::before_next_mutex_lock([stop] { fakes::before_next_mutex_lock(stop); });
          lock.acquire();
          lock.release();
        }) {
    stopped_.get_future().wait();
  }
  StoppedThread(const StoppedThread &) = delete;
  StoppedThread &operator=(const StoppedThread &) = delete;
  ~StoppedThread() {
    goes_on_.set_value();
    thread_.join();
  }

 private:
  std::promise<void> stopped_;
  std::promise<void> goes_on_;
  std::thread thread_;
};

// The gate looks after the second table's lock first, because that table was registered first.
class SecondTableTest : public fakes::SampleTableTest {
 protected:
  SecondTableTest() {
    subagent_sample.table.register_with_agent();
    ev_sample.table.register_with_agent();
    add_row(ev_sample, 1, 1);
    add_row(subagent_sample, 1, 10);
    fakes::get({cell(ev_root, 5, 1)});  // starts the agent
  }
  ~SecondTableTest() override { unregister_mib(const_cast<oid *>(subagent_root.data()), subagent_root.size()); }

  // A GET waits for the second table, behind a thread that is about to take its lock. A GETNEXT that has waited for
  // the first table then goes on into the second one and takes the lock, if it may still overtake the thread: it uses
  // the reservation of the GET. Returns whether it did.
  static bool overtakes_a_thread() {
    ListLock &second_lock = subagent_sample.table.lock();
    LockHolder first(ev_sample.table.lock());
    const PendingResponse goes_on = fakes::send_get_next({cell(ev_root, 11, 1), cell(ev_root, 4, 1)});
    EXPECT_FALSE(goes_on.arrived());
    EXPECT_EQ(second_lock.acquire(), 0);
    fakes::before_rows_are_read = [&] {
      fakes::before_rows_are_read = nullptr;
      second_lock.release();
    };
    std::optional<PendingResponse> waits;
    bool overtaken = false;
    {
      const StoppedThread thread(second_lock);
      waits = fakes::send_get({cell(subagent_root, 5, 1)});
      EXPECT_FALSE(waits->arrived());
      first.release();
      overtaken = goes_on.arrived();
    }
    EXPECT_EQ(goes_on.wait().answers.at(0).name, cell(subagent_root, 2, 1));
    EXPECT_TRUE(eventually([&] { return waits->arrived(); }, std::chrono::seconds(5)));
    return overtaken;
  }
};

TEST_F(SecondTableTest, WhoseReservationIsUsedIsServedNext) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  bool overtaken = false;
  // A busy machine may need another try: after 2 ms nobody overtakes the thread any more.
  for (int i = 0; i < 100 && !overtaken && !HasFailure(); ++i) {
    overtaken = overtakes_a_thread();
  }
  EXPECT_TRUE(overtaken);
}

}  // namespace
}  // namespace tavo
