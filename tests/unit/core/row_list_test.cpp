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
                           : std::vector<const void *>(rows->items().begin(), rows->items().end());
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

TEST_F(RowListTest, FindsARowBehindOneThatIsBeforeIt) {
  Row *last = add(1);
  Row *middle = add(2);
  Row *second = add(3);
  Row *first = add(4);
  Row *const unreachable = std::exchange(first->next, nullptr);
  EXPECT_TRUE(list_.unlink(last, second)) << "without a look at the front";
  first->next = unreachable;
  EXPECT_THAT(listed(), ElementsAre(first, second, middle));
  EXPECT_TRUE(list_.unlink(second, first));
  EXPECT_THAT(listed(), ElementsAre(first, middle));
  EXPECT_EQ(list_.count(), 2U);
  std::free(last);
  std::free(second);
}

TEST_F(RowListTest, FindsARowThatIsNotBehindTheOther) {
  Row *last = add(1);
  Row *first = add(2);
  EXPECT_TRUE(list_.unlink(first, last));
  EXPECT_THAT(listed(), ElementsAre(last));
  EXPECT_FALSE(list_.unlink(first, last));
  EXPECT_EQ(list_.count(), 1U);
  std::free(first);
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
