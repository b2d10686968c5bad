#include "tables/storage/tavoStorageControllerTable.h"

#include <gmock/gmock.h>

#include <array>
#include <string>

#include "tests/fixtures/storage_tables_fixture.h"
#include "tests/harness/golden.h"

namespace tavo {
namespace {

using fakes::controller;
using fakes::gauge;
using fakes::integer;
using fakes::rows;
using fakes::text;

constexpr std::array<oid, 12> table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 45, 1};

class StorageControllerTableTest : public fakes::StorageTableTest {};

TEST_F(StorageControllerTableTest, ServesEveryColumnOfEveryController) {
  init_tavoStorageControllerTable();
  rebuild({controller("SLOT-4")
               .number(STOR_CONTROLLER_ID, 0xFFFFFFFE)
               .number(STOR_CONTROLLER_FAULTY, 7)
               .text(STOR_CONTROLLER_DESCRIPTION, "Plug-in RAID controller")
               .text(STOR_CONTROLLER_REVISION, "fw 3.1")
               .text(STOR_CONTROLLER_SERIAL, "SERIAL-0041")
               .text(STOR_CONTROLLER_VENDOR, "Tavo")
               .text(STOR_CONTROLLER_TYPE, "HBA"),
           controller("").number(STOR_CONTROLLER_ID, 5)});
  fakes::expect_table(table, {
                                 {2, 1, text("sys/rack-unit-1/board/storage-SAS-SLOT-4")},
                                 {3, 1, text("storage-SAS-SLOT-4")},
                                 {4, 1, gauge(0xFFFFFFFE)},
                                 {5, 1, text("Plug-in RAID controller")},
                                 {6, 1, integer(2)},
                                 {7, 1, integer(2)},
                                 {8, 1, text("unknown")},
                                 {9, 1, text("SLOT-4")},
                                 {10, 1, integer(0)},
                                 {11, 1, integer(0)},
                                 {12, 1, integer(10)},
                                 {13, 1, text("fw 3.1")},
                                 {14, 1, text("SERIAL-0041")},
                                 {15, 1, integer(0)},
                                 {16, 1, integer(1)},
                                 {17, 1, text("Tavo")},
                                 {18, 1, integer(0)},
                                 {19, 1, text("HBA")},
                                 {2, 2, text("sys/rack-unit-1/board/storage-SAS-SAS")},
                                 {3, 2, text("storage-SAS-SAS")},
                                 {4, 2, gauge(5)},
                                 {5, 2, text("unknown")},
                                 {6, 2, integer(1)},
                                 {7, 2, integer(1)},
                                 {8, 2, text("unknown")},
                                 {9, 2, text("SAS")},
                                 {10, 2, integer(0)},
                                 {11, 2, integer(0)},
                                 {12, 2, integer(10)},
                                 {13, 2, text("unknown")},
                                 {14, 2, text("unknown")},
                                 {15, 2, integer(0)},
                                 {16, 2, integer(1)},
                                 {17, 2, text("unknown")},
                                 {18, 2, integer(0)},
                                 {19, 2, text("unknown")},
                             });
  const auto beside = fakes::get({fakes::cell(table, 1, 1), fakes::cell(table, 20, 1), fakes::cell(table, 2, 3)});
  ASSERT_EQ(beside.answers.size(), 3U);
  EXPECT_EQ(beside.answers[0].value, fakes::no_such_object);
  EXPECT_EQ(beside.answers[1].value, fakes::no_such_object);
  EXPECT_EQ(beside.answers[2].value, fakes::no_such_instance);
}

TEST_F(StorageControllerTableTest, RowsStandNewestFirst) {
  rebuild({controller("A"), controller("B"), controller("C")});
  ASSERT_EQ(rows(tavoStorageControllerTable_head), 3U);
  EXPECT_EQ(tavoStorageControllerTable_head->index, 3U);
  EXPECT_STREQ(tavoStorageControllerTable_head->location, "C");
}

TEST_F(StorageControllerTableTest, TheOnBoardControllerHasADoubledName) {
  rebuild({controller("")});
  EXPECT_STREQ(tavoStorageControllerTable_head->dn, "sys/rack-unit-1/board/storage-SAS-SAS");
  EXPECT_STREQ(tavoStorageControllerTable_head->rn, "storage-SAS-SAS");
}

TEST_F(StorageControllerTableTest, TextsThatFillTheirFieldsAreCut) {
  rebuild({controller(std::string(64, 'l'))
               .text(STOR_CONTROLLER_DESCRIPTION, std::string(128, 'd'))
               .text(STOR_CONTROLLER_REVISION, std::string(32, 'm'))
               .text(STOR_CONTROLLER_SERIAL, std::string(32, 'n'))
               .text(STOR_CONTROLLER_VENDOR, std::string(32, 'q'))
               .text(STOR_CONTROLLER_TYPE, std::string(64, 's'))});
  const auto &row = *tavoStorageControllerTable_head;
  EXPECT_EQ(row.dn, "sys/rack-unit-1/board/storage-SAS-" + std::string(29, 'l')) << "63 characters";
  EXPECT_EQ(row.rn, "storage-SAS-" + std::string(41, 'l')) << "53 characters";
  EXPECT_EQ(row.description, std::string(63, 'd'));
  EXPECT_EQ(row.location, std::string(57, 'l'));
  EXPECT_EQ(row.revision, std::string(32, 'm'));
  EXPECT_EQ(row.serial, std::string(32, 'n'));
  EXPECT_EQ(row.vendor, std::string(32, 'q'));
  EXPECT_EQ(row.type, std::string(63, 's'));
}

TEST_F(StorageControllerTableTest, AnyNonzeroFaultWordCounts) {
  rebuild({controller("").number(STOR_CONTROLLER_FAULTY, 0x01000000)});
  EXPECT_EQ(tavoStorageControllerTable_head->oper_state, 2);
  EXPECT_EQ(tavoStorageControllerTable_head->operability, 2);
}

}  // namespace
}  // namespace tavo
