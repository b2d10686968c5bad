#include "tables/compute/tavoComputeRackUnitTable.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <string>
#include <vector>

#include "core/access_lock.h"
#include "tests/fakes/allocation.h"
#include "tests/fakes/clock.h"
#include "tests/fakes/files.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/shell.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/fixtures/rubbish.h"
#include "tests/harness/golden.h"
#include "tests/harness/own_process.h"

namespace tavo {
namespace {

using fakes::Cell;
using fakes::counter64;
using fakes::gauge;
using fakes::integer;
using fakes::text;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Row = RackUnitRow;

constexpr std::array<oid, 12> table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 9, 35};
constexpr char cpu_command[] = "datactl get=inventoryCPU | flatkv > /var/getCPUInventory";
constexpr char adaptor_command[] = "slotutil -L  | grep \"slot-number\" | wc -l";
constexpr char memory_command[] = "datactl get=inventoryMemorySummary | flatkv > /var/getMemoryInventory";

std::string value_command(const std::string &key, const std::string &separator) {
  return "datactl get=" + key + " | flatkv | grep " + key + " | awk -F\"" + separator + "\" '{print $2}'";
}

const std::string fru_command =
    "ipmitool -I bmc fru 2> /dev/null | grep \"Product Serial\" | awk -F\": \" ' NR<2 { print $2 } '";
const std::string two_processors =
    " id: 1\n CoreCount: 8\n CoreEnabled: 6\n ThreadCount: 16\n id: 2\n CoreCount: 10\n CoreEnabled: 10\n ThreadCount: "
    "20\n";
const std::string memory = " MemorySpeed: 2133 MHz\n TotalMemory: 65536 MB\n EffectiveMemory: 32768 MB\n";

class RackUnitTableTest : public fakes::ModuleTest {
 protected:
  RackUnitTableTest() {
    shell.prints(value_command("description", " "), "front\n");
    shell.prints(value_command("sysProductName", ": "), "Tavolo server A\n");
    shell.prints(value_command("sysProductID", " "), "MODEL-A\n");
    shell.prints(fru_command, "SERIAL-0001\n");
    shell.prints(value_command("UUID", " "), "0102-0304\n");
    shell.prints(value_command("pwState", " "), "1\n");
    shell.prints(adaptor_command, "3\n");
    shell.prints(cpu_command, two_processors);
    shell.prints(memory_command, memory);
    files.write("/var/vessa/dimms/low_voltage_support", "1\n");
  }

  const Row &build(int mode = 1) {
    EXPECT_EQ(initialize_rackunit_table(mode), 0);
    return *tavoComputeRackUnitTable_head;
  }

  int runs_of(const std::string &command) const {
    return static_cast<int>(std::ranges::count(shell.commands(), command));
  }

  fakes::FakeClock clock;
  fakes::FakeFiles files;
  fakes::FakeShell shell;
};

TEST_F(RackUnitTableTest, ServesEveryColumn) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  EXPECT_EQ(init_tavoComputeRackUnitTable(), 0);
  std::vector<Cell> cells = {{2, 1, text("sys/rack-unit-1")},
                             {3, 1, text("rack-unit-1")},
                             {4, 1, integer(31)},
                             {5, 1, integer(1)},
                             {8, 1, integer(1)},
                             {9, 1, gauge(32768)},
                             {13, 1, text("front")},
                             {15, 1, counter64(0)},
                             {32, 1, text("MODEL-A")},
                             {33, 1, text("Tavolo server A")},
                             {34, 1, gauge(3)},
                             {35, 1, gauge(18)},
                             {36, 1, gauge(2)},
                             {39, 1, gauge(36)},
                             {40, 1, integer(1)},
                             {42, 1, integer(10)},
                             {43, 1, integer(1)},
                             {45, 1, integer(10)},
                             {47, 1, text("SERIAL-0001")},
                             {49, 1, gauge(65536)},
                             {50, 1, text("0102-0304")},
                             {51, 1, text("Tavolo Systems Inc")},
                             {52, 1, integer(1)},
                             {53, 1, gauge(16)},
                             {54, 1, integer(1)},
                             {55, 1, gauge(2133)}};
  for (const oid column : {6, 11, 12, 16, 17, 18, 21, 22, 23, 24, 25, 28, 30, 41, 44, 46, 48, 56}) {
    cells.push_back({column, 1, text("")});
  }
  for (const oid column : {7, 10, 14, 29, 31}) {
    cells.push_back({column, 1, integer(0)});
  }
  for (const oid column : {19, 20, 26, 27, 37, 38}) {
    cells.push_back({column, 1, gauge(0)});
  }
  fakes::expect_table(table, cells);
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_EQ(de_register_ComputeRackUnit_table_handler(), 0);
}

