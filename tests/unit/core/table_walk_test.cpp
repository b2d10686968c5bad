// A walk outside a request: the loop functions that the agent's iterator calls.
#include <gmock/gmock.h>

#include <cerrno>
#include <vector>

#include "core/table.h"
#include "tests/fakes/mutexes.h"
#include "tests/fixtures/sample_table.h"
#include "tests/fixtures/sample_table_fixture.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using fakes::add_row;
using fakes::ev_sample;
using fakes::is_locked;
using fakes::SampleRow;
using fakes::SampleTable;
using fakes::subagent_sample;
using testing::ElementsAre;

class WalkTest : public fakes::SampleTableTest {
 protected:
  WalkTest() { index_.type = ASN_UNSIGNED; }
  ~WalkTest() override { snmp_free_var_internals(&index_); }

  netsnmp_variable_list *first(const SampleTable &sample) { return sample.table.first_row(&loop_, &row_, &index_); }
  netsnmp_variable_list *next(const SampleTable &sample) { return sample.table.next_row(&loop_, &row_, &index_); }

  long index_found() const { return index_.val.integer == nullptr ? -1 : *index_.val.integer; }

  void *loop_ = nullptr;
  void *row_ = nullptr;
  netsnmp_variable_list index_ = {};
};

class PlainWalkTest : public WalkTest, public testing::WithParamInterface<const SampleTable *> {
 protected:
  const SampleTable &sample_ = *GetParam();
};

INSTANTIATE_TEST_SUITE_P(BothKindsOfLock, PlainWalkTest, testing::Values(&ev_sample, &subagent_sample),
                         [](const auto &test) { return test.param == &ev_sample ? "Ev" : "Subagent"; });

TEST_P(PlainWalkTest, HoldsTheLockFromTheFirstRowToTheEndOfTheList) {
  SampleRow *one = add_row(sample_, 1);
  SampleRow *two = add_row(sample_, 2);
  EXPECT_FALSE(is_locked(sample_));
  EXPECT_EQ(first(sample_), &index_);
  EXPECT_EQ(row_, two);
  EXPECT_EQ(index_found(), 2);
  EXPECT_EQ(index_.type, ASN_UNSIGNED);
  EXPECT_TRUE(is_locked(sample_));
  EXPECT_EQ(next(sample_), &index_);
  EXPECT_EQ(row_, one);
  EXPECT_EQ(index_found(), 1);
  EXPECT_TRUE(is_locked(sample_));
  EXPECT_EQ(next(sample_), nullptr);
  EXPECT_FALSE(is_locked(sample_));
}

TEST_P(PlainWalkTest, VisitsDuplicatesToo) {
  SampleRow *old = add_row(sample_, 7);
  SampleRow *young = add_row(sample_, 7);
  std::vector<void *> visited;
  for (auto *found = first(sample_); found != nullptr; found = next(sample_)) {
    visited.push_back(row_);
  }
  EXPECT_THAT(visited, ElementsAre(young, old));
}

TEST_P(PlainWalkTest, OfAnEmptyListEndsAtOnceWithTheLockReleased) {
  EXPECT_EQ(first(sample_), nullptr);
  EXPECT_FALSE(is_locked(sample_));
  EXPECT_EQ(next(sample_), nullptr);
  EXPECT_FALSE(is_locked(sample_));
}

TEST_P(PlainWalkTest, WithoutAnIndexVarbindEndsWithTheLockReleased) {
  add_row(sample_, 1);
  EXPECT_EQ(sample_.table.first_row(&loop_, &row_, nullptr), nullptr);
  EXPECT_FALSE(is_locked(sample_));
}

TEST_P(PlainWalkTest, TheNextRowTakesTheLockWhenNoWalkIsUnderWay) {
  SampleRow *one = add_row(sample_, 1);
  SampleRow *two = add_row(sample_, 2);
  loop_ = two;
  EXPECT_EQ(next(sample_), &index_);
  EXPECT_EQ(row_, two);
  EXPECT_TRUE(is_locked(sample_));
  EXPECT_EQ(next(sample_), &index_);
  EXPECT_EQ(row_, one);
  EXPECT_EQ(next(sample_), nullptr);
  EXPECT_FALSE(is_locked(sample_));
}

TEST_P(PlainWalkTest, TheNextRowBehindTheEndTakesAndReleasesTheLock) {
  add_row(sample_, 1);
  EXPECT_EQ(next(sample_), nullptr);
  EXPECT_FALSE(is_locked(sample_));
}

TEST_P(PlainWalkTest, CountsOneHolder) {
  add_row(sample_, 1);
  const int before = sample_.table.lock().hold_count();
  first(sample_);
  EXPECT_EQ(sample_.table.lock().hold_count(), before + 1);
  next(sample_);
  EXPECT_EQ(sample_.table.lock().hold_count(), before);
}

TEST_F(WalkTest, AFirstRowThatCannotHaveItsEvLockIsNull) {
  add_row(ev_sample, 1);
  fakes::fail_next_mutex_call(EINVAL);
  EXPECT_EQ(first(ev_sample), nullptr);
  EXPECT_EQ(row_, nullptr);
  EXPECT_FALSE(is_locked(ev_sample));
  EXPECT_EQ(first(ev_sample), &index_) << "no walk was under way";
  EXPECT_EQ(next(ev_sample), nullptr);
}

// Kept on purpose: the index comes back unfilled.
TEST_F(WalkTest, ANextRowThatCannotHaveItsEvLockIsTheUnfilledIndex) {
  loop_ = add_row(ev_sample, 1);
  const long given = 4711;
  snmp_set_var_value(&index_, &given, sizeof given);
  fakes::fail_next_mutex_call(EINVAL);
  EXPECT_EQ(next(ev_sample), &index_);
  EXPECT_EQ(index_found(), 4711);
  EXPECT_EQ(row_, nullptr);
  EXPECT_EQ(loop_, ev_sample.head);
  EXPECT_FALSE(is_locked(ev_sample));
  EXPECT_EQ(next(ev_sample), &index_) << "the next try takes the lock";
  EXPECT_EQ(index_found(), 1);
  EXPECT_EQ(next(ev_sample), nullptr);
}

TEST_F(WalkTest, ASubagentLocksResultIsNotTested) {
  SampleRow *one = add_row(subagent_sample, 1);
  fakes::fail_next_mutex_call(EINVAL);
  EXPECT_EQ(first(subagent_sample), &index_);
  EXPECT_EQ(row_, one);
  fakes::fail_next_mutex_call(EPERM);  // the release of a lock that nobody holds
  EXPECT_EQ(next(subagent_sample), nullptr);
  loop_ = one;
  fakes::fail_next_mutex_call(EINVAL);
  EXPECT_EQ(next(subagent_sample), &index_);
  EXPECT_EQ(index_found(), 1);
  fakes::fail_next_mutex_call(EPERM);
  EXPECT_EQ(next(subagent_sample), nullptr);
}

}  // namespace
}  // namespace tavo
