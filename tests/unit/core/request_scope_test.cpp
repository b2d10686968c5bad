// Requests through the agent: the walk keeps the lock until the request leaves the table.
#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "core/access_lock.h"
#include "core/table.h"
#include "tests/fakes/allocation.h"
#include "tests/fakes/mutexes.h"
#include "tests/fixtures/sample_table.h"
#include "tests/fixtures/sample_table_fixture.h"
#include "tests/harness/manager.h"
#include "tests/harness/own_process.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using fakes::add_row;
using fakes::Answer;
using fakes::cell;
using fakes::ev_root;
using fakes::ev_sample;
using fakes::integer;
using fakes::is_locked;
using fakes::Oid;
using fakes::SampleRow;
using fakes::subagent_root;
using fakes::subagent_sample;
using fakes::text;
using testing::Each;
using testing::ElementsAre;

class RequestTest : public fakes::SampleTableTest {
 protected:
  RequestTest() {
    ev_sample.table.register_with_agent();
    fakes::before_rows_are_read = [this] {
      ++reads_;
      locked_while_reading_ = locked_while_reading_ && is_locked(ev_sample);
    };
  }

  // Expects `reads` reads of rows in all, each under the lock, and the lock free now. Each read tries the busy lock,
  // which counts a holder.
  void expect_locked_for_reads_only(int reads) {
    EXPECT_EQ(reads_, reads);
    EXPECT_TRUE(locked_while_reading_);
    EXPECT_FALSE(is_locked(ev_sample));
    EXPECT_EQ(ev_sample.table.lock().hold_count(), holders_at_first_ + reads);
  }

  const int holders_at_first_ = ev_sample.table.lock().hold_count();
  int reads_ = 0;
  bool locked_while_reading_ = true;
};

TEST_F(RequestTest, TwoHundredGetsAndThenWalksLeaveTheLockFree) {
  for (std::uint32_t index = 1; index <= 5; ++index) {
    add_row(ev_sample, index, static_cast<int>(index));
  }
  for (int i = 1; i <= 200; ++i) {
    EXPECT_THAT(fakes::get({cell(ev_root, 5, 3)}).answers, ElementsAre(Answer{cell(ev_root, 5, 3), integer(3)}));
    expect_locked_for_reads_only(i);
  }
  EXPECT_EQ(fakes::walk(ev_root).size(), 50U);
  EXPECT_FALSE(is_locked(ev_sample));
  for (const int repetitions : {1, 10, 50}) {
    EXPECT_EQ(fakes::bulk_walk(ev_root, repetitions).size(), 50U);
    expect_locked_for_reads_only(reads_);
  }
}

TEST_F(RequestTest, TwoRowsAndAMissingOneInOnePduAreAnsweredOnTheirOwn) {
  add_row(ev_sample, 1);
  add_row(ev_sample, 2);
  EXPECT_THAT(
      fakes::get({cell(ev_root, 2, 2), cell(ev_root, 2, 9), cell(ev_root, 2, 1)}).answers,
      ElementsAre(Answer{cell(ev_root, 2, 2), text("row-2")}, Answer{cell(ev_root, 2, 9), fakes::no_such_instance},
                  Answer{cell(ev_root, 2, 1), text("row-1")}));
  EXPECT_TRUE(locked_while_reading_);
  EXPECT_FALSE(is_locked(ev_sample));
  EXPECT_THAT(
      fakes::get({cell(ev_root, 12, 1), cell(ev_root, 2, 1)}).answers,
      ElementsAre(Answer{cell(ev_root, 12, 1), fakes::no_such_object}, Answer{cell(ev_root, 2, 1), text("row-1")}));
  EXPECT_FALSE(is_locked(ev_sample));
}

TEST_F(RequestTest, AGetNextReadsItsRowUnderTheLock) {
  add_row(ev_sample, 1);
  add_row(ev_sample, 2);
  EXPECT_THAT(fakes::get_next({cell(ev_root, 2, 1)}).answers, ElementsAre(Answer{cell(ev_root, 2, 2), text("row-2")}));
  expect_locked_for_reads_only(1);
  EXPECT_THAT(fakes::get_next({cell(ev_root, 2, 2)}).answers, ElementsAre(Answer{cell(ev_root, 3, 1), text("")}));
  expect_locked_for_reads_only(2);
}

