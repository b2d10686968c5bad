// The board's power and temperature rows, which one builder makes from the same dump.
#include "tables/compute/board_statistics.h"

#include <gmock/gmock.h>

#include <array>
#include <string>
#include <vector>

#include "tables/compute/tavoComputeMbPowerStatsTable.h"
#include "tables/compute/tavoComputeRackUnitMbTempStatsTable.h"
#include "tests/fakes/allocation.h"
#include "tests/fakes/clock.h"
#include "tests/fakes/files.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/shell.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/harness/golden.h"

namespace tavo {
namespace {

using fakes::Cell;
using fakes::gauge;
using fakes::integer;
using fakes::LogLine;
using fakes::text;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::array<oid, 12> power_oid = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 9, 14};
constexpr std::array<oid, 12> temperature_oid = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 9, 44};
constexpr char command[] = "datactl get=motherboardStats | flatkv > /var/motherboardStatsInventory";

const std::string power = " consumedPower: 187.5\n inputCurrent: 15.4\n inputVoltage: 12.2\n";
const std::string temperatures =
    " ambientTemp: 24.5\n frontTemp: 23.4\n iohub1Temp: 45.6\n iohub2Temp: 44.1\n rearTemp: -3.7\n";
const std::string time_line = " timeCollected: 2026-11-15T12:34:07\n";
const std::string time_collected = "\x07\xEA\x0B\x0F\x0C\x22\x07";

class BoardStatisticsTest : public fakes::ModuleTest {
 protected:
  void dump(const std::string &content) { shell.prints(command, content); }

  fakes::FakeClock clock;
  fakes::FakeFiles files;
  fakes::FakeShell shell;
};

// The table's cells: the names, then integers of 0 where nothing else is given.
std::vector<Cell> cells(const std::string &dn, const std::string &rn, oid last, const std::vector<Cell> &others) {
  std::vector<Cell> all = {{2, 1, text(dn)}, {3, 1, text(rn)}};
  for (oid column = 4; column <= last; ++column) {
    Cell cell = {column, 1, integer(0)};
    for (const Cell &other : others) {
      if (other.column == column) {
        cell = other;
      }
    }
    all.push_back(cell);
  }
  return all;
}

TEST_F(BoardStatisticsTest, ServesEveryColumnOfThePowerTable) {
  dump(power + time_line);
  EXPECT_EQ(init_tavoComputeMbPowerStatsTable(), 0);
  fakes::expect_table(power_oid, cells("sys/rack-unit-1/board/power-stats", "power-stats", 20,
                                       {{4, 1, integer(188)},
                                        {8, 1, integer(15)},
                                        {12, 1, integer(12)},
                                        {16, 1, gauge(0)},
                                        {18, 1, text("")},
                                        {19, 1, text(time_collected)},
                                        {20, 1, gauge(0)}}));
  EXPECT_EQ(de_register_computemb_powerstats_table_handler(), 0);
}

TEST_F(BoardStatisticsTest, ServesEveryColumnOfTheTemperatureTable) {
  dump(temperatures + time_line);
  EXPECT_EQ(init_tavoComputeRackUnitMbTempStatsTable(), 0);
  fakes::expect_table(temperature_oid, cells("sys/rack-unit-1/board/temp-stats", "temp-stats", 28,
                                             {{4, 1, integer(25)},
                                              {8, 1, integer(23)},
                                              {12, 1, gauge(0)},
                                              {13, 1, integer(46)},
                                              {17, 1, integer(44)},
                                              {21, 1, integer(-3)},
                                              {26, 1, text("")},
                                              {27, 1, text(time_collected)},
                                              {28, 1, gauge(0)}}));
  EXPECT_EQ(de_register_computerackunitmb_tempstats_table_handler(), 0);
}

TEST_F(BoardStatisticsTest, TheFirstOfSeveralLinesCounts) {
  dump(" ambientTemp: 20\n frontTemp: 21\n frontTemp: 99\n");
  initialize_computerackunitmb_tempstats(0);
  EXPECT_EQ(tavoComputeRackUnitMbTempStatsTable_head->front, 21);
}

TEST_F(BoardStatisticsTest, AMissingKeyIsLoggedAndItsColumnStaysZero) {
  dump(" ambientTemp: 20\n frontTemp: 21\n iohub1Temp: 45\n rearTemp: 30\n");
  initialize_computerackunitmb_tempstats(0);
  EXPECT_EQ(tavoComputeRackUnitMbTempStatsTable_head->iohub2, 0);
  EXPECT_EQ(tavoComputeRackUnitMbTempStatsTable_head->rear, 30);
  EXPECT_THAT(fakes::log_lines(), ElementsAre(LogLine{LOG_DEBUG, "SNMP:Failed iohub2Temp\n"}));
}

