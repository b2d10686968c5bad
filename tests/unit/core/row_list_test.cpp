#include "core/row_list.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <utility>
#include <vector>

#include "tests/fakes/allocation.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/harness/own_process.h"

namespace tavo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Row {
  std::uint32_t index;
  char text[5];
  Row *next;
};

class RowListTest : public fakes::ModuleTest {
 protected:
  ~RowListTest() override {
    fakes::reset_allocations();
    list_.clear();
  }

  Row *add(std::uint32_t index) {
    auto *row = static_cast<Row *>(std::calloc(1, sizeof(Row)));
    row->index = index;
    list_.push_front(row);
    return row;
  }

  std::vector<const void *> listed() const {
    std::vector<const void *> rows;
    for (const void *row = list_.first(); row != nullptr; row = list_.next(row)) {
      rows.push_back(row);
    }
    return rows;
  }

  std::vector<const void *> ordered() {
    const RowPointers *rows = list_.ordered();
    EXPECT_NE(rows, nullptr);
    return rows == nullptr ? std::vector<const void *>{}
                           : std::vector<const void *>(rows->rows().begin(), rows->rows().end());
  }

  // Lives as long as the process, like a table's list.
  static inline Row *head_ = nullptr;
  static inline constinit RowList list_{layout_of<Row>(), &head_};
};

TEST_F(RowListTest, IsEmptyAtFirst) {
  EXPECT_EQ(list_.first(), nullptr);
  EXPECT_EQ(list_.count(), 0U);
  EXPECT_THAT(ordered(), IsEmpty());
  EXPECT_EQ(list_.clear(), 0U);
}

TEST_F(RowListTest, TheNewestRowStandsFirst) {
  Row *first = add(1);
  Row *second = add(2);
  Row *third = add(3);
  EXPECT_EQ(head_, third);
  EXPECT_THAT(listed(), ElementsAre(third, second, first));
  EXPECT_EQ(first->next, nullptr);
  EXPECT_EQ(list_.count(), 3U);
}

TEST_F(RowListTest, UnlinksTheFirstAMiddleAndTheLastRow) {
  Row *a = add(1);
  Row *b = add(2);
  Row *c = add(3);
  Row *d = add(4);
  EXPECT_TRUE(list_.unlink(d));
  EXPECT_EQ(head_, c);
  EXPECT_TRUE(list_.unlink(b));
  EXPECT_THAT(listed(), ElementsAre(c, a));
  EXPECT_TRUE(list_.unlink(a));
  EXPECT_THAT(listed(), ElementsAre(c));
  EXPECT_TRUE(list_.unlink(c));
  EXPECT_EQ(head_, nullptr);
  EXPECT_EQ(list_.count(), 0U);
  for (Row *row : {a, b, c, d}) {
    std::free(row);
  }
}

TEST_F(RowListTest, LeavesARowAloneThatIsNotListed) {
  Row *a = add(1);
  Row stranger = {.index = 1, .text = {}, .next = a};
  EXPECT_FALSE(list_.unlink(&stranger));
  EXPECT_EQ(stranger.next, a);
  EXPECT_THAT(listed(), ElementsAre(a));
  EXPECT_EQ(list_.count(), 1U);
}

struct TwoWayRow {
  std::uint32_t index;
  TwoWayRow *next;
  TwoWayRow *previous;
};

// A list whose rows know the one before them. The rows are the test's.
class TwoWayListTest : public testing::Test {
 protected:
  TwoWayListTest() {
    for (TwoWayRow &row : rows_) {
      list_.push_front(&row);
    }
  }

  // In the order of the list, each with the row that it takes for the one before it.
  std::vector<std::pair<const TwoWayRow *, const TwoWayRow *>> listed() const {
    std::vector<std::pair<const TwoWayRow *, const TwoWayRow *>> rows;
    for (const TwoWayRow *row = head_; row != nullptr; row = row->next) {
      rows.emplace_back(row, row->previous);
    }
    return rows;
  }

  TwoWayRow rows_[4] = {};
  TwoWayRow *const a = &rows_[3];  // the first in the list
  TwoWayRow *const b = &rows_[2];
  TwoWayRow *const c = &rows_[1];
  TwoWayRow *const d = &rows_[0];
  TwoWayRow *head_ = nullptr;
  RowList list_{layout_of<TwoWayRow>(), &head_};
};

TEST_F(TwoWayListTest, UnlinksAMiddleTheFirstAndTheLastRow) {
  list_.unlink_listed(b);
  EXPECT_THAT(listed(), ElementsAre(std::pair(a, nullptr), std::pair(c, a), std::pair(d, c)));
  list_.unlink_listed(a);
  EXPECT_THAT(listed(), ElementsAre(std::pair(c, nullptr), std::pair(d, c)));
  list_.unlink_listed(d);
  EXPECT_THAT(listed(), ElementsAre(std::pair(c, nullptr)));
  list_.unlink_listed(c);
  EXPECT_EQ(head_, nullptr);
  EXPECT_EQ(list_.count(), 0U);
}

