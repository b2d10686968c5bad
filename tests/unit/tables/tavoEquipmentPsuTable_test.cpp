#include "tables/tavoEquipmentPsuTable.h"

#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "core/access_lock.h"
#include "tests/unit/fakes/allocation.h"
#include "tests/unit/fakes/clock.h"
#include "tests/unit/fakes/files.h"
#include "tests/unit/fakes/fru.h"
#include "tests/unit/fakes/golden.h"
#include "tests/unit/fakes/module_test.h"
#include "tests/unit/fakes/mutexes.h"
#include "tests/unit/fakes/net_snmp.h"
#include "tests/unit/fakes/shell.h"

namespace {

using fakes::counter64;
using fakes::gauge;
using fakes::integer;
using fakes::text;
using testing::ElementsAre;
using testing::IsEmpty;
using Row = tavo::EquipmentPsuRow;

constexpr std::array<oid, 12> table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 15, 56};
constexpr char count_path[] = "/var/pmbus/num_psu";
constexpr int psu_type = 10;

std::string word(std::int32_t number) {
  std::string octets(sizeof number, '\0');
  std::memcpy(octets.data(), &number, sizeof number);
  return octets;
}

std::string padded(std::string text, std::size_t size) {
  text.resize(size, '\0');
  return text;
}

const std::string good(2, '\0');

// The rows that stand, in the order in which they were made.
std::vector<Row> rows() {
  std::vector<Row> found;
  for (const Row *row = tavoEquipmentPsuTable_head; row != nullptr; row = row->next) {
    found.insert(found.begin(), *row);
  }
  return found;
}

class EquipmentPsuTableTest : public fakes::ModuleTest {
 protected:
  ~EquipmentPsuTableTest() override { tavoEquipmentPsuTable_removeAllEntries(); }

  void count(std::int32_t supplies) { files.write(count_path, word(supplies)); }

  // A file of the supply that the daemon counts from 0.
  void file(int number, const std::string &name, std::string_view content) {
    files.write("/var/pmbus/ps" + std::to_string(number) + "/" + name, content);
  }

  void supply(int number, std::string_view status = good) {
    file(number, "status", status);
    file(number, "pin", "\x12\x34");
    file(number, "poutmax", "\x56\x78");
    file(number, "rev", "01.02.03");
    file(number, "model", padded("TPS-770W", 32));
    fakes::set_product_serial(psu_type, number + 1, "S000" + std::to_string(number + 1));
  }

  // A rebuild, and what it wrote to standard output.
  std::string rebuild(int expected) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(initialize_psu_table(1), expected);
    return testing::internal::GetCapturedStdout();
  }

  std::vector<Row> rebuilt(int expected = 1) {
    rebuild(expected);
    return rows();
  }

  // What is kept of the supply that the daemon counts from 0.
  static std::string kept(int number, std::size_t offset, std::size_t size) {
    return {reinterpret_cast<const char *>(m_pwrsupply[number]) + offset, size};
  }

  fakes::FakeClock clock;
  fakes::FakeFiles files;
  fakes::FakeShell shell;
};