TEST_F(RequestTest, ARebuildWaitsUntilTheRowHasBeenRead) {
  add_row(ev_sample, 1, 111);
  bool rebuilt_while_reading = false;
  std::atomic<bool> rebuilt = false;
  std::thread rebuild;
  fakes::before_rows_are_read = [&] {
    rebuild = std::thread([&] {
      const ListGuard guard(ev_sample.table.lock());
      ev_sample.table.remove_all();
      SampleRow fresh = {};
      fresh.level = 222;
      ev_sample.table.create(1, &fresh);
      rebuilt = true;
    });
    // Time for the other thread to wait for the lock, which cannot be observed here.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
    while (!rebuilt && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::yield();
    }
    rebuilt_while_reading = rebuilt;
  };
  EXPECT_EQ(fakes::get_next({cell(ev_root, 4, 1)}).answers.at(0), (Answer{cell(ev_root, 5, 1), integer(111)}));
  rebuild.join();
  EXPECT_FALSE(rebuilt_while_reading);
  fakes::before_rows_are_read = nullptr;
  EXPECT_EQ(fakes::get_next({cell(ev_root, 4, 1)}).answers.at(0), (Answer{cell(ev_root, 5, 1), integer(222)}));
}

// Every row names its generation.
void rebuild_rows(std::int32_t generation) {
  const ListGuard guard(ev_sample.table.lock());
  ev_sample.table.remove_all();
  SampleRow row = {};
  std::snprintf(row.name, sizeof row.name, "%d", generation);
  row.level = generation;
  row.total = static_cast<std::uint64_t>(generation);
  for (std::uint32_t index = 1; index <= 8; ++index) {
    ev_sample.table.create(index, &row);
  }
}

// The generation of each answer to one PDU; -1 for an exception.
std::vector<long> generations(const fakes::Response &response) {
  std::vector<long> found;
  for (const Answer &answer : response.answers) {
    const bool is_cell = answer.name.size() == ev_root.size() + 3 && answer.value.type < SNMP_NOSUCHOBJECT;
    found.push_back(is_cell ? std::stol(answer.value.content) : -1);
  }
  return found;
}

TEST_F(RequestTest, AnswersDuringRebuildsAreOfOneGenerationEach) {
  fakes::before_rows_are_read = nullptr;
  rebuild_rows(1);
  std::atomic<bool> stopped = false;
  std::atomic<std::int32_t> generation = 1;
  std::thread rebuilds([&] {
    while (!stopped) {
      rebuild_rows(++generation);
    }
  });
  for (oid round = 0; round < 400 || generation < 400; ++round) {
    const oid index = 1 + round % 8;
    const auto got = generations(fakes::get({cell(ev_root, 2, index), cell(ev_root, 5, index), cell(ev_root, 8, 3)}));
    EXPECT_THAT(got, Each(got.at(0)));
    const auto followed =
        generations(fakes::get_next({cell(ev_root, 2, index - 1), cell(ev_root, 5, index - 1), cell(ev_root, 7, 8)}));
    EXPECT_THAT(followed, Each(followed.at(0)));
    if (HasFailure() || got.at(0) < 1 || followed.at(0) < 1) {
      ADD_FAILURE() << "round " << round << ", generations " << got.at(0) << " and " << followed.at(0);
      break;
    }
  }
  stopped = true;
  rebuilds.join();
}

TEST_F(RequestTest, AnEmptyTableAnswersAndLeavesTheLockFree) {
  EXPECT_EQ(fakes::get({cell(ev_root, 2, 1)}).answers.at(0).value, fakes::no_such_instance);
  EXPECT_EQ(fakes::get_next({Oid(ev_root.begin(), ev_root.end())}).answers.at(0).value, fakes::end_of_mib_view);
  EXPECT_FALSE(is_locked(ev_sample));
}

TEST_F(RequestTest, WithoutItsEvLockARequestFindsNoRow) {
  add_row(ev_sample, 1);
  EXPECT_EQ(fakes::get({cell(ev_root, 2, 2)}).answers.at(0).value, fakes::no_such_instance);  // starts the agent
  fakes::fail_next_mutex_call(EINVAL, 0, 2);  // the gate's try and the walk's
  EXPECT_EQ(fakes::get({cell(ev_root, 2, 1)}).answers.at(0).value, fakes::no_such_instance);
  EXPECT_EQ(ev_sample.table.lock().hold_count(), holders_at_first_ + reads_);
  EXPECT_EQ(fakes::get({cell(ev_root, 2, 1)}).answers.at(0).value, text("row-1"));
}