struct Power {
  const char *state;
  std::int32_t a, known, b, c, d;
};

TEST_F(RackUnitTableTest, RemovingAllEntriesEmptiesTheTable) {
  build();
  tavoComputeRackUnitTable_removeAllEntries();
  EXPECT_EQ(tavoComputeRackUnitTable_head, nullptr);
}

TEST_F(RackUnitTableTest, PowerStatesAreMapped) {
  for (const Power &power : std::to_array<Power>({{"0\n", 32, 1, 3, 14, 4},
                                                  {"1\n", 31, 1, 1, 10, 1},
                                                  {"2\n", 32, 2, 7, 31, 3},
                                                  {"-1\n", 32, 2, 7, 31, 3},
                                                  {"off\n", 0, 1, 0, 0, 0}})) {
    shell.prints(value_command("pwState", " "), power.state);
    const Row &row = build();
    EXPECT_EQ(row.power_state_a, power.a) << power.state;
    EXPECT_EQ(row.power_known, power.known) << power.state;
    EXPECT_EQ(row.power_state_b, power.b) << power.state;
    EXPECT_EQ(row.power_state_c, power.c) << power.state;
    EXPECT_EQ(row.power_state_d, power.d) << power.state;
  }
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_F(RackUnitTableTest, TheMemoryVoltageIsOneOnlyWhenTheFileSaysSo) {
  for (const char *two : {"0\n", "3\n", "2\n", "low\n", ""}) {
    files.write("/var/vessa/dimms/low_voltage_support", two);
    EXPECT_EQ(GetMemoryVoltage(), 2) << two;
  }
  files.write("/var/vessa/dimms/low_voltage_support", " 1");
  EXPECT_EQ(GetMemoryVoltage(), 1);
  files.remove("/var/vessa/dimms/low_voltage_support");
  EXPECT_EQ(GetMemoryVoltage(), 2);
}

TEST_F(RackUnitTableTest, IdentityAndTotalsAreReadOnceForTheLifeOfTheProcess) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  build();
  shell.prints(value_command("description", " "), "back\n");
  shell.prints(value_command("sysProductName", ": "), "Another\n");
  shell.prints(value_command("sysProductID", " "), "MODEL-B\n");
  shell.prints(fru_command, "SERIAL-0002\n");
  shell.prints(value_command("UUID", " "), "9999-9999\n");
  shell.prints(value_command("pwState", " "), "0\n");
  shell.prints(adaptor_command, "9\n");
  shell.prints(cpu_command, " id: 1\n CoreCount: 1\n CoreEnabled: 1\n ThreadCount: 1\n");
  shell.prints(memory_command, " MemorySpeed: 1 MHz\n TotalMemory: 1 MB\n EffectiveMemory: 1 MB\n");
  files.write("/var/vessa/dimms/low_voltage_support", "2\n");
  const Row &row = build();
  EXPECT_STREQ(row.product_name, "Tavolo server A");
  EXPECT_STREQ(row.product_id, "MODEL-A");
  EXPECT_STREQ(row.serial, "SERIAL-0001");
  EXPECT_STREQ(row.uuid, "0102-0304");
  EXPECT_EQ(row.adaptors, 3U);
  EXPECT_EQ(row.cores, 18U);
  EXPECT_EQ(row.processors, 2U);
  EXPECT_EQ(row.threads, 36U);
  EXPECT_EQ(row.memory_speed, 2133U);
  EXPECT_EQ(row.total_memory, 65536U) << "from the memory dump of the first build";
  EXPECT_EQ(row.effective_memory, 32768U) << "from the memory dump of the first build";
}