TEST_F(EquipmentPsuTableTest, ServesEveryColumnOfEverySupply) {
  count(3);
  supply(0);
  supply(2, "\x01");
  fakes::set_product_serial(psu_type, 2, "S0002");
  fakes::set_product_serial(psu_type, 3, "S0003");
  testing::internal::CaptureStdout();
  ASSERT_EQ(init_tavoEquipmentPsuTable(), 1);
  testing::internal::GetCapturedStdout();

  fakes::expect_table(table, {
                                 {2, 1, text("sys/rack-unit-1/psu-1")},
                                 {3, 1, text("psu-1")},
                                 {4, 1, counter64(0)},
                                 {5, 1, gauge(1)},
                                 {6, 1, text("TPS-770W")},
                                 {7, 1, integer(1)},
                                 {8, 1, integer(1)},
                                 {9, 1, integer(0)},
                                 {10, 1, integer(4)},
                                 {11, 1, integer(10)},
                                 {12, 1, text("01.02.03")},
                                 {13, 1, text("S0001")},
                                 {14, 1, integer(0)},
                                 {15, 1, text("unknown")},
                                 {16, 1, integer(0)},
                                 {2, 2, text("sys/rack-unit-1/psu-2")},
                                 {3, 2, text("psu-2")},
                                 {4, 2, counter64(0)},
                                 {5, 2, gauge(2)},
                                 {6, 2, text("")},
                                 {7, 2, integer(6)},
                                 {8, 2, integer(6)},
                                 {9, 2, integer(0)},
                                 {10, 2, integer(6)},
                                 {11, 2, integer(11)},
                                 {12, 2, text("")},
                                 {13, 2, text("S0002")},
                                 {14, 2, integer(0)},
                                 {15, 2, text("unknown")},
                                 {16, 2, integer(0)},
                                 {2, 3, text("sys/rack-unit-1/psu-3")},
                                 {3, 3, text("psu-3")},
                                 {4, 3, counter64(0)},
                                 {5, 3, gauge(3)},
                                 {6, 3, text("TPS-770W")},
                                 {7, 3, integer(5)},
                                 {8, 3, integer(3)},
                                 {9, 3, integer(0)},
                                 {10, 3, integer(5)},
                                 {11, 3, integer(10)},
                                 {12, 3, text("01.02.03")},
                                 {13, 3, text("S0003")},
                                 {14, 3, integer(0)},
                                 {15, 3, text("unknown")},
                                 {16, 3, integer(0)},
                             });
}

TEST_F(EquipmentPsuTableTest, OnePresentAndOneMissingOfTwo) {
  count(2);
  file(0, "status", good);
  const std::vector<Row> found = rebuilt(-1);  // the model of the last present supply could not be read
  ASSERT_EQ(found.size(), 2U);
  EXPECT_STREQ(found[0].rn, "psu-1");
  EXPECT_EQ(found[0].presence, 10);
  EXPECT_EQ(found[0].operability, 1);
  EXPECT_EQ(found[0].oper_state, 1);
  EXPECT_EQ(found[0].power, 4);
  EXPECT_STREQ(found[1].rn, "psu-2");
  EXPECT_EQ(found[1].presence, 11);
  EXPECT_EQ(found[1].operability, 6);
  EXPECT_EQ(found[1].oper_state, 6);
  EXPECT_EQ(found[1].power, 6);
}

TEST_F(EquipmentPsuTableTest, EveryStatusButTwoZeroOctetsIsAFault) {
  using namespace std::string_view_literals;
  for (const std::string_view status : {"\x01\0"sv, "\0\x01"sv, "\0\x80"sv, "\xFF\xFF"sv, "\0"sv, ""sv, "00"sv}) {
    count(1);
    supply(0, status);
    const std::vector<Row> found = rebuilt();
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].presence, 10);
    EXPECT_EQ(found[0].operability, 5);
    EXPECT_EQ(found[0].oper_state, 3);
    EXPECT_EQ(found[0].power, 5);
    EXPECT_STREQ(found[0].firmware_version, "01.02.03");
    EXPECT_EQ(kept(0, tavo::power_supply_fault, 1), "\x01");
    EXPECT_EQ(kept(0, tavo::power_supply_input, 2), std::string(2, '\0'));
    EXPECT_EQ(kept(0, tavo::power_supply_max_power, 2), std::string(2, '\0'));
    EXPECT_EQ(fakes::opens_of("/var/pmbus/ps0/pin"), 0);
    EXPECT_EQ(fakes::opens_of("/var/pmbus/ps0/poutmax"), 0);
  }
  supply(0, std::string(3, '\0'));
  EXPECT_EQ(rebuilt().at(0).operability, 1);
}

TEST_F(EquipmentPsuTableTest, AStatusThatIsThereButCannotBeOpenedIsAFault) {
  count(1);
  supply(0);
  fakes::refuse_open("/var/pmbus/ps0/status", EACCES);
  EXPECT_EQ(rebuilt().at(0).operability, 5);
  EXPECT_EQ(rebuilt().at(0).presence, 10);
}