TEST_F(TwoWayListTest, ARowThatIsLookedForKeepsTheLinksRight) {
  EXPECT_TRUE(list_.unlink(b));
  EXPECT_THAT(listed(), ElementsAre(std::pair(a, nullptr), std::pair(c, a), std::pair(d, c)));
}

TEST_F(TwoWayListTest, AListedRowIsNotLookedFor) {
  TwoWayRow *const unreachable = std::exchange(b->next, nullptr);
  list_.unlink_listed(d);
  EXPECT_EQ(unreachable->next, nullptr) << "found through the row before it alone";
}

TEST_F(TwoWayListTest, AListedRowWhoseLinkBackIsWrongIsFound) {
  TwoWayRow outsider = {.index = 9, .next = head_, .previous = nullptr};
  head_ = &outsider;
  list_.unlink_listed(a);
  EXPECT_THAT(listed(),
              ElementsAre(std::pair(&outsider, nullptr), std::pair(b, &outsider), std::pair(c, b), std::pair(d, c)));
}

TEST_F(RowListTest, ClearFreesEveryRowAndSaysHowMany) {
  add(1);
  add(2);
  add(2);
  EXPECT_EQ(list_.clear(), 3U);
  EXPECT_EQ(head_, nullptr);
  EXPECT_EQ(list_.count(), 0U);
}

TEST_F(RowListTest, OrdersRowsByIndex) {
  Row *nine = add(9);
  Row *highest = add(0xFFFFFFFF);
  Row *zero = add(0);
  Row *four = add(4);
  EXPECT_THAT(ordered(), ElementsAre(zero, four, nine, highest));
}

TEST_F(RowListTest, WithoutMemoryToSortThereIsNoOrderUntilThereIs) {
  Row *one = add(1);
  Row *two = add(2);
  EXPECT_THAT(ordered(), ElementsAre(one, two));
  Row *three = add(3);
  fakes::fail_allocations(0);  // the pointers have their room by now
  EXPECT_EQ(list_.ordered(), nullptr);
  fakes::reset_allocations();
  EXPECT_THAT(ordered(), ElementsAre(one, two, three));
}

TEST_F(RowListTest, OfSeveralRowsWithOneIndexTheFirstInTheListCounts) {
  add(7);
  Row *three = add(3);
  add(7);
  Row *newest_seven = add(7);
  EXPECT_THAT(ordered(), ElementsAre(three, newest_seven));
}

TEST_F(RowListTest, ARowWithoutALinkBackIsUnlinked) {
  Row *one = add(1);
  Row *two = add(2);
  list_.unlink_listed(one);
  EXPECT_THAT(listed(), ElementsAre(two));
  std::free(one);
}

TEST_F(RowListTest, OrdersAnewAfterEveryChange) {
  Row *one = add(1);
  EXPECT_THAT(ordered(), ElementsAre(one));
  Row *three = add(3);
  EXPECT_THAT(ordered(), ElementsAre(one, three));
  Row *two = add(2);
  EXPECT_THAT(ordered(), ElementsAre(one, two, three));
  list_.unlink(three);
  EXPECT_THAT(ordered(), ElementsAre(one, two));
  list_.unlink(two);
  EXPECT_THAT(ordered(), ElementsAre(one));
  list_.clear();
  EXPECT_THAT(ordered(), IsEmpty());
  std::free(two);
  std::free(three);
}

TEST_F(RowListTest, OrdersAnewWhenTheHeadWasChangedFromOutside) {
  Row *one = add(1);
  Row *two = add(2);
  EXPECT_THAT(ordered(), ElementsAre(one, two));
  head_ = one;
  EXPECT_THAT(ordered(), ElementsAre(one));
  std::free(two);
}

TEST_F(RowListTest, WithoutMemoryThereIsNoOrder) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  add(2);
  Row *one = add(1);
  fakes::fail_allocations(0);
  EXPECT_EQ(list_.ordered(), nullptr);
  EXPECT_EQ(list_.ordered(), nullptr);
  fakes::reset_allocations();
  EXPECT_THAT(ordered(), ElementsAre(one, list_.next(one)));
}

TEST_F(RowListTest, RunningOutOfMemoryLaterLeavesNoHalfOrder) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  for (std::uint32_t index = 0; index < 16; ++index) {
    add(index);
  }
  EXPECT_EQ(ordered().size(), 16U);
  add(16);
  fakes::fail_allocations(0);
  EXPECT_EQ(list_.ordered(), nullptr);
  fakes::reset_allocations();
  EXPECT_EQ(ordered().size(), 17U);
}

}  // namespace
}  // namespace tavo