TEST_F(RequestTest, ALockThatTheWalkHadToTakeIsReleased) {
  add_row(ev_sample, 1);
  EXPECT_EQ(fakes::get({cell(ev_root, 2, 2)}).answers.at(0).value, fakes::no_such_instance);  // starts the agent
  fakes::fail_next_mutex_call(EINVAL);                                                        // the gate's try
  EXPECT_EQ(fakes::get({cell(ev_root, 2, 1)}).answers.at(0).value, text("row-1"));
  EXPECT_FALSE(is_locked(ev_sample));
}

TEST_F(RequestTest, ATableBehindASubagentLockIsServedTheSameWay) {
  subagent_sample.table.register_with_agent();
  add_row(subagent_sample, 1);
  add_row(subagent_sample, 2);
  bool locked = true;
  fakes::before_rows_are_read = [&] { locked = locked && is_locked(subagent_sample); };
  for (int i = 0; i < 200; ++i) {
    EXPECT_EQ(fakes::get({cell(subagent_root, 2, 2)}).answers.at(0).value, text("row-2"));
    EXPECT_FALSE(is_locked(subagent_sample));
  }
  EXPECT_EQ(fakes::walk(subagent_root).size(), 20U);
  EXPECT_TRUE(locked);
  EXPECT_FALSE(is_locked(subagent_sample));
  unregister_mib(const_cast<oid *>(subagent_root.data()), subagent_root.size());
}

TEST_F(RequestTest, APduAcrossTwoTablesHoldsOneLockAtATime) {
  subagent_sample.table.register_with_agent();
  add_row(ev_sample, 1);
  add_row(subagent_sample, 1);
  int reads = 0;
  int both_locked = 0;
  fakes::before_rows_are_read = [&] {
    ++reads;
    both_locked += is_locked(ev_sample) && is_locked(subagent_sample) ? 1 : 0;
  };
  const auto response = fakes::get({cell(ev_root, 2, 1), cell(subagent_root, 2, 1), cell(ev_root, 5, 1)});
  EXPECT_THAT(response.answers,
              ElementsAre(Answer{cell(ev_root, 2, 1), text("row-1")}, Answer{cell(subagent_root, 2, 1), text("row-1")},
                          Answer{cell(ev_root, 5, 1), integer(0)}));
  EXPECT_GE(reads, 2);
  EXPECT_EQ(both_locked, 0);
  EXPECT_FALSE(is_locked(ev_sample));
  EXPECT_FALSE(is_locked(subagent_sample));
  unregister_mib(const_cast<oid *>(subagent_root.data()), subagent_root.size());
}

TEST_F(RequestTest, AWalkGoesFromOneTableIntoTheNext) {
  subagent_sample.table.register_with_agent();
  add_row(ev_sample, 1);
  add_row(subagent_sample, 4);
  EXPECT_EQ(fakes::get_next({cell(ev_root, 11, 1)}).answers.at(0), (Answer{cell(subagent_root, 2, 4), text("row-4")}));
  const std::span both(ev_root.begin(), ev_root.size() - 1);
  EXPECT_EQ(fakes::walk(both).size(), 20U);
  for (const int repetitions : {1, 7, 50}) {
    EXPECT_EQ(fakes::bulk_walk(both, repetitions).size(), 20U);
  }
  unregister_mib(const_cast<oid *>(subagent_root.data()), subagent_root.size());
}

// The rows that a request's walk offers.

// The next-row calls of one PDU.
template <class Request>
int next_rows_for(Request request) {
  const int before = fakes::next_rows_asked_for;
  request();
  return fakes::next_rows_asked_for - before;
}

class RequestCostTest : public fakes::SampleTableTest {};

