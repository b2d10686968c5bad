#include "tables/tavoComputeRackUnitTable.h"

#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "core/access_lock.h"
#include "tests/unit/fakes/allocation.h"
#include "tests/unit/fakes/clock.h"
#include "tests/unit/fakes/files.h"
#include "tests/unit/fakes/golden.h"
#include "tests/unit/fakes/module_test.h"
#include "tests/unit/fakes/mutexes.h"
#include "tests/unit/fakes/net_snmp.h"
#include "tests/unit/fakes/shell.h"

namespace {

using fakes::Cell;
using fakes::counter64;
using fakes::gauge;
using fakes::integer;
using fakes::text;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using Row = tavo::RackUnitRow;

constexpr std::array<oid, 12> table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 9, 35};
constexpr char cpu_command[] = "datactl get=inventoryCPU | flatkv > /var/getCPUInventory";
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
    shell.prints(value_command("sysProductName", ": "), "Tavolo TS-2200\n");
    shell.prints(value_command("sysProductID", " "), "TS-2200-M4\n");
    shell.prints(fru_command, "TSX1234\n");
    shell.prints(value_command("UUID", " "), "0102-0304\n");
    shell.prints(value_command("pwState", " "), "1\n");
    shell.prints("slotutil -L  | grep \"slot-number\" | wc -l", "3\n");
    shell.prints(cpu_command, two_processors);
    shell.prints(memory_command, memory);
    files.write("/var/vessa/dimms/low_voltage_support", "1\n");
  }
  ~RackUnitTableTest() override { tavoComputeRackUnitTable_removeAllEntries(); }

  const Row &build(int mode = 1) {
    EXPECT_EQ(initialize_rackunit_table(mode), 0);
    return *tavoComputeRackUnitTable_head;
  }

  fakes::FakeClock clock;
  fakes::FakeFiles files;
  fakes::FakeShell shell;
};

TEST_F(RackUnitTableTest, ServesEveryColumn) {
  EXPECT_EQ(init_tavoComputeRackUnitTable(), 0);
  std::vector<Cell> cells = {{2, 1, text("sys/rack-unit-1")},
                             {3, 1, text("rack-unit-1")},
                             {4, 1, integer(31)},
                             {5, 1, integer(1)},
                             {8, 1, integer(1)},
                             {9, 1, gauge(32768)},
                             {13, 1, text("front")},
                             {15, 1, counter64(0)},
                             {32, 1, text("TS-2200-M4")},
                             {33, 1, text("Tavolo TS-2200")},
                             {34, 1, gauge(3)},
                             {35, 1, gauge(18)},
                             {36, 1, gauge(2)},
                             {39, 1, gauge(36)},
                             {40, 1, integer(1)},
                             {42, 1, integer(10)},
                             {43, 1, integer(1)},
                             {45, 1, integer(10)},
                             {47, 1, text("TSX1234")},
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
  build();
  shell.prints(value_command("sysProductName", ": "), "Another\n");
  shell.prints(value_command("description", " "), "back\n");
  shell.prints(cpu_command, " id: 1\n CoreCount: 1\n CoreEnabled: 1\n ThreadCount: 1\n");
  shell.prints(memory_command, " MemorySpeed: 1 MHz\n TotalMemory: 1 MB\n EffectiveMemory: 1 MB\n");
  const Row &row = build();
  EXPECT_STREQ(row.product_name, "Tavolo TS-2200");
  EXPECT_EQ(row.cores, 18U);
  EXPECT_EQ(row.memory_speed, 2133U);
  EXPECT_EQ(row.total_memory, 65536U) << "from the memory dump of the first build";
  EXPECT_STREQ(row.description, "back") << "read at every build";
  EXPECT_EQ(row.cores_enabled, 1U) << "read at every build";
}

TEST_F(RackUnitTableTest, WithoutTheToolsTheRowStandsAfterBothRetryLoops) {
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
  shell.prints(memory_command, "");
  build();
  shell.prints(memory_command, memory);
  EXPECT_EQ(build().memory_speed, 0U) << "it was tried, and is not tried again";
}

TEST_F(RackUnitTableTest, ACoreCountThatComesLateEndsTheTries) {
  shell.answers(cpu_command, [](int call) { return call < 3 ? "" : two_processors; });
  EXPECT_EQ(build().cores_enabled, 16U);
  EXPECT_THAT(clock.sleeps(), ElementsAre(5, 5));
}

TEST_F(RackUnitTableTest, ThereIsOnlyOneRow) {
  build(0);
  build(0);
  EXPECT_EQ(tavoComputeRackUnitTable_head->next, nullptr);
}

TEST_F(RackUnitTableTest, ARowIsRemovedOnlyWhenItIsTheOneListed) {
  build();
  Row stranger{};
  EXPECT_EQ(tavoComputeRackUnitTable_removeEntry(&stranger), 0);
  EXPECT_NE(tavoComputeRackUnitTable_head, nullptr);
  EXPECT_EQ(tavoComputeRackUnitTable_removeEntry(tavoComputeRackUnitTable_head), 0);
  EXPECT_EQ(tavoComputeRackUnitTable_head, nullptr);
}

TEST_F(RackUnitTableTest, WithoutMemoryTheRowIsGoneAfterAReload) {
  build();
  fakes::fail_allocations(0);
  EXPECT_EQ(initialize_rackunit_table(1), -1);
  EXPECT_EQ(tavoComputeRackUnitTable_head, nullptr);
}

TEST_F(RackUnitTableTest, WithoutItsLockNothingIsDone) {
  fakes::fail_next_mutex_call(EINVAL);
  EXPECT_EQ(initialize_rackunit_table(1), 0);
  EXPECT_THAT(shell.commands(), IsEmpty());
}

TEST_F(RackUnitTableTest, SumsAndCountsComeFromOneDump) {
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

TEST_F(RackUnitTableTest, AValueIsTheFirstLineWithoutItsNewline) {
  shell.prints(value_command("description", ": "), "one\ntwo\n");
  char out[128] = {};
  EXPECT_EQ(getValue("description", "description", ": ", out), 1);
  EXPECT_STREQ(out, "one");
  EXPECT_EQ(getValue("fru", "Product Serial", ": ", out), 1);
  EXPECT_STREQ(out, "TSX1234");
  EXPECT_EQ(getValue("nothing", "nothing", ": ", out), 0);
}

}  // namespace