TEST_F(RackUnitTableTest, WhatChangesWhileTheServerIsUpIsReadAtEveryBuild) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  build();
  shell.prints(value_command("description", " "), "back\n");
  shell.prints(value_command("pwState", " "), "0\n");
  shell.prints(cpu_command, " id: 1\n CoreEnabled: 1\n");
  files.write("/var/vessa/dimms/low_voltage_support", "2\n");
  const std::size_t first_build = shell.commands().size();
  const Row &row = build();
  EXPECT_STREQ(row.description, "back");
  EXPECT_EQ(row.power_state_a, 32);
  EXPECT_EQ(row.power_state_d, 4);
  EXPECT_EQ(row.cores_enabled, 1U);
  EXPECT_EQ(row.memory_voltage, 2);
  std::vector<std::string> second_build = shell.commands();
  second_build.erase(second_build.begin(), second_build.begin() + static_cast<std::ptrdiff_t>(first_build));
  EXPECT_THAT(second_build, ElementsAre(value_command("description", " "), cpu_command, value_command("pwState", " ")));
}

TEST_F(RackUnitTableTest, WithoutTheToolsTheRowStandsAfterBothRetryLoops) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  for (const std::string key : {"description", "sysProductID", "UUID", "pwState"}) {
    shell.prints(value_command(key, " "), "");
  }
  shell.prints(value_command("sysProductName", ": "), "");
  shell.prints(fru_command, "");
  shell.prints(cpu_command, "");
  shell.prints(memory_command, "");
  const Row &row = build();
  EXPECT_STREQ(row.dn, "sys/rack-unit-1");
  EXPECT_STREQ(row.vendor, "Tavolo Systems Inc");
  EXPECT_EQ(row.memory_voltage, 1);
  EXPECT_EQ(row.presence, 10);
  EXPECT_EQ(row.power_state_a, 0);
  EXPECT_EQ(row.cores, 0U);
  EXPECT_THAT(clock.sleeps(), testing::AllOf(SizeIs(10), Each(5U)));
  EXPECT_THAT(fakes::log_texts(),
              ElementsAre("SNMP:Failed description\n", "SNMP:Failed sysProductName\n", "SNMP:Failed sysProductID\n",
                          "SNMP:Failed fru\n", "SNMP:Failed UUID\n", "SNMP:Failed pwState\n"));
  EXPECT_THAT(fakes::log_lines(), Each(testing::Field(&fakes::LogLine::priority, LOG_DEBUG)));
}

TEST_F(RackUnitTableTest, TheFailedTriesCountAsTheFirstRead) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  shell.prints(memory_command, "");
  build();
  shell.prints(memory_command, memory);
  EXPECT_EQ(build().memory_speed, 0U) << "it was tried, and is not tried again";
}

TEST_F(RackUnitTableTest, AFirstReadThatLackedMemoryIsDoneAgain) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  fakes::fail_allocations(2, 1);  // the row and the dump for CoreEnabled come before the dump for CoreCount
  EXPECT_EQ(build().cores, 0U);
  EXPECT_EQ(build().cores, 18U);
}

TEST_F(RackUnitTableTest, ACoreCountThatComesLateEndsTheTries) {
  shell.answers(cpu_command, [](int call) { return call < 3 ? "" : two_processors; });
  EXPECT_EQ(build().cores_enabled, 16U);
  EXPECT_THAT(clock.sleeps(), ElementsAre(5, 5));
}

