// The supplies' rows from the query tool.
#include "tables/equipment/tavoEquipmentPsuTable.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/fakes/files.h"
#include "tests/fakes/shell.h"
#include "tests/fixtures/psu_table_fixture.h"
#include "tests/fixtures/rubbish.h"

namespace tavo {
namespace {

using fakes::EquipmentPsuTableTest;
using testing::ElementsAre;
using testing::IsEmpty;

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
      " id: 1\n model: SUPPLY-800\n presence: Equipped\n power: ON\n fwVersion: 1.2\n serial: S0001\n"
      " id: 2\n model: none\n presence: missing\n power: off\n fwVersion: -\n serial: -\n"
      " id: 3\n model: SUPPLY-1600\n presence: equipped\n power: off\n fwVersion: 3.4\n serial: S0003\n");
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].index, 1U);
  EXPECT_EQ(found[0].id, 1U);
  EXPECT_STREQ(found[0].dn, "sys/rack-unit-1/psu-1");
  EXPECT_STREQ(found[0].rn, "psu-1");
  EXPECT_STREQ(found[0].model, "SUPPLY-800");
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

TEST_F(SuppliesOfTheToolTest, ASupplyWithoutAPresenceHasNoRow) {
  EXPECT_THAT(listed(" id: 1\n model: SUPPLY-800\n power: on\n"), IsEmpty());
  EXPECT_THAT(listed(" id: equipped\n model: SUPPLY-800\n"), IsEmpty()) << "another key's value is none";
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

class SuppliesFromRubbishTest : public SuppliesOfTheToolTest, public testing::WithParamInterface<fakes::Rubbish> {};

INSTANTIATE_TEST_SUITE_P(Tool, SuppliesFromRubbishTest, testing::ValuesIn(fakes::every_rubbish()),
                         fakes::rubbish_name<testing::TestParamInfo<fakes::Rubbish>>);

TEST_P(SuppliesFromRubbishTest, ADumpWithoutSuppliesGivesNoRow) {
  EXPECT_THAT(listed(GetParam().output(), GetParam().output().empty() ? -1 : 0), IsEmpty());
}

TEST_P(SuppliesFromRubbishTest, ARowTakesTheBeginningOfEachFinishedLine) {
  const std::string &output = GetParam().output();
  const std::vector<Row> found = listed(" id: 3\n presence: equipped\n power: on\n model: " + output);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].id, 3U);
  EXPECT_EQ(found[0].operability, 1);
  EXPECT_EQ(found[0].model, output.starts_with('7') && output.ends_with('\n') ? std::string(63, '7') : "");
}

}  // namespace
}  // namespace tavo
