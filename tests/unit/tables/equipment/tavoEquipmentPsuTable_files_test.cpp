// What the PMBus daemon's files and the FRU area say of one supply.
#include "tables/equipment/tavoEquipmentPsuTable.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/fakes/files.h"
#include "tests/fakes/fru.h"
#include "tests/fixtures/psu_table_fixture.h"
#include "tests/fixtures/rubbish.h"

namespace tavo {
namespace {

using fakes::EquipmentPsuTableTest;
using testing::ElementsAre;

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
    EXPECT_EQ(kept(0, power_supply_fault, 1), "\x01");
    EXPECT_EQ(kept(0, power_supply_input, 2), std::string(2, '\0'));
    EXPECT_EQ(kept(0, power_supply_max_power, 2), std::string(2, '\0'));
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
  EXPECT_EQ(kept(0, 0, power_supply_size), std::string(power_supply_size, '\0'));
  EXPECT_EQ(kept(1, 0, 9), std::string("\0\x12\x34\0\0\x56\x78\0\0", 9));
  EXPECT_EQ(kept(1, power_supply_revision, 9), std::string("01.02.03\0", 9));
  EXPECT_STREQ(kept(1, power_supply_name, 64).c_str(), "PSU1");
  EXPECT_EQ(kept(1, power_supply_model, 32), padded("SUPPLY-800", 32));
  EXPECT_EQ(sizeof m_pwrsupply, 1780U);
}

TEST_F(EquipmentPsuTableTest, UnreadableFilesHaveTheirDefaults) {
  count(1);
  supply(0);
  for (const char *name : {"pin", "poutmax", "rev"}) {
    files.remove(std::string("/var/pmbus/ps0/") + name);
  }
  EXPECT_STREQ(rebuilt().at(0).firmware_version, "00.00.00");
  EXPECT_EQ(kept(0, power_supply_input, 2), std::string(2, '\0'));
  EXPECT_EQ(kept(0, power_supply_max_power, 2), "\xFF\xFF");

  for (const char *name : {"pin", "poutmax", "rev"}) {
    file(0, name, "x");
  }
  EXPECT_STREQ(rebuilt().at(0).firmware_version, "00.00.00");
  EXPECT_EQ(kept(0, power_supply_input, 2), std::string(2, '\0'));
  EXPECT_EQ(kept(0, power_supply_max_power, 2), "\xFF\xFF");

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

TEST_F(EquipmentPsuTableTest, EveryBuildClearsWhatWasKept) {
  count(2);
  supply(0);
  supply(1);
  rebuild(1);
  count(1);
  rebuild(1);
  EXPECT_EQ(kept(1, 0, power_supply_size), std::string(power_supply_size, '\0'));
}

class SupplyFilesOfRubbishTest : public EquipmentPsuTableTest, public testing::WithParamInterface<fakes::Rubbish> {};

INSTANTIATE_TEST_SUITE_P(Files, SupplyFilesOfRubbishTest, testing::ValuesIn(fakes::every_rubbish()),
                         fakes::rubbish_name<testing::TestParamInfo<fakes::Rubbish>>);

TEST_P(SupplyFilesOfRubbishTest, TheNumberFileIsFourOctetsOrNoNumber) {
  const std::string &output = GetParam().output();
  files.write(count_path, output);
  const bool numeric = output.starts_with('7');
  const bool whole = output.size() >= 4;
  rebuild(numeric && !whole ? -1 : 1);
  EXPECT_EQ(rows().size(), numeric && whole ? 255U : 0U);
}

TEST_P(SupplyFilesOfRubbishTest, ASupplysFilesGiveTheirFirstOctets) {
  const std::string &output = GetParam().output();
  count(1);
  supply(0);
  file(0, "rev", output);
  file(0, "model", output);
  const bool whole = output.size() >= 32;
  const int result = whole || output.empty() ? 1 : -1;  // an empty model file is not a failure
  const std::vector<Row> found = rebuilt(result);
  ASSERT_EQ(found.size(), 1U);
  const bool numeric = output.starts_with('7');
  EXPECT_STREQ(found[0].firmware_version, !whole ? "00.00.00" : numeric ? "77777777" : "");
  EXPECT_EQ(found[0].model, numeric ? std::string(whole ? 32 : 2, '7') : "");

  file(0, "status", output);
  EXPECT_EQ(rebuilt(result).at(0).operability, whole && !numeric ? 1 : 5);
}

}  // namespace
}  // namespace tavo