TEST_F(RackUnitTableTest, AMemorySpeedThatComesLateEndsTheTries) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  shell.answers(memory_command, [](int call) { return call < 3 ? "" : memory; });
  const Row &row = build();
  EXPECT_EQ(row.memory_speed, 2133U);
  EXPECT_EQ(row.total_memory, 65536U);
  EXPECT_THAT(clock.sleeps(), ElementsAre(5, 5));
  EXPECT_EQ(runs_of(memory_command), 3);
}

TEST_F(RackUnitTableTest, AfterFailedTriesTheTotalsAreFetchedOnceMore) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  shell.answers(memory_command, [](int call) { return call < 6 ? "" : memory; });
  const Row &row = build();
  EXPECT_EQ(row.memory_speed, 0U);
  EXPECT_EQ(row.total_memory, 65536U);
  EXPECT_EQ(row.effective_memory, 32768U);
  EXPECT_THAT(clock.sleeps(), ElementsAre(5, 5, 5, 5, 5));
  EXPECT_EQ(runs_of(memory_command), 6);
  EXPECT_EQ(build().total_memory, 65536U);
  EXPECT_EQ(runs_of(memory_command), 6) << "later builds read what the sixth run left";
}

TEST_F(RackUnitTableTest, TheLockIsHeldWhileTheToolsRunAndBetweenTheTries) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  ListLock &lock = ev_lock<9>;
  std::vector<int> held;
  const auto watch = [&](const std::string &command, const std::string &output, int late) {
    shell.answers(command, [&, output, late](int call) {
      held.push_back(lock.hold_count());
      return call <= late ? "" : output;
    });
  };
  watch(value_command("description", " "), "front\n", 0);
  watch(cpu_command, two_processors, 4);
  watch(adaptor_command, "3\n", 0);
  watch(fru_command, "SERIAL-0001\n", 0);
  watch(memory_command, memory, 5);
  watch(value_command("pwState", " "), "1\n", 0);
  clock.on_sleep([&](unsigned) { held.push_back(lock.hold_count()); });
  build();
  EXPECT_THAT(held, testing::AllOf(SizeIs(1 + 5 + 1 + 1 + 6 + 1 + 9), Each(1))) << "fifteen commands and nine pauses";
  EXPECT_EQ(lock.hold_count(), 0);
}

TEST_F(RackUnitTableTest, SumsAndCountsComeFromOneDump) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  char out[128] = {};
  EXPECT_EQ(getCPU("inventoryCPU", "CoreCount", ": ", out), 1);
  EXPECT_STREQ(out, "18");
  EXPECT_EQ(getCPUCount("inventoryCPU", "id", ": ", out), 1);
  EXPECT_STREQ(out, "2");
  EXPECT_THAT(shell.system_commands(), ElementsAre(cpu_command));
  EXPECT_EQ(getMemory("inventoryMemorySummary", "TotalMemory", ": ", out), 1);
  EXPECT_STREQ(out, "65536 MB");
  EXPECT_EQ(getMemory("inventoryMemorySummary", "NoSuchKey", ": ", out), 0);
}

TEST_F(RackUnitTableTest, AKeyThatIsTooLongIsNotAskedFor) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  files.write("/var/getCPUInventory", two_processors);
  files.write("/var/getMemoryInventory", memory);
  const std::string key(500, 'k');
  char out[128] = "before";
  EXPECT_EQ(getCPU(key.c_str(), "CoreCount", ": ", out), 0);
  EXPECT_EQ(getCPUCount(key.c_str(), "id", ": ", out), 0);
  EXPECT_EQ(getMemory(key.c_str(), "TotalMemory", ": ", out), 0);
  EXPECT_EQ(getValue(key.c_str(), "description", ": ", out), 0);
  EXPECT_STREQ(out, "before");
  EXPECT_THAT(shell.commands(), IsEmpty());
  EXPECT_THAT(fakes::log_lines(), testing::AllOf(SizeIs(4), Each(testing::Field(&fakes::LogLine::priority, LOG_ERR))));
  EXPECT_EQ(getCPU("inventoryCPU", "CoreCount", ": ", out), 1);
  EXPECT_THAT(shell.system_commands(), ElementsAre(cpu_command));
}

