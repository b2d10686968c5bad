// Random requests beside random holds of several tables' locks: each answer is the one that an idle agent gives.
//
// TAVO_GATE_REQUESTS is how many requests of each kind are sent (default: 100).
#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "core/request_gate.h"
#include "tests/fixtures/sample_table.h"
#include "tests/fixtures/sample_table_fixture.h"
#include "tests/harness/manager.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using fakes::Oid;
using fakes::PendingResponse;
using fakes::Response;
using fakes::SampleRow;

// Two tables more, of which one shares a lock with a sample table.
constexpr std::array<oid, 12> third_root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 99, 1, 3};
constexpr std::array<oid, 12> fourth_root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 99, 1, 4};

SampleRow *third_head = nullptr;
SampleRow *fourth_head = nullptr;
extern Table third_table;
extern Table fourth_table;

template <Table &table>
constexpr TableEntryPoints entry_points = {
    .init = nullptr,
    .handler = [](netsnmp_mib_handler *, netsnmp_handler_registration *, netsnmp_agent_request_info *info,
                  netsnmp_request_info *requests) { return table.answer(info, requests); },
    .first_row = [](void **loop_context, void **row, netsnmp_variable_list *index,
                    netsnmp_iterator_info *) { return table.first_row(loop_context, row, index); },
    .next_row = [](void **loop_context, void **row, netsnmp_variable_list *index,
                   netsnmp_iterator_info *) { return table.next_row(loop_context, row, index); },
};

const TableDescription third_description = {.name = "thirdTable",
                                            .root = third_root,
                                            .lock = ev_lock<41>,
                                            .columns = fakes::sample_columns,
                                            .row = layout_of<SampleRow>()};
const TableDescription fourth_description = {.name = "fourthTable",
                                             .root = fourth_root,
                                             .lock = fakes::ev_sample.table.lock(),
                                             .columns = fakes::sample_columns,
                                             .row = layout_of<SampleRow>()};
Table third_table(third_description, entry_points<third_table>, &third_head);
Table fourth_table(fourth_description, entry_points<fourth_table>, &fourth_head);

constexpr std::array<const std::array<oid, 12> *, 4> roots = {&fakes::ev_root, &fakes::subagent_root, &third_root,
                                                              &fourth_root};

struct Request {
  int kind;
  std::vector<Oid> names;
  int repetitions;
};

class RandomRequests {
 public:
  Request next(int kind) {
    Request request = {.kind = kind, .names = {}, .repetitions = below(8)};
    for (int left = 1 + below(6); left > 0; --left) {
      request.names.push_back(name());
    }
    return request;
  }

  int below(int bound) { return std::uniform_int_distribution(0, bound - 1)(random_); }

 private:
  Oid name() {
    const auto &root = *roots.at(static_cast<std::size_t>(below(roots.size())));
    Oid name(root.begin(), root.end());
    switch (below(8)) {
      case 0:
        return name;
      case 1:
        name.insert(name.end(), {1, static_cast<oid>(below(14))});
        return name;
      case 2:
        name.back() += 7;  // no table's
        return name;
      default:
        name.insert(name.end(), {1, static_cast<oid>(1 + below(12)), static_cast<oid>(below(6))});
        return name;
    }
  }

  std::mt19937 random_;  // the same requests each time
};

PendingResponse send(const Request &request) {
  switch (request.kind) {
    case SNMP_MSG_GET:
      return fakes::send_get(request.names);
    case SNMP_MSG_GETNEXT:
      return fakes::send_get_next(request.names);
    case SNMP_MSG_GETBULK:
      return fakes::send_get_bulk(request.names, request.repetitions);
    default:
      return fakes::send_set(request.names, 1);
  }
}

// Holds the locks in turns, for up to two milliseconds each, until it goes.
class RandomHolds {
 public:
  RandomHolds() {
    unsigned seed = 0;
    for (ListLock *lock : {&ev_lock<41>, &fakes::ev_sample.table.lock(), &fakes::subagent_sample.table.lock()}) {
      threads_.emplace_back([this, lock, seed = ++seed] {
        std::mt19937 random(seed);
        std::uniform_int_distribution microseconds(0, 2000);
        while (!stopped_) {
          lock->acquire();
          holds_one_ = true;
          holds_one_.notify_one();
          std::this_thread::sleep_for(std::chrono::microseconds(microseconds(random)));
          lock->release();
          std::this_thread::sleep_for(std::chrono::microseconds(microseconds(random)));
        }
      });
    }
    holds_one_.wait(false);  // on a busy machine the requests would be over before the threads have begun
  }
  ~RandomHolds() {
    stopped_ = true;
    for (std::thread &thread : threads_) {
      thread.join();
    }
  }

 private:
  std::atomic<bool> stopped_ = false;
  std::atomic<bool> holds_one_ = false;  // or has held one
  std::vector<std::thread> threads_;
};

class RandomRequestsTest : public fakes::SampleTableTest {
 protected:
  RandomRequestsTest() {
    for (Table *table : tables_) {
      table->register_with_agent();
    }
    int level = 0;
    for (Table *table : tables_) {
      const ListGuard guard(table->lock());
      for (std::uint32_t index = 1; index <= 4; ++index) {
        SampleRow row = {};
        row.level = ++level;
        table->create(index, &row);
      }
    }
  }
  ~RandomRequestsTest() override {
    for (Table *table : {&third_table, &fourth_table}) {
      table->de_register();
      const ListGuard guard(table->lock());
      table->remove_all();
    }
    unregister_mib(const_cast<oid *>(fakes::subagent_root.data()), fakes::subagent_root.size());
  }

  const std::array<Table *, 4> tables_ = {&fakes::ev_sample.table, &fakes::subagent_sample.table, &third_table,
                                          &fourth_table};
};

TEST_F(RandomRequestsTest, EachAnswerIsTheIdleOne) {
  const char *const wanted = std::getenv("TAVO_GATE_REQUESTS");
  const int rounds = wanted != nullptr ? std::atoi(wanted) : 100;
  constexpr int at_once = 8;
  RandomRequests random;
  int set_aside = 0;
  int answered = 0;
  for (int round = 0; round < rounds && !HasFailure(); round += at_once / 4) {
    std::vector<Request> requests;
    std::vector<Response> idle;
    for (int i = 0; i < at_once; ++i) {
      constexpr std::array kinds = {SNMP_MSG_GET, SNMP_MSG_GETNEXT, SNMP_MSG_GETBULK, SNMP_MSG_SET};
      requests.push_back(random.next(kinds.at(static_cast<std::size_t>(i) % kinds.size())));
      idle.push_back(send(requests.back()).wait());
    }
    const RandomHolds holds;
    std::vector<PendingResponse> responses;
    for (const Request &request : requests) {
      responses.push_back(send(request));
      responses.back().arrived();
      set_aside += RequestGate::instance().waiting() > 0 ? 1 : 0;
    }
    for (std::size_t i = 0; i < requests.size(); ++i) {
      SCOPED_TRACE("kind " + std::to_string(requests[i].kind) + ", round " + std::to_string(round));
      const Response response = responses[i].wait();
      ++answered;
      EXPECT_EQ(response.error_status, idle[i].error_status);
      EXPECT_EQ(response.answers, idle[i].answers);
    }
  }
  std::printf("%d requests, %d sent while one waited\n", answered, set_aside);
  EXPECT_GT(set_aside, 0);
}

}  // namespace
}  // namespace tavo