TEST_F(RequestCostTest, AVarbindCostsAtMostTwoNextRowsInAnyTable) {
  ev_sample.table.register_with_agent();
  std::uint32_t rows = 0;
  for (const std::uint32_t more : {1U, 7U, 24U, 224U}) {
    for (std::uint32_t i = 0; i < more; ++i) {
      add_row(ev_sample, ++rows);
    }
    for (const oid index : {oid{1}, oid{(rows + 1) / 2}, oid{rows}, oid{rows + 1}}) {
      EXPECT_LE(next_rows_for([&] { fakes::get({cell(ev_root, 5, index)}); }), 2) << index << " of " << rows;
      EXPECT_LE(next_rows_for([&] { fakes::get_next({cell(ev_root, 5, index - 1)}); }), 2) << index << " of " << rows;
    }
    // The last row of the last column: the walk leaves the table.
    EXPECT_LE(next_rows_for([&] { fakes::get_next({cell(ev_root, 11, rows)}); }), 2) << rows;
    EXPECT_LE(next_rows_for([&] {
                fakes::get({cell(ev_root, 2, 1), cell(ev_root, 5, rows), cell(ev_root, 8, 1)});
              }),
              6)
        << rows;
  }
}

TEST_F(RequestTest, OfRowsThatShareAnIndexTheFirstListedIsServed) {
  add_row(ev_sample, 1, 10);
  add_row(ev_sample, 2, 20);
  add_row(ev_sample, 2, 21);
  add_row(ev_sample, 3, 30);
  add_row(ev_sample, 2, 22);
  EXPECT_THAT(fakes::get({cell(ev_root, 5, 1), cell(ev_root, 5, 2), cell(ev_root, 5, 3), cell(ev_root, 5, 2)}).answers,
              ElementsAre(Answer{cell(ev_root, 5, 1), integer(10)}, Answer{cell(ev_root, 5, 2), integer(22)},
                          Answer{cell(ev_root, 5, 3), integer(30)}, Answer{cell(ev_root, 5, 2), integer(22)}));
  EXPECT_THAT(fakes::get_next({cell(ev_root, 5, 0), cell(ev_root, 5, 1), cell(ev_root, 5, 2)}).answers,
              ElementsAre(Answer{cell(ev_root, 5, 1), integer(10)}, Answer{cell(ev_root, 5, 2), integer(22)},
                          Answer{cell(ev_root, 5, 3), integer(30)}));
  EXPECT_EQ(fakes::walk(ev_root).size(), 30U);
}

TEST_F(RequestTest, ChangesBetweenRequestsAreSeen) {
  SampleRow *two = add_row(ev_sample, 2);
  EXPECT_EQ(fakes::get_next({cell(ev_root, 2, 0)}).answers.at(0).name, cell(ev_root, 2, 2));
  add_row(ev_sample, 1);
  EXPECT_EQ(fakes::get_next({cell(ev_root, 2, 0)}).answers.at(0).name, cell(ev_root, 2, 1));
  ev_sample.table.remove(two);
  EXPECT_EQ(fakes::get({cell(ev_root, 2, 2)}).answers.at(0).value, fakes::no_such_instance);
  remove_rows(ev_sample);
  EXPECT_EQ(fakes::get({cell(ev_root, 2, 1)}).answers.at(0).value, fakes::no_such_instance);
}

TEST_F(RequestTest, WithoutMemoryForTheOrderTheWholeListIsOffered) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  for (std::uint32_t index = 300; index > 0; --index) {  // more than any test before has made room for
    add_row(ev_sample, index);
  }
  // Each round fails one allocation later, until a round gets all it needs.
  int successes = 0;
  do {
    fakes::reset_allocations();
    fakes::fail_allocations(successes++, 1);
    const auto got = fakes::get({cell(ev_root, 2, 7), cell(ev_root, 2, 233)});
    const auto followed = fakes::get_next({cell(ev_root, 2, 299), cell(ev_root, 2, 300)});
    EXPECT_THAT(got.answers, ElementsAre(Answer{cell(ev_root, 2, 7), text("row-7")},
                                         Answer{cell(ev_root, 2, 233), text("row-233")}));
    EXPECT_THAT(followed.answers,
                ElementsAre(Answer{cell(ev_root, 2, 300), text("row-300")}, Answer{cell(ev_root, 3, 1), text("")}));
    EXPECT_FALSE(is_locked(ev_sample));
  } while (fakes::failed_allocations() > 0);
  EXPECT_GT(successes, 1);
}

}  // namespace
}  // namespace tavo