TEST_F(EquipmentPsuTableTest, KeepsWhatItReadOfASupply) {
  count(2);
  supply(1);
  rebuild(1);
  EXPECT_EQ(kept(0, 0, tavo::power_supply_size), std::string(tavo::power_supply_size, '\0'));
  EXPECT_EQ(kept(1, 0, 9), std::string("\0\x12\x34\0\0\x56\x78\0\0", 9));
  EXPECT_EQ(kept(1, tavo::power_supply_revision, 9), std::string("01.02.03\0", 9));
  EXPECT_STREQ(kept(1, tavo::power_supply_name, 64).c_str(), "PSU1");
  EXPECT_EQ(kept(1, tavo::power_supply_model, 32), padded("TPS-770W", 32));
  EXPECT_EQ(sizeof m_pwrsupply, 1780U);
}

TEST_F(EquipmentPsuTableTest, UnreadableFilesHaveTheirDefaults) {
  count(1);
  supply(0);
  for (const char *name : {"pin", "poutmax", "rev"}) {
    files.remove(std::string("/var/pmbus/ps0/") + name);
  }
  EXPECT_STREQ(rebuilt().at(0).firmware_version, "00.00.00");
  EXPECT_EQ(kept(0, tavo::power_supply_input, 2), std::string(2, '\0'));
  EXPECT_EQ(kept(0, tavo::power_supply_max_power, 2), "\xFF\xFF");

  for (const char *name : {"pin", "poutmax", "rev"}) {
    file(0, name, "x");
  }
  EXPECT_STREQ(rebuilt().at(0).firmware_version, "00.00.00");
  EXPECT_EQ(kept(0, tavo::power_supply_input, 2), std::string(2, '\0'));
  EXPECT_EQ(kept(0, tavo::power_supply_max_power, 2), "\xFF\xFF");

  for (const char *name : {"pin", "poutmax", "rev"}) {
    files.remove(std::string("/var/pmbus/ps0/") + name);
    files.make_directory(std::string("/var/pmbus/ps0/") + name);
  }
  EXPECT_STREQ(rebuilt().at(0).firmware_version, "00.00.00");
}

TEST_F(EquipmentPsuTableTest, AFaultySupplyKeepsItsRevision) {
  count(1);
  supply(0, "\xFF\xFF");
  EXPECT_STREQ(rebuilt().at(0).firmware_version, "01.02.03");
  files.remove("/var/pmbus/ps0/rev");
  EXPECT_STREQ(rebuilt().at(0).firmware_version, "00.00.00");
}

TEST_F(EquipmentPsuTableTest, AMissingProductAreaGivesTheSerialInCapitals) {
  count(1);
  supply(0);
  fakes::reset_fru();
  const std::vector<Row> found = rebuilt();
  ASSERT_EQ(found.size(), 1U);
  EXPECT_STREQ(found[0].serial, "UNKNOWN");
  EXPECT_STREQ(found[0].vendor, "unknown");
  EXPECT_THAT(fakes::product_area_calls(), ElementsAre(std::pair(psu_type, 1)));
}

TEST_F(EquipmentPsuTableTest, TextsWithoutANulEndWithTheirField) {
  count(1);
  supply(0);
  file(0, "rev", "0123456789");
  file(0, "model", std::string(40, 'M'));
  fakes::set_product_serial(psu_type, 1, std::string(32, 'S'));
  const std::vector<Row> found = rebuilt();
  ASSERT_EQ(found.size(), 1U);
  EXPECT_STREQ(found[0].firmware_version, "01234567");
  EXPECT_EQ(found[0].model, std::string(32, 'M'));
  EXPECT_EQ(found[0].serial, std::string(31, 'S'));
}

TEST_F(EquipmentPsuTableTest, NoSuppliesGiveAnEmptyTableAndSuccess) {
  for (const std::int32_t none : {0, -1, INT32_MIN}) {
    count(none);
    EXPECT_EQ(rebuild(1), "InventoryPSUviaPMBUSDaemon\nInventoryPSUviaPMBUSDaemon(0)\n");
    EXPECT_THAT(rows(), IsEmpty());
  }
}

