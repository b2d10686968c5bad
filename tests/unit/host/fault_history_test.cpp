#include "host/fault_history.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <ctime>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "core/health.h"
#include "platform/fault_engine.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Record = std::array<char, FAULT_RECORD_SIZE>;

void write(Record &record, std::size_t offset, std::uint32_t number) {
  std::memcpy(&record[offset], &number, sizeof number);
}

Record fault(std::uint32_t class_code, std::uint32_t index, std::uint32_t severity) {
  Record record = {};
  write(record, FAULT_CLASS_CODE, class_code);
  write(record, FAULT_INDEX, index);
  write(record, FAULT_SEVERITY, severity);
  return record;
}

class FaultHistoryTest : public testing::Test {
 protected:
  FaultHistoryTest() { history.keep(5); }

  void change(std::uint32_t class_code, std::uint32_t index, std::uint32_t severity, bool notified = true) {
    history.changed(fault(class_code, index, severity).data(), notified);
  }

  // The kinds of those that are kept from this number on.
  std::vector<FaultChange::Kind> kinds(std::uint32_t from = 1) const {
    std::vector<FaultChange::Kind> kinds;
    for (FaultChangePtr found; (found = history.first_change(from)) != nullptr; ++from) {
      EXPECT_EQ(found->number, from);
      kinds.push_back(found->kind);
    }
    return kinds;
  }

  // "CLASS.INDEX" of the active faults, in order.
  std::vector<std::string> active() const {
    std::vector<std::string> names;
    FaultKey from{};
    for (FaultChangePtr found; (found = history.first_active(from)) != nullptr; ++from.index) {
      from = found->fault;
      EXPECT_EQ(history.active(from), found);
      names.push_back(std::to_string(from.class_code) + "." + std::to_string(from.index));
    }
    return names;
  }

  FaultHistory history;
};

TEST_F(FaultHistoryTest, ChangesAreNumberedAndNamed) {
  change(3, 7, 5);
  change(3, 7, 4);
  change(3, 7, 0);
  change(3, 7, 0, false);
  EXPECT_THAT(kinds(),
              ElementsAre(FaultChange::Raised, FaultChange::Updated, FaultChange::Cleared, FaultChange::Cleared));
  EXPECT_EQ(history.summary().changes, 4U);
  EXPECT_EQ(history.summary().notified, 3U);
  EXPECT_EQ(history.summary().oldest, 1U);
  EXPECT_EQ(history.summary().active, 0U);
}

TEST_F(FaultHistoryTest, FaultsThatShareAnIndexAreApart) {
  change(3, 7, 5);
  change(8, 7, 2);
  change(3, 9, 1);
  EXPECT_THAT(active(), ElementsAre("3.7", "3.9", "8.7"));
  EXPECT_EQ(history.active({.class_code = 8, .index = 7})->severity, 2U);
  change(3, 7, 0);
  EXPECT_THAT(active(), ElementsAre("3.9", "8.7"));
  EXPECT_EQ(history.active({.class_code = 3, .index = 7}), nullptr);
}

TEST_F(FaultHistoryTest, FaultsStayInOrderWhileMostGo) {
  constexpr std::uint32_t count = 1000;
  for (std::uint32_t i = 0; i < count; ++i) {
    change(3, i * 7 % count, 5);
  }
  EXPECT_EQ(active().size(), count);
  for (std::uint32_t index = 0; index < count; ++index) {
    change(3, index, index % 300 == 1 ? 4 : 0);
  }
  EXPECT_THAT(active(), ElementsAre("3.1", "3.301", "3.601", "3.901"));
  EXPECT_EQ(history.active({.class_code = 3, .index = 301})->severity, 4U);
}

