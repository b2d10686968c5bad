#include "tables/equipment/tavoEquipmentPsuTable.h"

#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include "core/access_lock.h"
#include "tests/fakes/allocation.h"
#include "tests/fakes/clock.h"
#include "tests/fakes/files.h"
#include "tests/fakes/fru.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fixtures/psu_table_fixture.h"
#include "tests/harness/golden.h"

namespace tavo {
namespace {

using fakes::counter64;
using fakes::EquipmentPsuTableTest;
using fakes::gauge;
using fakes::integer;
using fakes::text;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::array<oid, 12> table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 15, 56};

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
                                 {6, 1, text("SUPPLY-800")},
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
                                 {6, 3, text("SUPPLY-800")},
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

TEST_F(EquipmentPsuTableTest, TheLastSupplysUnreadableModelIsTheResult) {
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
  EXPECT_STREQ(found[11].model, "SUPPLY-800");
  EXPECT_STREQ(found[11].serial, "S00012");
  EXPECT_STREQ(kept(9, power_supply_name, 64).c_str(), "PSU9");
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

TEST_F(EquipmentPsuTableTest, WaitsForTheDaemonsFilesToSettle) {
  count(0);
  rebuild(1);
  EXPECT_THAT(clock.sleeps(), ElementsAre(5));
}

TEST_F(EquipmentPsuTableTest, TheLockIsHeldFromTheWaitToTheLastRow) {
  ListLock &lock = ev_lock<56>;
  count(1);
  std::vector<int> held;
  clock.on_sleep([&](unsigned) { held.push_back(lock.hold_count()); });
  fakes::set_debugging(true);
  fakes::on_debug_message([&] { held.push_back(lock.hold_count()); });  // a row's two messages
  rebuild(1);
  EXPECT_THAT(held, ElementsAre(1, 1, 1));
  EXPECT_EQ(lock.hold_count(), 0);
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

}  // namespace
}  // namespace tavo