TEST_F(EquipmentPsuTableTest, WithoutANumberOfSuppliesTheBuildFails) {
  EXPECT_EQ(rebuild(-1),
            "InventoryPSUviaPMBUSDaemon\nNUM_PSU_FILE not found No such file or directory\n"
            "InventoryPSUviaPMBUSDaemon(-1)\n");
  count(1);
  fakes::refuse_open(count_path, EACCES);
  EXPECT_EQ(rebuild(-1), "InventoryPSUviaPMBUSDaemon\nInventoryPSUviaPMBUSDaemon(-1)\n");
  EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(EquipmentPsuTableTest, AShortNumberOfSuppliesIsTheResult) {
  supply(0);
  for (std::size_t length = 0; length <= 4; ++length) {
    files.write(count_path, word(1).substr(0, length));
    const int result = length == 4 ? 0 : static_cast<int>(length);
    EXPECT_EQ(rebuild(result == 0 ? 1 : -1),
              "InventoryPSUviaPMBUSDaemon\nInventoryPSUviaPMBUSDaemon(" + std::to_string(result) + ")\n");
    EXPECT_EQ(rows().size(), length == 4 ? 1U : 0U);
  }
}

TEST_F(EquipmentPsuTableTest, ANumberFileThatIsADirectoryCannotBeRead) {
  files.make_directory(count_path);
  EXPECT_EQ(rebuild(-1), "InventoryPSUviaPMBUSDaemon\nInventoryPSUviaPMBUSDaemon(-1)\n");
}

TEST_F(EquipmentPsuTableTest, AnUnreadableModelOfTheLastPresentSupplyIsTheResultThoughTheRowsStand) {
  count(3);
  supply(0);
  supply(1);
  file(1, "model", "short");
  EXPECT_EQ(rebuild(-1), "InventoryPSUviaPMBUSDaemon\nInventoryPSUviaPMBUSDaemon(5)\n");
  EXPECT_EQ(rows().size(), 3U);
  EXPECT_STREQ(rows()[1].model, "short");

  files.remove("/var/pmbus/ps1/model");
  EXPECT_EQ(rebuild(-1), "InventoryPSUviaPMBUSDaemon\nInventoryPSUviaPMBUSDaemon(-1)\n");
  EXPECT_EQ(rows().size(), 3U);

  supply(2);
  EXPECT_EQ(rebuild(1), "InventoryPSUviaPMBUSDaemon\nInventoryPSUviaPMBUSDaemon(0)\n");
  EXPECT_EQ(rows().size(), 3U);
}

TEST_F(EquipmentPsuTableTest, MoreThanTenSuppliesHaveRowsButNothingIsKeptOfThem) {
  count(12);
  for (int number = 0; number < 12; ++number) {
    supply(number);
  }
  const std::vector<Row> found = rebuilt();
  ASSERT_EQ(found.size(), 12U);
  EXPECT_EQ(found[9].index, 10U);
  EXPECT_EQ(found[11].index, 12U);
  EXPECT_EQ(found[11].id, 12U);
  EXPECT_STREQ(found[11].model, "TPS-770W");
  EXPECT_STREQ(found[11].serial, "S00012");
  EXPECT_STREQ(kept(9, tavo::power_supply_name, 64).c_str(), "PSU9");
}

TEST_F(EquipmentPsuTableTest, NamesKeepOneDigit) {
  count(12);
  const std::vector<Row> found = rebuilt();
  ASSERT_EQ(found.size(), 12U);
  EXPECT_STREQ(found[8].dn, "sys/rack-unit-1/psu-9");
  EXPECT_STREQ(found[8].rn, "psu-9");
  EXPECT_STREQ(found[11].dn, "sys/rack-unit-1/psu-1");
  EXPECT_STREQ(found[11].rn, "psu-1");
}

TEST_F(EquipmentPsuTableTest, AGarbledNumberOfSuppliesEnds) {
  files.write(count_path, "9999");
  EXPECT_EQ(rebuilt().size(), 255U);
}

TEST_F(EquipmentPsuTableTest, EveryBuildClearsWhatWasKept) {
  count(2);
  supply(0);
  supply(1);
  rebuild(1);
  count(1);
  rebuild(1);
  EXPECT_EQ(kept(1, 0, tavo::power_supply_size), std::string(tavo::power_supply_size, '\0'));
}

TEST_F(EquipmentPsuTableTest, WaitsForTheDaemonsFilesToSettle) {
  count(0);
  rebuild(1);
  EXPECT_THAT(clock.sleeps(), ElementsAre(5));
}

TEST_F(EquipmentPsuTableTest, OnlyModeOneRemovesTheRowsThatStand) {
  count(1);
  supply(0);
  rebuild(1);
  testing::internal::CaptureStdout();
  EXPECT_EQ(initialize_psu_table(0), 1);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(rows().size(), 2U);
  EXPECT_EQ(rebuilt().size(), 1U);
}

TEST_F(EquipmentPsuTableTest, WithoutTheLockNothingIsDone) {
  count(1);
  supply(0);
  rebuild(1);
  fakes::fail_next_mutex_call(EDEADLK);
  EXPECT_EQ(initialize_psu_table(1), 1);
  EXPECT_EQ(clock.sleeps().size(), 1U);
  EXPECT_EQ(rows().size(), 1U);
  fakes::fail_next_mutex_call(EDEADLK);
  EXPECT_EQ(tavoEquipmentPsuTable_removeEntry(tavoEquipmentPsuTable_head), EDEADLK);
  EXPECT_EQ(tavoEquipmentPsuTable_removeEntry(tavoEquipmentPsuTable_head), 0);
  EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(EquipmentPsuTableTest, WithoutMemoryTheBuildFails) {
  count(2);
  supply(0);
  supply(1);
  fakes::fail_allocations(0, 1);
  EXPECT_EQ(rebuild(-1), "");
  fakes::fail_allocations(1, 1);
  rebuild(1);
  ASSERT_EQ(rows().size(), 1U);
  EXPECT_EQ(rows()[0].index, 2U);
}

TEST_F(EquipmentPsuTableTest, TracesItsEntryPointsWhenDebugging) {
  count(1);
  fakes::set_debugging(true);
  testing::internal::CaptureStdout();
  init_tavoEquipmentPsuTable();
  testing::internal::GetCapturedStdout();
  tavoEquipmentPsuTable_removeEntry(tavoEquipmentPsuTable_head);
  fakes::set_debugging(false);
  std::vector<std::string> functions;
  for (const fakes::Trace &trace : fakes::traces()) {
    if (trace.source == "tavoEquipmentPsuTable") {
      functions.push_back(trace.function);
    }
  }
  EXPECT_THAT(functions, ElementsAre("initialize_table_tavoEquipmentPsuTable", "tavoEquipmentPsuTable_createEntry",
                                     "tavoEquipmentPsuTable_removeEntry"));
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

// The query tool's way to the same rows.
class SuppliesOfTheToolTest : public EquipmentPsuTableTest {
 protected:
  static constexpr char command[] =
      "/usr/local/bin/datactl get=tavPowerStates | /usr/local/bin/flatkv > /var/getPSUInventory";

  std::vector<Row> listed(const std::string &dump, int expected = 0) {
    shell.prints(command, dump);
    Row scratch = {};
    EXPECT_EQ(InventoryPSUviaMCTools(&scratch), expected);
    return rows();
  }
};

TEST_F(SuppliesOfTheToolTest, ListsTheEquippedOnes) {
  const std::vector<Row> found = listed(
      " id: 1\n model: TPS-770W\n presence: Equipped\n power: ON\n fwVersion: 1.2\n serial: S0001\n"
      " id: 2\n model: none\n presence: missing\n power: off\n fwVersion: -\n serial: -\n"
      " id: 3\n model: TPS-1400W\n presence: equipped\n power: off\n fwVersion: 3.4\n serial: S0003\n");
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].index, 1U);
  EXPECT_EQ(found[0].id, 1U);
  EXPECT_STREQ(found[0].dn, "sys/rack-unit-1/psu-1");
  EXPECT_STREQ(found[0].rn, "psu-1");
  EXPECT_STREQ(found[0].model, "TPS-770W");
  EXPECT_EQ(found[0].operability, 1);
  EXPECT_EQ(found[0].oper_state, 1);
  EXPECT_EQ(found[0].power, 4);
  EXPECT_EQ(found[0].presence, 10);
  EXPECT_STREQ(found[0].firmware_version, "1.2");
  EXPECT_STREQ(found[0].serial, "S0001");
  EXPECT_STREQ(found[0].vendor, "unknown");
  EXPECT_EQ(found[1].index, 2U);
  EXPECT_EQ(found[1].id, 3U);
  EXPECT_STREQ(found[1].rn, "psu-3");
  EXPECT_EQ(found[1].operability, 5);
  EXPECT_EQ(found[1].oper_state, 3);
  EXPECT_EQ(found[1].power, 5);
  EXPECT_STREQ(found[1].firmware_version, "3.4");
  EXPECT_THAT(shell.commands(), ElementsAre(command));
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(SuppliesOfTheToolTest, WhatIsMissingHasItsDefault) {
  const std::vector<Row> found = listed(" id: 4\n presence: EQUIPPED\n");
  ASSERT_EQ(found.size(), 1U);
  EXPECT_STREQ(found[0].model, "");
  EXPECT_EQ(found[0].operability, 5);
  EXPECT_STREQ(found[0].firmware_version, "");
  EXPECT_STREQ(found[0].serial, "");
}

TEST_F(SuppliesOfTheToolTest, ASupplyWithoutANumberHasThatOfTheOneBefore) {
  const std::vector<Row> found = listed(" id: 4\n presence: equipped\n id: none\n presence: equipped\n");
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[1].id, 4U);
  EXPECT_EQ(found[1].index, 2U);
}

TEST_F(SuppliesOfTheToolTest, ADumpWithoutSuppliesIsTheEnd) {
  EXPECT_THAT(listed("nothing\n"), IsEmpty());
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(SuppliesOfTheToolTest, AToolThatBringsNothingIsTriedThreeTimes) {
  EXPECT_THAT(listed("", -1), IsEmpty());
  EXPECT_EQ(shell.system_commands().size(), 3U);
  EXPECT_THAT(clock.sleeps(), ElementsAre(5, 5, 5));
}

TEST_F(SuppliesOfTheToolTest, AToolThatRecoversIsAskedNoMore) {
  shell.answers(command, [](int call) { return call < 3 ? "" : " id: 1\n presence: equipped\n"; });
  Row scratch = {};
  EXPECT_EQ(InventoryPSUviaMCTools(&scratch), 0);
  EXPECT_EQ(rows().size(), 1U);
  EXPECT_THAT(clock.sleeps(), ElementsAre(5, 5));
}

TEST_F(SuppliesOfTheToolTest, TheToolRunsOnceForSeveralLookups) {
  listed("", -1);
  const auto runs = shell.commands().size();
  shell.prints(command, " id: 1\n id: 2\n name: a \n");
  char out[128] = {};
  EXPECT_EQ(getPSU("id:", " ", out), 1);
  EXPECT_STREQ(out, "2");
  EXPECT_EQ(getPSU("serial:", " ", out), 1);
  EXPECT_STREQ(out, "0");
  EXPECT_EQ(shell.commands().size(), runs + 1);
}

TEST_F(SuppliesOfTheToolTest, AValueIsReadByItsOccurrenceWithoutRunningTheTool) {
  files.write("/var/getPSUInventory", " id: 1\n id: 2\n id: 3");
  char out[128] = {};
  EXPECT_EQ(getPSUData("id:", " ", 2, out), 1);
  EXPECT_STREQ(out, "2");
  EXPECT_EQ(getPSUData("id:", " ", 3, out), 0);
  EXPECT_EQ(getPSUData("id:", " ", 4, out), 0);
  EXPECT_EQ(getPSUData("id:", " ", 0, out), 1);
  EXPECT_STREQ(out, " id: 1");
  files.remove("/var/getPSUInventory");
  EXPECT_EQ(getPSUData("id:", " ", 1, out), 0);
  EXPECT_THAT(shell.commands(), IsEmpty());
}

}  // namespace