TEST_F(FaultHistoryTest, AChangeTellsWhatTheRecordTells) {
  Record record = fault(4'000'000'000, 4'294'967'295, 6);
  std::strcpy(&record[FAULT_AFFECTED_OBJECT], "sys/rack-unit-1");
  std::memset(&record[FAULT_DESCRIPTION], 'd', FAULT_DESCRIPTION_SIZE);  // without a NUL
  write(record, FAULT_CODE, static_cast<std::uint32_t>(-3));
  write(record, FAULT_CAUSE, 17);
  write(record, FAULT_FIRST_TIME, 1'700'000'000);
  write(record, FAULT_LAST_TIME, static_cast<std::uint32_t>(-1));
  record[FAULT_OCCURRENCES] = '\xC8';
  history.changed(record.data(), true);
  const FaultChangePtr change = history.first_change(0);
  ASSERT_NE(change, nullptr);
  EXPECT_EQ(change->fault, (FaultKey{.class_code = 4'000'000'000, .index = 4'294'967'295}));
  EXPECT_EQ(change->severity, 6U);
  EXPECT_EQ(change->affected_object(), "sys/rack-unit-1");
  EXPECT_EQ(change->description(), std::string(FAULT_DESCRIPTION_SIZE, 'd'));
  EXPECT_EQ(change->code, -3);
  EXPECT_EQ(change->cause, 17);
  EXPECT_EQ(change->first_time, 1'700'000'000);
  EXPECT_EQ(change->last_time, -1);
  EXPECT_EQ(change->occurrences, 200U);
  EXPECT_LE(change->time, std::time(nullptr));
  EXPECT_GT(change->time, std::time(nullptr) - 60);
}

TEST_F(FaultHistoryTest, TheOldestChangesMakeRoom) {
  for (std::uint32_t index = 1; index <= 8; ++index) {
    change(3, index, 5);
  }
  EXPECT_EQ(history.summary().oldest, 4U);
  EXPECT_EQ(history.first_change(1)->number, 4U);
  EXPECT_EQ(kinds(4).size(), 5U);
  EXPECT_EQ(history.first_change(9), nullptr);
  EXPECT_EQ(active().size(), 8U) << "the faults themselves stay";
}

TEST_F(FaultHistoryTest, NoChangeNeedBeKept) {
  history.keep(0);
  change(3, 7, 5);
  EXPECT_THAT(kinds(), IsEmpty());
  EXPECT_EQ(history.summary().oldest, 0U);
  EXPECT_EQ(history.summary().changes, 1U);
  EXPECT_THAT(active(), ElementsAre("3.7"));
}

TEST_F(FaultHistoryTest, AWholeLoadShowsWhatHasVanished) {
  EXPECT_FALSE(history.summary().complete);
  history.load_begins();
  change(3, 7, 5, false);
  change(3, 8, 5, false);
  history.load_ends(true);
  EXPECT_TRUE(history.summary().complete);

  history.load_begins();
  change(3, 8, 5);
  EXPECT_THAT(active(), ElementsAre("3.7", "3.8")) << "until the load has ended";
  history.load_ends(true);
  EXPECT_THAT(active(), ElementsAre("3.8"));
  EXPECT_THAT(kinds(3), ElementsAre(FaultChange::Updated, FaultChange::Vanished));
  const FaultChangePtr vanished = history.first_change(4);
  EXPECT_EQ(vanished->fault, (FaultKey{.class_code = 3, .index = 7}));
  EXPECT_EQ(vanished->severity, 0U);
  EXPECT_FALSE(vanished->notified);
  EXPECT_EQ(history.summary().notified, 1U);
}

TEST_F(FaultHistoryTest, ALoadThatEndsEarlyProvesNothing) {
  history.load_begins();
  change(3, 7, 5);
  history.load_ends(true);
  history.load_begins();
  history.load_ends(false);
  EXPECT_FALSE(history.summary().complete);
  EXPECT_THAT(active(), ElementsAre("3.7"));
}

TEST_F(FaultHistoryTest, NumbersThatAreUsedUpBeginANewEpoch) {
  FaultHistory old(std::numeric_limits<std::uint32_t>::max() - 1);
  old.keep(5);
  const std::uint32_t epoch = old.summary().epoch;
  old.load_begins();
  old.changed(fault(3, 7, 5).data(), true);
  EXPECT_EQ(old.summary().changes, std::numeric_limits<std::uint32_t>::max());
  EXPECT_EQ(old.summary().epoch, epoch);
  old.changed(fault(3, 8, 5).data(), true);
  EXPECT_EQ(old.summary().changes, 1U);
  EXPECT_EQ(old.summary().oldest, 1U);
  EXPECT_EQ(old.summary().epoch, epoch + 1);
  EXPECT_EQ(old.summary().active, 2U);
  old.load_ends(true);
  EXPECT_EQ(old.summary().active, 2U);
  EXPECT_FALSE(old.summary().complete);
}

TEST_F(FaultHistoryTest, EachHasAnEpochOfItsOwn) {
  EXPECT_NE(FaultHistory().summary().epoch, FaultHistory().summary().epoch);
}

TEST_F(FaultHistoryTest, OneThreadReportsWhileAnotherReads) {
  std::atomic<bool> done = false;
  std::thread reads([&] {
    while (!done) {
      const FaultSummary summary = history.summary();
      if (const FaultChangePtr change = history.first_change(summary.oldest); change != nullptr) {
        EXPECT_GE(change->number, summary.oldest);
      }
      static_cast<void>(history.first_active({}));
    }
  });
  for (std::uint32_t i = 0; i < 2000; ++i) {
    change(3, i % 10, i % 3);
  }
  done = true;
  reads.join();
  EXPECT_EQ(history.summary().changes, 2000U);
}

TEST(FaultReportsTest, ReachTheOneInstance) {
  const std::uint32_t changes = FaultHistory::instance().summary().changes;
  tavo_fault_load_begins();
  tavo_fault_changed(fault(3, 7, 5).data(), true);
  tavo_fault_load_ends(true);
  EXPECT_EQ(FaultHistory::instance().summary().changes, changes + 1);
  EXPECT_TRUE(FaultHistory::instance().summary().complete);
}

}  // namespace
}  // namespace tavo
