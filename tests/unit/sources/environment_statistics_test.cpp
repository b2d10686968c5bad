// The two tables of temperatures, which one builder makes from two dumps.
#include "sources/environment_statistics.h"

#include <gmock/gmock.h>

#include <array>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tables/memory/tavoMemoryUnitEnvStatsTable.h"
#include "tables/processors/tavoProcessorEnvStatsTable.h"
#include "tests/fakes/allocation.h"
#include "tests/fakes/clock.h"
#include "tests/fakes/files.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/shell.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/harness/golden.h"

namespace tavo {
namespace {

using fakes::gauge;
using fakes::integer;
using fakes::text;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::array<oid, 12> memory_oid = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 30, 12};
constexpr std::array<oid, 12> processor_oid = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 41, 2};

// What both tables share, so that each rule is tested on both.
struct Case {
  const char *name;
  const char *command;
  ListLock &lock;
  const char *prefix;
  const char *suffix;
  const char *rn;
  int (*build)(int);
  std::function<std::vector<std::uint32_t>()> indices;
  std::function<std::vector<std::string>()> dns;
  std::function<std::vector<std::string>()> rns;
  std::function<std::vector<int>()> temperatures;
  std::function<std::vector<std::string>()> times;
};

void PrintTo(const Case &each_case, std::ostream *out) {
  *out << each_case.name;
}

// One member of each row, in the order in which the rows were made.
template <class Row, class Member>
auto each(Row *head, Member Row::*member) {
  std::vector<std::conditional_t<std::is_array_v<Member>, std::string, Member>> values;
  for (const Row *row = head; row != nullptr; row = row->next) {
    values.insert(values.begin(), row->*member);
  }
  return values;
}

const std::array<Case, 2> cases = {{
    {.name = "memory",
     .command = "datactl get=memoryStats | flatkv > /var/memoryStatsInventory",
     .lock = ev_lock<1>,
     .prefix = "sys/rack-unit-1/memarray-1/mem-",
     .suffix = "/dimm-env-stats",
     .rn = "dimm_env_stats",
     .build = initialize_memoryunit_envstats,
     .indices = [] { return each(tavoMemoryUnitEnvStatsTable_head, &MemoryUnitEnvStatsRow::index); },
     .dns = [] { return each(tavoMemoryUnitEnvStatsTable_head, &MemoryUnitEnvStatsRow::dn); },
     .rns = [] { return each(tavoMemoryUnitEnvStatsTable_head, &MemoryUnitEnvStatsRow::rn); },
     .temperatures = [] { return each(tavoMemoryUnitEnvStatsTable_head, &MemoryUnitEnvStatsRow::temperature); },
     .times = [] { return each(tavoMemoryUnitEnvStatsTable_head, &MemoryUnitEnvStatsRow::time_collected); }},
    {.name = "processors",
     .command = "datactl get=processorStats | flatkv > /var/processorStatsInventory",
     .lock = ev_lock<2>,
     .prefix = "sys/rack-unit-1/board/cpu-",
     .suffix = "/env-stats",
     .rn = "env_stats",
     .build = initialize_processor_envstats,
     .indices = [] { return each(tavoProcessorEnvStatsTable_head, &ProcessorEnvStatsRow::index); },
     .dns = [] { return each(tavoProcessorEnvStatsTable_head, &ProcessorEnvStatsRow::dn); },
     .rns = [] { return each(tavoProcessorEnvStatsTable_head, &ProcessorEnvStatsRow::rn); },
     .temperatures = [] { return each(tavoProcessorEnvStatsTable_head, &ProcessorEnvStatsRow::temperature); },
     .times = [] { return each(tavoProcessorEnvStatsTable_head, &ProcessorEnvStatsRow::time_collected); }},
}};

std::string unit(const std::string &id, const std::string &temperature,
                 const std::string &time = "2026-11-15T12:34:07") {
  return " id: " + id + "\n temperature: " + temperature + "\n timeCollected: " + time + "\n";
}

class EnvironmentStatisticsTest : public fakes::ModuleTest, public testing::WithParamInterface<Case> {
 protected:
  void dump(const std::string &content) { shell.prints(GetParam().command, content); }
  static std::string dn(const std::string &id) { return GetParam().prefix + id + GetParam().suffix; }

  fakes::FakeClock clock;
  fakes::FakeFiles files;
  fakes::FakeShell shell;
};

INSTANTIATE_TEST_SUITE_P(Tables, EnvironmentStatisticsTest, testing::ValuesIn(cases),
                         [](const auto &each_case) { return each_case.param.name; });