TEST_F(RackUnitTableTest, AValueIsTheFirstLineWithoutItsNewline) {
  shell.prints(value_command("description", ": "), "one\ntwo\n");
  char out[128] = {};
  EXPECT_EQ(getValue("description", "description", ": ", out), 1);
  EXPECT_STREQ(out, "one");
  EXPECT_EQ(getValue("fru", "Product Serial", ": ", out), 1);
  EXPECT_STREQ(out, "SERIAL-0001");
  EXPECT_EQ(getValue("nothing", "nothing", ": ", out), 0);
}

class RackUnitFromRubbishTest : public RackUnitTableTest, public testing::WithParamInterface<fakes::Rubbish> {};

INSTANTIATE_TEST_SUITE_P(Tools, RackUnitFromRubbishTest, testing::ValuesIn(fakes::every_rubbish()),
                         fakes::rubbish_name<testing::TestParamInfo<fakes::Rubbish>>);

// Texts are cut to their column, numbers to 32 bits. A query's last character is taken for its newline.
TEST_P(RackUnitFromRubbishTest, TheRowStandsWithTheBeginningOfEachLine) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  const std::string &output = GetParam().output();
  const bool numeric = output.starts_with('7');
  const bool complete = output.ends_with('\n');
  for (const std::string key : {"description", "sysProductID", "UUID", "pwState"}) {
    shell.prints(value_command(key, " "), output);
  }
  for (const std::string &command : {value_command("sysProductName", ": "), fru_command}) {
    shell.prints(command, output);
  }
  shell.prints(adaptor_command, output);
  shell.prints(cpu_command, " CoreEnabled: " + output + " CoreCount: " + output);
  shell.prints(memory_command, " MemorySpeed: " + output);
  files.write("/var/vessa/dimms/low_voltage_support", output);
  const Row &row = build();
  EXPECT_STREQ(row.dn, "sys/rack-unit-1");
  const std::string text = numeric ? std::string(complete ? 63 : 1, '7') : "";
  for (const char *column : {row.description, row.product_name, row.product_id, row.serial, row.uuid}) {
    EXPECT_EQ(column, text);
  }
  EXPECT_EQ(row.adaptors, !numeric ? 0U : complete ? static_cast<std::uint32_t>(INT_MAX) : 7U);
  const std::uint32_t figure = numeric && complete ? INT_MAX : 0;
  EXPECT_EQ(row.cores_enabled, figure);
  EXPECT_EQ(row.cores, figure);
  EXPECT_EQ(row.processors, 0U);
  EXPECT_EQ(row.memory_speed, figure);
  EXPECT_EQ(row.total_memory, 0U);
  EXPECT_EQ(row.memory_voltage, 2);
  EXPECT_EQ(row.power_known, numeric ? 2 : 1);
  EXPECT_THAT(clock.sleeps(), SizeIs(complete ? 0 : 5)) << "a memory speed needs its newline, a sum needs none";
}

TEST_P(RackUnitFromRubbishTest, DumpsWithoutTheirKeysGiveNoFigures) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  shell.prints(cpu_command, GetParam().output());
  shell.prints(memory_command, GetParam().output());
  const Row &row = build();
  EXPECT_EQ(row.cores_enabled, 0U);
  EXPECT_EQ(row.cores, 0U);
  EXPECT_EQ(row.processors, 0U);
  EXPECT_EQ(row.threads, 0U);
  EXPECT_EQ(row.memory_speed, 0U);
  EXPECT_EQ(row.effective_memory, 0U);
  EXPECT_STREQ(row.product_name, "Tavolo server A");
}

}  // namespace
}  // namespace tavo
