#include "tables/storage/tavoStorageRaidBatteryTable.h"

#include <gmock/gmock.h>

#include <array>
#include <string>

#include "tests/fakes/allocation.h"
#include "tests/fixtures/storage_tables_fixture.h"
#include "tests/harness/golden.h"

namespace tavo {
namespace {

using fakes::controller;
using fakes::counter64;
using fakes::gauge;
using fakes::integer;
using fakes::rows;
using fakes::text;

constexpr std::array<oid, 12> table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 45, 11};

class StorageRaidBatteryTableTest : public fakes::StorageTableTest {
 protected:
  static fakes::StorRecord with_battery(const std::string &location, std::uint32_t type, std::uint32_t state) {
    return controller(location)
        .number(STOR_BATTERY_PRESENT, 1)
        .number(STOR_BATTERY_TYPE, type)
        .number(STOR_BATTERY_STATE, state);
  }
};

TEST_F(StorageRaidBatteryTableTest, ServesEveryColumnOfEveryBattery) {
  init_tavoStorageRaidBatteryTable();
  rebuild({with_battery("SLOT-4", 8, 1), with_battery("", 2, 0)});
  fakes::expect_table(table, {
                                 {2, 1, text("sys/rack-unit-1/board/storage-SAS-SLOT-4/raid-battery")},
                                 {3, 1, text("raid-battery")},
                                 {4, 1, gauge(0)},
                                 {5, 1, integer(0)},
                                 {6, 1, gauge(1)},
                                 {7, 1, text("TMM-C SuperCap")},
                                 {8, 1, counter64(0)},
                                 {9, 1, integer(3)},
                                 {10, 1, integer(10)},
                                 {11, 1, text("unknown")},
                                 {12, 1, text("unknown")},
                                 {13, 1, counter64(0)},
                                 {14, 1, text("unknown")},
                                 {2, 2, text("sys/rack-unit-1/board/storage-SAS-SAS/raid-battery")},
                                 {3, 2, text("raid-battery")},
                                 {4, 2, gauge(0)},
                                 {5, 2, integer(0)},
                                 {6, 2, gauge(1)},
                                 {7, 2, text("iBBU")},
                                 {8, 2, counter64(0)},
                                 {9, 2, integer(1)},
                                 {10, 2, integer(10)},
                                 {11, 2, text("unknown")},
                                 {12, 2, text("unknown")},
                                 {13, 2, counter64(0)},
                                 {14, 2, text("unknown")},
                             });
  const auto beside = fakes::get({fakes::cell(table, 1, 1), fakes::cell(table, 15, 1), fakes::cell(table, 2, 3)});
  ASSERT_EQ(beside.answers.size(), 3U);
  EXPECT_EQ(beside.answers[0].value, fakes::no_such_object);
  EXPECT_EQ(beside.answers[1].value, fakes::no_such_object);
  EXPECT_EQ(beside.answers[2].value, fakes::no_such_instance);
}

TEST_F(StorageRaidBatteryTableTest, ControllersWithoutABatteryUseUpNoIndex) {
  rebuild({controller("A"), with_battery("B", 1, 1), controller("C")});
  ASSERT_EQ(rows(tavoStorageRaidBatteryTable_head), 1U);
  EXPECT_EQ(tavoStorageRaidBatteryTable_head->index, 1U);
  EXPECT_STREQ(tavoStorageRaidBatteryTable_head->dn, "sys/rack-unit-1/board/storage-SAS-B/raid-battery");
}

TEST_F(StorageRaidBatteryTableTest, OnlyThePresentWordOneIsABattery) {
  for (const std::uint32_t word : {0U, 2U, 0x101U, 0xFFFFFFFFU}) {
    rebuild({controller("A").number(STOR_BATTERY_PRESENT, word)});
    EXPECT_EQ(rows(tavoStorageRaidBatteryTable_head), 0U) << word;
  }
}

TEST_F(StorageRaidBatteryTableTest, EveryTypeCodeHasItsName) {
  const std::array<const char *, 9> names = {"unknown", "NoBattery", "iBBU",   "BBU",           "ZCRLegacy",
                                             "iTBBU3",  "iBBU08",    "iBBU09", "TMM-C SuperCap"};
  for (std::uint32_t code = 0; code < names.size(); ++code) {
    rebuild({with_battery("", code, 1)});
    EXPECT_STREQ(tavoStorageRaidBatteryTable_head->type, names[code]);
  }
  for (const std::uint32_t code : {9U, 255U, 0xFFFFFFFFU}) {
    rebuild({with_battery("", code, 1)});
    EXPECT_STREQ(tavoStorageRaidBatteryTable_head->type, "unknown") << code;
  }
}

TEST_F(StorageRaidBatteryTableTest, OnlyTheStateOneIsOperable) {
  for (const std::uint32_t state : {0U, 2U, 0xFFFFFFFFU}) {
    rebuild({with_battery("", 1, state)});
    EXPECT_EQ(tavoStorageRaidBatteryTable_head->operability, 1) << state;
  }
}

TEST_F(StorageRaidBatteryTableTest, ARowWithoutMemoryUsesUpNoIndex) {
  load({with_battery("A", 1, 1), with_battery("B", 1, 1)});
  fakes::fail_allocations(1, 1);
  EXPECT_EQ(initialize_bbu_table(0), 1);
  ASSERT_EQ(rows(tavoStorageRaidBatteryTable_head), 1U) << "there was no memory for the first row";
  EXPECT_EQ(tavoStorageRaidBatteryTable_head->index, 1U);
  EXPECT_EQ(initialize_bbu_table(1), 1);
  EXPECT_EQ(rows(tavoStorageRaidBatteryTable_head), 2U);
}

}  // namespace
}  // namespace tavo