TEST_P(EnvironmentStatisticsTest, OneRowForEachUnitWithItsTemperatureRounded) {
  dump(unit("1", "41.6") + unit("3", "40.5") + unit("7", "-0.2"));
  EXPECT_EQ(GetParam().build(0), 0);
  EXPECT_THAT(GetParam().indices(), ElementsAre(1, 2, 3));
  EXPECT_THAT(GetParam().dns(), ElementsAre(dn("1"), dn("3"), dn("7")));
  EXPECT_THAT(GetParam().rns(), Each(GetParam().rn));
  EXPECT_THAT(GetParam().temperatures(), ElementsAre(42, 41, 0));
  EXPECT_THAT(shell.system_commands(), ElementsAre(GetParam().command));
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_P(EnvironmentStatisticsTest, EveryRowCarriesTheTimeOfTheFirst) {
  dump(unit("1", "41", "2026-11-15T12:00:07") + unit("2", "41", "2026-11-16T13:01:08"));
  GetParam().build(0);
  EXPECT_THAT(GetParam().times(), ElementsAre("\x07\xEA\x0B\x0F\x0C", "\x07\xEA\x0B\x0F\x0C"));
}

TEST_P(EnvironmentStatisticsTest, ADumpWithoutUnitsIsAnEmptyTable) {
  dump(" temperature: 41\n");
  EXPECT_EQ(GetParam().build(0), 0);
  EXPECT_THAT(GetParam().dns(), IsEmpty());
}

TEST_P(EnvironmentStatisticsTest, ADumpFullOfUnitsShowsTheFirstThousandOrSo) {
  std::string units;
  for (int i = 0; i < 3000; ++i) {
    units += " id: 1\n";
  }
  dump(units);
  EXPECT_EQ(GetParam().build(0), 0);
  EXPECT_EQ(GetParam().dns().size(), 1024U);
  EXPECT_THAT(fakes::log_texts(), ElementsAre("a dump lists 3000 units: only the first 1024 are shown\n"));
}

TEST_P(EnvironmentStatisticsTest, AMissingKeyLeavesItsColumnAsItIs) {
  dump(" id:\n temperature: 41\n");
  EXPECT_EQ(GetParam().build(0), 0);
  EXPECT_THAT(GetParam().dns(), ElementsAre("")) << "an id without a blank counts as a row, and has no value";
  EXPECT_THAT(GetParam().rns(), ElementsAre(""));
  EXPECT_THAT(GetParam().times(), ElementsAre(""));
}

TEST_P(EnvironmentStatisticsTest, AMissingIdIsNotThatOfTheUnitBefore) {
  dump(unit("1", "41") + " id:\n temperature: 42\n");
  EXPECT_EQ(GetParam().build(0), 0);
  EXPECT_THAT(GetParam().dns(), ElementsAre(dn("1"), ""));
}

// Lines are counted, not records: the tool is trusted to print each unit's whole record.
TEST_P(EnvironmentStatisticsTest, AUnitWithoutATemperatureGetsThatOfTheNext) {
  dump(unit("1", "41") + " id: 2\n" + unit("3", "43"));
  EXPECT_EQ(GetParam().build(0), 0);
  EXPECT_THAT(GetParam().dns(), ElementsAre(dn("1"), dn("2"), dn("3")));
  EXPECT_THAT(GetParam().temperatures(), ElementsAre(41, 43, 0));
}

TEST_P(EnvironmentStatisticsTest, AValueWithoutItsNewlineIsNotThere) {
  dump(" id: 1\n temperature: 41");
  EXPECT_EQ(GetParam().build(0), 0);
  EXPECT_THAT(GetParam().temperatures(), ElementsAre(0));
}

TEST_P(EnvironmentStatisticsTest, ALongIdIsCutOffWithTheName) {
  dump(unit(std::string(300, 'x'), "41"));
  EXPECT_EQ(GetParam().build(0), 0);
  EXPECT_THAT(GetParam().dns(), ElementsAre((GetParam().prefix + std::string(300, 'x')).substr(0, 63)));
}

TEST_P(EnvironmentStatisticsTest, AnUnreadableDumpIsTriedFiveTimesWithPauses) {
  EXPECT_EQ(GetParam().build(0), -1);
  EXPECT_THAT(shell.system_commands(), testing::AllOf(SizeIs(5), Each(GetParam().command)));
  EXPECT_THAT(clock.sleeps(), ElementsAre(5, 5, 5, 5, 5));
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_P(EnvironmentStatisticsTest, ADumpThatComesLateEndsTheTries) {
  shell.answers(GetParam().command, [](int call) { return call < 3 ? "" : unit("1", "41"); });
  EXPECT_EQ(GetParam().build(0), 0);
  EXPECT_THAT(clock.sleeps(), ElementsAre(5, 5));
  EXPECT_THAT(GetParam().temperatures(), ElementsAre(41));
}

TEST_P(EnvironmentStatisticsTest, AReloadWithoutADumpLeavesNoRow) {
  dump(unit("1", "41"));
  GetParam().build(0);
  dump("");
  EXPECT_EQ(GetParam().build(1), -1);
  EXPECT_THAT(GetParam().dns(), IsEmpty());
}

TEST_P(EnvironmentStatisticsTest, WithoutMemoryTheRowsMadeSoFarStay) {
  dump(unit("1", "41") + unit("2", "42"));
  fakes::fail_allocations(2, 1);  // the dump's text and a row, then another row
  EXPECT_EQ(GetParam().build(0), -1);
  EXPECT_THAT(GetParam().temperatures(), ElementsAre(41));
}

TEST_P(EnvironmentStatisticsTest, TheLockIsHeldWhileTheToolRunsAndFreeAfterwards) {
  ListLock &lock = GetParam().lock;
  int held = -1;
  shell.answers(GetParam().command, [&](int) {
    held = lock.hold_count();
    return unit("1", "41");
  });
  GetParam().build(0);
  EXPECT_EQ(held, 1);
  EXPECT_EQ(lock.hold_count(), 0);
}

TEST_P(EnvironmentStatisticsTest, TheLockIsFreeAfterAFailure) {
  ListLock &lock = GetParam().lock;
  EXPECT_EQ(GetParam().build(0), -1) << "no dump";
  EXPECT_EQ(lock.hold_count(), 0);
  dump(unit("1", "41"));
  fakes::fail_allocations(0);
  EXPECT_EQ(GetParam().build(0), -1) << "no memory";
  EXPECT_EQ(lock.hold_count(), 0);
}

class EnvironmentStatisticsTablesTest : public fakes::ModuleTest {
 protected:
  fakes::FakeClock clock;
  fakes::FakeFiles files;
  fakes::FakeShell shell;
};

const std::string time_collected = "\x07\xEA\x0B\x0F\x0C\x22\x07";

TEST_F(EnvironmentStatisticsTablesTest, ARowKeepsTheWholeTimeThoughItsColumnEndsAtAZero) {
  shell.prints("datactl get=memoryStats | flatkv > /var/memoryStatsInventory",
               unit("3", "36.5", "2026-11-15T10:00:15"));
  initialize_memoryunit_envstats(0);
  ASSERT_NE(tavoMemoryUnitEnvStatsTable_head, nullptr);
  EXPECT_EQ(std::string(tavoMemoryUnitEnvStatsTable_head->time_collected, 8),
            std::string("\x07\xEA\x0B\x0F\x0A\x00\x0F\x00", 8));
  tavoMemoryUnitEnvStatsTable_removeAllEntries();
}

TEST_F(EnvironmentStatisticsTablesTest, ServesEveryColumnOfTheMemoryTable) {
  shell.prints("datactl get=memoryStats | flatkv > /var/memoryStatsInventory", unit("3", "36.5"));
  EXPECT_EQ(init_tavoMemoryUnitEnvStatsTable(), 0);
  fakes::expect_table(memory_oid, {{2, 1, text("sys/rack-unit-1/memarray-1/mem-3/dimm-env-stats")},
                                   {3, 1, text("dimm_env_stats")},
                                   {4, 1, gauge(0)},
                                   {5, 1, integer(0)},
                                   {6, 1, integer(37)},
                                   {7, 1, integer(0)},
                                   {8, 1, integer(0)},
                                   {9, 1, integer(0)},
                                   {10, 1, text("")},
                                   {11, 1, text(time_collected)},
                                   {12, 1, gauge(0)}});
  EXPECT_EQ(de_register_memoryunit_envstats_table_handler(), 0);
}

TEST_F(EnvironmentStatisticsTablesTest, ServesEveryColumnOfTheProcessorTable) {
  shell.prints("datactl get=processorStats | flatkv > /var/processorStatsInventory", unit("3", "36.4"));
  EXPECT_EQ(init_tavoProcessorEnvStatsTable(), 0);
  fakes::expect_table(processor_oid, {{2, 1, text("sys/rack-unit-1/board/cpu-3/env-stats")},
                                      {3, 1, text("env_stats")},
                                      {4, 1, integer(0)},
                                      {5, 1, integer(0)},
                                      {6, 1, integer(0)},
                                      {7, 1, integer(0)},
                                      {8, 1, gauge(0)},
                                      {9, 1, integer(0)},
                                      {10, 1, integer(36)},
                                      {11, 1, integer(0)},
                                      {12, 1, integer(0)},
                                      {13, 1, integer(0)},
                                      {14, 1, text("")},
                                      {15, 1, text(time_collected)},
                                      {16, 1, gauge(0)}});
  EXPECT_EQ(de_register_processor_envstats_table_handler(), 0);
}

}  // namespace
}  // namespace tavo
