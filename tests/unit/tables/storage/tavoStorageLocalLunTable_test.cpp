#include "tables/storage/tavoStorageLocalLunTable.h"

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
using fakes::StorVolume;
using fakes::text;

constexpr std::array<oid, 12> table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 45, 8};

StorVolume volume(std::uint32_t type, std::uint32_t state) {
  return StorVolume().number(STOR_VOLUME_TYPE, type).number(STOR_VOLUME_STATE, state);
}

class StorageLocalLunTableTest : public fakes::StorageTableTest {};

TEST_F(StorageLocalLunTableTest, ServesEveryColumnOfEveryVolume) {
  init_tavoStorageLocalLunTable();
  rebuild({controller("SLOT-4", {},
                      {volume(2, 4)
                           .number(STOR_VOLUME_CAPACITY_WORD, 0x1122334455667788, 8)
                           .number(STOR_VOLUME_BLOCKS, 0x8877665544332211, 8)}),
           controller("", {}, {volume(9, 9)})});
  fakes::expect_table(table, {
                                 {2, 1, text("sys/rack-unit-1/board/storage-SAS-SLOT-4/vd-0")},
                                 {3, 1, text("vd-0")},
                                 {4, 1, gauge(0)},
                                 {5, 1, integer(0)},
                                 {6, 1, gauge(0)},
                                 {7, 1, text("unknown")},
                                 {8, 1, counter64(0x1122334455667788)},
                                 {9, 1, integer(1)},
                                 {10, 1, integer(10)},
                                 {11, 1, text("unknown")},
                                 {12, 1, text("unknown")},
                                 {13, 1, counter64(0x8877665544332211)},
                                 {14, 1, integer(2)},
                                 {15, 1, text("unknown")},
                                 {2, 2, text("sys/rack-unit-1/board/storage-SAS-SAS/vd-0")},
                                 {3, 2, text("vd-0")},
                                 {4, 2, gauge(0)},
                                 {5, 2, integer(0)},
                                 {6, 2, gauge(0)},
                                 {7, 2, text("unknown")},
                                 {8, 2, counter64(0)},
                                 {9, 2, integer(0)},
                                 {10, 2, integer(0)},
                                 {11, 2, text("unknown")},
                                 {12, 2, text("unknown")},
                                 {13, 2, counter64(0)},
                                 {14, 2, integer(0)},
                                 {15, 2, text("unknown")},
                             });
  const auto beside = fakes::get({fakes::cell(table, 1, 1), fakes::cell(table, 16, 1), fakes::cell(table, 2, 3)});
  ASSERT_EQ(beside.answers.size(), 3U);
  EXPECT_EQ(beside.answers[0].value, fakes::no_such_object);
  EXPECT_EQ(beside.answers[1].value, fakes::no_such_object);
  EXPECT_EQ(beside.answers[2].value, fakes::no_such_instance);
}

TEST_F(StorageLocalLunTableTest, AnEntryWithoutAVolumeUsesUpNoIndexButItsNumber) {
  rebuild({controller("A", {}, {volume(1, 4), volume(1, 0), volume(1, 4)}), controller("B", {}, {volume(1, 4)})});
  ASSERT_EQ(rows(tavoStorageLocalLunTable_head), 3U);
  const auto *row = tavoStorageLocalLunTable_head;
  EXPECT_EQ(row->index, 3U);
  EXPECT_STREQ(row->dn, "sys/rack-unit-1/board/storage-SAS-B/vd-0");
  row = row->next;
  EXPECT_EQ(row->index, 2U);
  EXPECT_EQ(row->number, 2U);
  EXPECT_STREQ(row->rn, "vd-2");
  EXPECT_STREQ(row->dn, "sys/rack-unit-1/board/storage-SAS-A/vd-2");
}

TEST_F(StorageLocalLunTableTest, StatesAndTypesHaveTheirValues) {
  struct Case {
    std::uint32_t code;
    std::int32_t operability;
    std::int32_t presence;
    std::int32_t type;
  };
  for (const Case &expected : std::to_array<Case>(
           {{1, 2, 10, 3}, {2, 3, 10, 2}, {3, 3, 10, 5}, {4, 1, 10, 6}, {5, 0, 0, 0}, {0xFFFFFFFF, 0, 0, 0}})) {
    rebuild({controller("", {}, {volume(expected.code, expected.code)})});
    EXPECT_EQ(tavoStorageLocalLunTable_head->operability, expected.operability) << expected.code;
    EXPECT_EQ(tavoStorageLocalLunTable_head->presence, expected.presence) << expected.code;
    EXPECT_EQ(tavoStorageLocalLunTable_head->type, expected.type) << expected.code;
  }
}

TEST_F(StorageLocalLunTableTest, VolumesOfControllersThatShowNoDrivesAreServed) {
  for (const std::uint32_t mode : {0U, 1U, 3U, 6U}) {
    rebuild({controller("", {}, {volume(1, 4)}).number(STOR_CONTROLLER_MODE, mode)});
    EXPECT_EQ(rows(tavoStorageLocalLunTable_head), 1U) << mode;
  }
}

TEST_F(StorageLocalLunTableTest, MoreVolumesThanTheRecordHoldsAreNotBelieved) {
  for (const std::int32_t count : {64, 65, 1 << 30, -1}) {
    rebuild({controller("", {}, std::vector<StorVolume>(64, volume(1, 4)))
                 .number(STOR_CONTROLLER_VOLUME_COUNT, static_cast<std::uint32_t>(count))});
    EXPECT_EQ(rows(tavoStorageLocalLunTable_head), count < 0 ? 0U : 64U) << count;
  }
}

TEST_F(StorageLocalLunTableTest, ARowWithoutMemoryUsesUpNoIndex) {
  load({controller("", {}, {volume(1, 4), volume(1, 4)})});
  fakes::fail_allocations(1, 1);
  EXPECT_EQ(initialize_local_lun_table(0), 1);
  ASSERT_EQ(rows(tavoStorageLocalLunTable_head), 1U);
  EXPECT_EQ(tavoStorageLocalLunTable_head->index, 1U);
  EXPECT_EQ(initialize_local_lun_table(1), 1);
  EXPECT_EQ(rows(tavoStorageLocalLunTable_head), 2U);
}

}  // namespace
}  // namespace tavo