TEST_F(BoardStatisticsTest, EachBuildRunsTheToolOnce) {
  dump(power + temperatures + time_line);
  initialize_computemb_powerstats(0);
  initialize_computerackunitmb_tempstats(0);
  initialize_computemb_powerstats(1);
  EXPECT_THAT(shell.system_commands(), testing::AllOf(SizeIs(3), Each(command)));
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(BoardStatisticsTest, WithoutADumpTheRowIsMadeAllTheSameAfterFiveTries) {
  EXPECT_EQ(initialize_computemb_powerstats(0), 0);
  ASSERT_NE(tavoComputeMbPowerStatsTable_head, nullptr);
  EXPECT_STREQ(tavoComputeMbPowerStatsTable_head->dn, "sys/rack-unit-1/board/power-stats");
  EXPECT_EQ(tavoComputeMbPowerStatsTable_head->consumed_power, 0);
  EXPECT_THAT(clock.sleeps(), ElementsAre(5, 5, 5, 5, 5));
  EXPECT_THAT(shell.system_commands(), SizeIs(6)) << "the key behind the one waited for has the tool run once more";
  EXPECT_THAT(fakes::log_texts(), ElementsAre("SNMP:Failed inputCurrent\n", "SNMP:Failed inputVoltage\n"))
      << "the key that was waited for is not complained of";
}

TEST_F(BoardStatisticsTest, WithoutADumpEachTemperatureIsMissedAfterFiveTries) {
  EXPECT_EQ(initialize_computerackunitmb_tempstats(0), 0);
  ASSERT_NE(tavoComputeRackUnitMbTempStatsTable_head, nullptr);
  EXPECT_STREQ(tavoComputeRackUnitMbTempStatsTable_head->dn, "sys/rack-unit-1/board/temp-stats");
  EXPECT_STREQ(tavoComputeRackUnitMbTempStatsTable_head->rn, "temp-stats");
  EXPECT_EQ(tavoComputeRackUnitMbTempStatsTable_head->ambient, 0);
  EXPECT_THAT(clock.sleeps(), ElementsAre(5, 5, 5, 5, 5));
  EXPECT_THAT(shell.system_commands(), testing::AllOf(SizeIs(6), Each(command)));
  EXPECT_THAT(
      fakes::log_lines(),
      ElementsAre(LogLine{LOG_DEBUG, "SNMP:Failed frontTemp\n"}, LogLine{LOG_DEBUG, "SNMP:Failed iohub1Temp\n"},
                  LogLine{LOG_DEBUG, "SNMP:Failed iohub2Temp\n"}, LogLine{LOG_DEBUG, "SNMP:Failed rearTemp\n"}));
}

TEST_F(BoardStatisticsTest, ADumpThatComesLateEndsTheTries) {
  shell.answers(command, [](int call) { return call < 4 ? "" : power; });
  initialize_computemb_powerstats(0);
  EXPECT_EQ(tavoComputeMbPowerStatsTable_head->consumed_power, 188);
  EXPECT_THAT(clock.sleeps(), ElementsAre(5, 5, 5));
  EXPECT_THAT(shell.system_commands(), SizeIs(4));
}

TEST_F(BoardStatisticsTest, WithoutMemoryTheToolIsNotRun) {
  dump(power + temperatures);
  initialize_computemb_powerstats(0);
  initialize_computerackunitmb_tempstats(0);
  const auto runs = shell.commands();
  for (const int refresh : {0, 1}) {
    fakes::fail_allocations(0, 2);
    EXPECT_EQ(initialize_computemb_powerstats(refresh), -1);
    EXPECT_EQ(initialize_computerackunitmb_tempstats(refresh), -1);
    EXPECT_EQ(shell.commands(), runs);
    EXPECT_EQ(tavoComputeMbPowerStatsTable_head == nullptr, refresh == 1);
    EXPECT_EQ(tavoComputeRackUnitMbTempStatsTable_head == nullptr, refresh == 1);
  }
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
  EXPECT_EQ(ev_lock<4>.hold_count(), 0);
  EXPECT_EQ(ev_lock<5>.hold_count(), 0);
}

TEST_F(BoardStatisticsTest, WithoutMemoryForTheLastCopyThereIsNoRow) {
  dump(power + temperatures);
  fakes::fail_allocations(1);  // the row itself succeeds, and neither a dump nor its copy in the list does
  EXPECT_EQ(initialize_computemb_powerstats(0), -1);
  EXPECT_EQ(tavoComputeMbPowerStatsTable_head, nullptr);
  EXPECT_EQ(ev_lock<4>.hold_count(), 0);
}

TEST_F(BoardStatisticsTest, EachTableHasItsOwnLock) {
  std::vector<int> held;
  shell.answers(command, [&](int) {
    held.push_back(ev_lock<4>.hold_count());
    held.push_back(ev_lock<5>.hold_count());
    return power + temperatures;
  });
  initialize_computemb_powerstats(0);
  initialize_computerackunitmb_tempstats(0);
  EXPECT_THAT(held, ElementsAre(1, 0, 0, 1));
  EXPECT_EQ(ev_lock<4>.hold_count(), 0);
  EXPECT_EQ(ev_lock<5>.hold_count(), 0);
}

}  // namespace
}  // namespace tavo
