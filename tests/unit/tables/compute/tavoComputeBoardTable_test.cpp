#include "tables/compute/tavoComputeBoardTable.h"

#include <gmock/gmock.h>
#include <malloc.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "core/access_lock.h"
#include "tests/fakes/allocation.h"
#include "tests/fakes/clock.h"
#include "tests/fakes/fru.h"
#include "tests/fakes/mutexes.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/shell.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/harness/golden.h"

namespace tavo {
namespace {

using fakes::gauge;
using fakes::integer;
using fakes::LogLine;
using fakes::text;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Row = ComputeBoardRow;

constexpr std::array<oid, 12> table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 9, 6};

Row *make_row() {
  return static_cast<Row *>(std::calloc(1, sizeof(Row)));
}

class ComputeBoardTableTest : public fakes::ModuleTest {
 protected:
  fakes::FakeClock clock;
};

TEST_F(ComputeBoardTableTest, ServesEveryColumn) {
  fakes::set_board_area({.manufacturer = "Tavolo", .product_name = "BOARD-A", .serial = "SERIAL-0002"});
  EXPECT_EQ(init_tavoComputeBoardTable(), 0);
  fakes::expect_table(table, {{2, 1, text("sys/rack-unit-1/board")},
                              {3, 1, text("board")},
                              {4, 1, integer(100)},
                              {5, 1, gauge(1)},
                              {6, 1, text("BOARD-A")},
                              {7, 1, integer(1)},
                              {8, 1, integer(1)},
                              {9, 1, integer(1)},
                              {10, 1, integer(100)},
                              {11, 1, integer(1)},
                              {12, 1, integer(10)},
                              {13, 1, text("")},
                              {14, 1, text("SERIAL-0002")},
                              {15, 1, integer(100)},
                              {16, 1, text("Tavolo")},
                              {17, 1, integer(100)}});
  EXPECT_THAT(fakes::board_area_calls(), ElementsAre(0));
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_EQ(de_register_ComputeBoard_table_handler(), 0);
}

TEST_F(ComputeBoardTableTest, TextsAreCutToThirtyOneCharacters) {
  const std::string longest(32, 'x');
  fakes::set_board_area({.manufacturer = longest, .product_name = longest, .serial = longest});
  initialize_board_table();
  EXPECT_EQ(tavoComputeBoardTable_head->model, std::string(31, 'x'));
  EXPECT_EQ(tavoComputeBoardTable_head->serial, std::string(31, 'x'));
  EXPECT_EQ(tavoComputeBoardTable_head->vendor, std::string(31, 'x'));
}

TEST_F(ComputeBoardTableTest, ARebuildReplacesTheRow) {
  Table &board = tavoComputeBoardTable_table;
  EXPECT_EQ(board.build(0), 0);
  EXPECT_EQ(board.build(1), 0);
  ASSERT_NE(tavoComputeBoardTable_head, nullptr);
  EXPECT_EQ(tavoComputeBoardTable_head->next, nullptr);
}

TEST_F(ComputeBoardTableTest, AnUnreadableAreaLeavesTextsEmptyAfterFiveTries) {
  EXPECT_EQ(initialize_board_table(), 0);
  ASSERT_NE(tavoComputeBoardTable_head, nullptr);
  EXPECT_STREQ(tavoComputeBoardTable_head->model, "");
  EXPECT_STREQ(tavoComputeBoardTable_head->serial, "");
  EXPECT_STREQ(tavoComputeBoardTable_head->vendor, "");
  EXPECT_EQ(tavoComputeBoardTable_head->presence, 10);
  EXPECT_THAT(clock.sleeps(), ElementsAre(5, 5, 5, 5, 5));
  ASSERT_THAT(fakes::log_lines(), SizeIs(15));
  for (int i = 0; i < 15; i += 3) {
    EXPECT_EQ(fakes::log_lines()[i], (LogLine{LOG_DEBUG, "SNMP:Failed Board Model\n"}));
    EXPECT_EQ(fakes::log_lines()[i + 1], (LogLine{LOG_DEBUG, "SNMP:Failed Board Serial\n"}));
    EXPECT_EQ(fakes::log_lines()[i + 2], (LogLine{LOG_DEBUG, "SNMP:Failed Board Vendor\n"}));
  }
}

TEST_F(ComputeBoardTableTest, AnAreaThatComesLateEndsTheTries) {
  fakes::set_board_area({.manufacturer = "Tavolo", .product_name = "BOARD-A", .serial = "SERIAL-0002"});
  fakes::fail_board_area(2);
  initialize_board_table();
  EXPECT_STREQ(tavoComputeBoardTable_head->model, "BOARD-A");
  EXPECT_THAT(clock.sleeps(), ElementsAre(5, 5));
}

// The holder counts of all list locks, added up.
int held_locks() {
  int held = 0;
  for (const Table *each : all_tables()) {
    held += each->lock().hold_count();
  }
  return held;
}

TEST_F(ComputeBoardTableTest, NoLockIsHeldWhileTheAreaIsAwaited) {
  fakes::set_board_area({.manufacturer = "Tavolo", .product_name = "BOARD-A", .serial = "SERIAL-0002"});
  fakes::fail_board_area(2);
  std::vector<int> held;
  fakes::on_log([&held](const LogLine &) { held.push_back(held_locks()); });
  clock.on_sleep([&held](unsigned) { held.push_back(held_locks()); });
  EXPECT_EQ(init_tavoComputeBoardTable(), 0);
  EXPECT_THAT(held, ElementsAre(0, 0, 0, 0, 0, 0, 0, 0)) << "three lines and a pause for each failure";
}

TEST_F(ComputeBoardTableTest, WithoutMemoryThereIsNoRow) {
  fakes::fail_allocations(0, 1);
  EXPECT_EQ(initialize_board_table(), -1);
  EXPECT_EQ(tavoComputeBoardTable_head, nullptr);
}

TEST_F(ComputeBoardTableTest, WithoutItsLockTheRowIsFreedAndTheTableStaysEmpty) {
  fakes::set_board_area({.manufacturer = "Tavolo", .product_name = "BOARD-A", .serial = "SERIAL-0002"});
  fakes::fail_next_mutex_call(EINVAL);
  EXPECT_EQ(initialize_board_table(), 0);
  EXPECT_EQ(tavoComputeBoardTable_head, nullptr);
}

TEST_F(ComputeBoardTableTest, ARowThatCannotBeListedIsFreed) {
  const auto allocated = [] { return ::mallinfo2().uordblks; };
  const std::size_t before = allocated();
  for (int i = 0; i < 1000; ++i) {
    fakes::fail_next_mutex_call(EINVAL);
    EXPECT_EQ(tavoComputeBoardTable_createEntry(make_row()), nullptr);
  }
  EXPECT_LT(allocated(), before + 100 * sizeof(Row)) << "the sanitizer's own allocator counts nothing, but finds leaks";
}

TEST_F(ComputeBoardTableTest, ARowGoesInFrontOfTheOneThatStands) {
  Row *first = tavoComputeBoardTable_createEntry(make_row());
  Row *second = tavoComputeBoardTable_createEntry(make_row());
  EXPECT_EQ(tavoComputeBoardTable_head, second);
  EXPECT_EQ(second->next, first);
  EXPECT_EQ(tavoComputeBoardTable_createEntry(nullptr), nullptr);
}

TEST_F(ComputeBoardTableTest, ALookupRunsTheToolAndDropsTheNewline) {
  fakes::FakeShell shell;
  shell.prints("datactl get=UUID | flatkv | grep UUID|awk -F\": \" '{print $2}'", "42-43\nsecond\n");
  char out[128] = {};
  EXPECT_EQ(GetValueFromGDS("UUID", ": ", out), 1);
  EXPECT_STREQ(out, "42-43");
  EXPECT_EQ(GetValueFromGDS("pwState", ": ", out), 0) << "nothing printed";
}

TEST_F(ComputeBoardTableTest, AKeyThatIsTooLongIsNotAskedFor) {
  const fakes::FakeShell shell;
  char out[128] = "before";
  EXPECT_EQ(GetValueFromGDS(std::string(400, 'k').c_str(), ": ", out), 0);
  EXPECT_STREQ(out, "before");
  EXPECT_THAT(shell.commands(), testing::IsEmpty());
  EXPECT_THAT(fakes::log_lines(), testing::ElementsAre(testing::Field(&fakes::LogLine::priority, LOG_ERR)));
}

TEST_F(ComputeBoardTableTest, AnyCommandsFirstLineCanBeHad) {
  fakes::FakeShell shell;
  shell.prints("uptime", std::string(200, 'x') + "\n");
  char out[128] = {};
  EXPECT_EQ(PipetoOutput("uptime", out), 1);
  EXPECT_EQ(out, std::string(126, 'x')) << "127 characters are read, and the last one is dropped";
  EXPECT_EQ(PipetoOutput("false", out), 0);
}

}  // namespace
}  // namespace tavo
