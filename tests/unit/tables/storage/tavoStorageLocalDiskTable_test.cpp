#include "tables/storage/tavoStorageLocalDiskTable.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <string>
#include <vector>

#include "tables/storage/tavoStorageLocalLunTable.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fixtures/storage_tables_fixture.h"
#include "tests/harness/golden.h"

namespace tavo {
namespace {

using fakes::controller;
using fakes::counter64;
using fakes::drive_in;
using fakes::gauge;
using fakes::integer;
using fakes::rows;
using fakes::StorDrive;
using fakes::text;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::array<oid, 12> table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 45, 4};

class StorageLocalDiskTableTest : public fakes::StorageTableTest {
 protected:
  // The slots in the order in which their rows were made; "-" and the number for a placeholder.
  static std::vector<std::string> slots() {
    std::vector<std::string> list;
    for (const auto *row = tavoStorageLocalDiskTable_head; row != nullptr; row = row->next) {
      list.push_back((row->name[0] == '\0' ? "-" : "") + std::to_string(row->index));
    }
    std::ranges::reverse(list);
    return list;
  }
};

StorDrive full_drive(std::uint32_t slot) {
  return drive_in(slot)
      .number(STOR_DRIVE_STATE, 6)
      .number(STOR_DRIVE_CONNECTION, 3)
      .number(STOR_DRIVE_MEDIA, 2)
      .number(STOR_DRIVE_LINK, 0xFFFFFFFF)
      .number(STOR_DRIVE_CAPACITY_WORD, 0x0102030405060708, 8)
      .number(STOR_DRIVE_BLOCKS, 0xF1F2F3F4F5F6F7F8, 8)
      .text(STOR_DRIVE_MODEL, "model")
      .text(STOR_DRIVE_REVISION, "revision");
}

std::vector<fakes::Cell> cells_of_full_drive(oid slot, const std::string &location) {
  const std::string rn = "pd-" + std::to_string(slot);
  return {
      {2, slot, text("sys/rack-unit-1/board/storage-SAS-" + location + "/" + rn)},
      {3, slot, text(rn)},
      {4, slot, gauge(0)},
      {5, slot, integer(2)},
      {6, slot, gauge(static_cast<std::uint32_t>(slot))},
      {7, slot, text("SSD")},
      {8, slot, counter64(0x0102030405060708)},
      {9, slot, integer(1)},
      {10, slot, integer(10)},
      {11, slot, text("model")},
      {12, slot, text("revision")},
      {13, slot, counter64(0xF1F2F3F4F5F6F7F8)},
      {14, slot, text("drive " + std::to_string(slot))},
      {15, slot, integer(0)},
      {16, slot, text("")},
      {17, slot, integer(0)},
      {18, slot, integer(5)},
      {19, slot, integer(-1)},
      {20, slot, integer(0)},
  };
}

std::vector<fakes::Cell> cells_of_placeholder(oid slot, const std::string &location) {
  const std::string rn = "pd-" + std::to_string(slot);
  return {
      {2, slot, text("sys/rack-unit-1/board/storage-SAS-" + location + "/" + rn)},
      {3, slot, text(rn)},
      {4, slot, gauge(0)},
      {5, slot, integer(1)},
      {6, slot, gauge(static_cast<std::uint32_t>(slot))},
      {7, slot, text("")},
      {8, slot, counter64(0)},
      {9, slot, integer(6)},
      {10, slot, integer(11)},
      {11, slot, text("")},
      {12, slot, text("")},
      {13, slot, counter64(0)},
      {14, slot, text("")},
      {15, slot, integer(2)},
      {16, slot, text("")},
      {17, slot, integer(0)},
      {18, slot, integer(0)},
      {19, slot, integer(0)},
      {20, slot, integer(0)},
  };
}

std::vector<fakes::Cell> operator+(std::vector<fakes::Cell> cells, const std::vector<fakes::Cell> &more) {
  cells.insert(cells.end(), more.begin(), more.end());
  return cells;
}

TEST_F(StorageLocalDiskTableTest, ServesEveryColumnOfEverySlot) {
  init_tavoStorageLocalDiskTable();
  set_slot_count("2");
  rebuild({controller("SLOT-4", {full_drive(1)})});
  fakes::expect_table(table, cells_of_full_drive(1, "SLOT-4") + cells_of_placeholder(2, "SLOT-4"));
  const auto beside = fakes::get({fakes::cell(table, 1, 1), fakes::cell(table, 21, 1), fakes::cell(table, 2, 3)});
  ASSERT_EQ(beside.answers.size(), 3U);
  EXPECT_EQ(beside.answers[0].value, fakes::no_such_object);
  EXPECT_EQ(beside.answers[1].value, fakes::no_such_object);
  EXPECT_EQ(beside.answers[2].value, fakes::no_such_instance);
}

TEST_F(StorageLocalDiskTableTest, OfControllersThatShareSlotsTheLaterOneIsServed) {
  init_tavoStorageLocalDiskTable();
  set_slot_count("3");
  rebuild({controller("", {full_drive(1), full_drive(2)}), controller("SLOT-4", {full_drive(1), full_drive(3)})});
  EXPECT_THAT(slots(), ElementsAre("1", "2", "-3", "1", "-2", "3")) << "both have their rows";
  fakes::expect_table(
      table, cells_of_full_drive(1, "SLOT-4") + cells_of_placeholder(2, "SLOT-4") + cells_of_full_drive(3, "SLOT-4"));
}

TEST_F(StorageLocalDiskTableTest, APduWithRepeatedDiskIndexesIsAnswered) {
  init_tavoStorageLocalDiskTable();
  rebuild({controller("", {full_drive(1), full_drive(2), full_drive(3), full_drive(4)}),
           controller("SLOT-4", {full_drive(1), full_drive(2), full_drive(3), full_drive(4)})});
  const auto response = fakes::get({fakes::cell(table, 3, 4), fakes::cell(table, 3, 1), fakes::cell(table, 6, 3),
                                    fakes::cell(table, 3, 2), fakes::cell(table, 14, 1)});
  ASSERT_EQ(response.answers.size(), 5U);
  EXPECT_EQ(response.answers[0].value, text("pd-4"));
  EXPECT_EQ(response.answers[1].value, text("pd-1"));
  EXPECT_EQ(response.answers[2].value, gauge(3));
  EXPECT_EQ(response.answers[3].value, text("pd-2"));
  EXPECT_EQ(response.answers[4].value, text("drive 1"));
}

TEST_F(StorageLocalDiskTableTest, EmptySlotsBetweenDrivesArePlaceholders) {
  rebuild({controller("", {drive_in(1), drive_in(3)})});
  EXPECT_THAT(slots(), ElementsAre("1", "-2", "3", "-4"));
}

TEST_F(StorageLocalDiskTableTest, DrivesNumberedBeyondTheSlotCountStandInASecondBank) {
  rebuild({controller("", {drive_in(5), drive_in(6)})});
  EXPECT_THAT(slots(), ElementsAre("5", "6", "-7", "-8"));
}

TEST_F(StorageLocalDiskTableTest, TheLastDriveAloneDecidesOnTheBank) {
  rebuild({controller("A", {drive_in(5), drive_in(4)}), controller("B", {drive_in(1), drive_in(5)})});
  EXPECT_THAT(slots(), ElementsAre("-1", "-2", "-3", "-4", "-5", "-6", "-7", "-8"))
      << "the drive under the cursor never gets its turn";
}

TEST_F(StorageLocalDiskTableTest, ADriveInTheLastSlotIsNotBeyondTheSlotCount) {
  rebuild({controller("", {drive_in(4)})});
  EXPECT_THAT(slots(), ElementsAre("-1", "-2", "-3", "4"));
}

TEST_F(StorageLocalDiskTableTest, SlotNumbersAreComparedSigned) {
  rebuild({controller("", {drive_in(1), drive_in(0xFFFFFFFF)})});
  EXPECT_THAT(slots(), ElementsAre("1", "-2", "-3", "-4"));
}

TEST_F(StorageLocalDiskTableTest, AControllerWithoutDrivesHasPlaceholdersOnly) {
  rebuild({controller("")});
  EXPECT_THAT(slots(), ElementsAre("-1", "-2", "-3", "-4"));
}

TEST_F(StorageLocalDiskTableTest, WithoutDrivesAWordOfTheDescriptionDecidesOnTheBank) {
  rebuild({controller("").number(232, 5)});
  EXPECT_THAT(slots(), ElementsAre("-5", "-6", "-7", "-8"));
  rebuild({controller("").number(232, 4)});
  EXPECT_THAT(slots(), ElementsAre("-1", "-2", "-3", "-4"));
  rebuild({controller("").number(232, 0x80000000)});
  EXPECT_THAT(slots(), ElementsAre("-1", "-2", "-3", "-4"));
  rebuild({controller("", {drive_in(1)}).number(232, 5)});
  EXPECT_THAT(slots(), ElementsAre("1", "-2", "-3", "-4")) << "with drives the word means nothing";
}

TEST_F(StorageLocalDiskTableTest, ADriveWithoutANameIsNoneAndHoldsUpThoseBehindIt) {
  rebuild({controller("", {drive_in(1), StorDrive().number(STOR_DRIVE_SLOT, 2), drive_in(3)})});
  EXPECT_THAT(slots(), ElementsAre("1", "-2", "-3", "-4"));
}

TEST_F(StorageLocalDiskTableTest, ControllersInSomeModesShowNoDrives) {
  for (std::uint32_t mode = 0; mode < 10; ++mode) {
    rebuild({controller("", {drive_in(1)}).number(STOR_CONTROLLER_MODE, mode)});
    const bool none = mode == 0 || mode == 1 || mode == 3 || mode == 6;
    EXPECT_EQ(rows(tavoStorageLocalDiskTable_head), none ? 0U : 4U) << mode;
  }
}

TEST_F(StorageLocalDiskTableTest, AnUnknownSlotCountMeansNoRows) {
  for (const char *count : {"0", "-4", "none", "", "-2147483648", "-99999999999999999999"}) {
    set_slot_count(count);
    rebuild({controller("", {drive_in(1)})});
    EXPECT_THAT(slots(), IsEmpty()) << count;
    EXPECT_EQ(rows(tavoStorageLocalDiskTable_head), 0U);
  }
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_F(StorageLocalDiskTableTest, ASlotCountThatCannotBeHadMeansNoRows) {
  const std::vector<fakes::StorRecord> snapshot = {controller("", {drive_in(1)})};
  rebuild(snapshot);
  for (const char *dump : {"", " hd: 4\n", " hdd: 4"}) {
    shell_.prints(slot_count_query, dump);
    rebuild(snapshot);
    EXPECT_THAT(slots(), IsEmpty()) << dump;
  }
  set_slot_count("4");
  fakes::refuse_open("/var/getNumOfHDD", EACCES);
  rebuild(snapshot);
  EXPECT_THAT(slots(), IsEmpty());
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_F(StorageLocalDiskTableTest, ASlotCountThatNoServerHasIsKeptWithinBounds) {
  for (const char *count : {"256", "257", "2147483647", "99999999999999999999"}) {
    set_slot_count(count);
    rebuild({controller("", {drive_in(1)})});
    EXPECT_EQ(rows(tavoStorageLocalDiskTable_head), 256U) << count;
  }
}

TEST_F(StorageLocalDiskTableTest, MoreDrivesThanTheRecordHoldsAreNotBelieved) {
  set_slot_count("256");
  std::vector<StorDrive> drives;
  for (std::uint32_t slot = 1; slot <= 256; ++slot) {
    drives.push_back(drive_in(slot));
  }
  for (const std::int32_t count : {256, 257, std::numeric_limits<std::int32_t>::max()}) {
    rebuild({controller("", drives).number(STOR_CONTROLLER_DRIVE_COUNT, static_cast<std::uint32_t>(count))});
    const auto list = slots();
    EXPECT_EQ(list.size(), 256U);
    EXPECT_EQ(std::ranges::count(list, '-', [](const std::string &slot) { return slot[0]; }), 0) << count;
  }
  rebuild({controller("", drives).number(STOR_CONTROLLER_DRIVE_COUNT, 0xFFFFFFFF)});
  EXPECT_EQ(slots().front(), "-1") << "a negative count is none";
}

// A controller with 256 slots, the first `drives` with a drive.
std::vector<std::string> slots_with_drives(int drives) {
  std::vector<std::string> list;
  for (int slot = 1; slot <= 256; ++slot) {
    list.push_back((slot <= drives ? "" : "-") + std::to_string(slot));
  }
  return list;
}

// The record's arrays are full, so that each count shows in the rows.
TEST_F(StorageLocalDiskTableTest, AFlippedOctetOfTheCountsGivesNoMoreThanThereAre) {
  set_slot_count("256");
  std::vector<StorDrive> drives;
  for (std::uint32_t slot = 1; slot <= 256; ++slot) {
    drives.push_back(drive_in(slot));
  }
  const auto full = controller("", drives, std::vector(64, fakes::StorVolume().number(STOR_VOLUME_STATE, 4)));
  for (std::uint32_t octet = 0; octet < 4; ++octet) {
    for (const std::uint32_t flip : {0x01U, 0x02U, 0x04U, 0x08U, 0x10U, 0x20U, 0x40U, 0x80U, 0xFFU}) {
      const std::uint32_t flipped = 2U ^ (flip << (8 * octet));
      const auto count = static_cast<std::int32_t>(flipped);
      auto damaged = full;
      rebuild({damaged.number(STOR_CONTROLLER_DRIVE_COUNT, flipped).number(STOR_CONTROLLER_VOLUME_COUNT, 1)});
      EXPECT_EQ(slots(), slots_with_drives(std::clamp(count, 0, 256))) << count;
      EXPECT_EQ(rows(tavoStorageLocalLunTable_head), 1U) << count;

      rebuild({damaged.number(STOR_CONTROLLER_DRIVE_COUNT, 1).number(STOR_CONTROLLER_VOLUME_COUNT, flipped)});
      EXPECT_EQ(slots(), slots_with_drives(1)) << count;
      EXPECT_EQ(rows(tavoStorageLocalLunTable_head), static_cast<std::size_t>(std::clamp(count, 0, 64))) << count;
    }
  }
}

TEST_F(StorageLocalDiskTableTest, EveryStateHasItsValues) {
  struct Case {
    std::uint32_t code;
    std::int32_t operability;
    std::int32_t presence;
    std::int32_t state;
  };
  for (const Case &expected : std::to_array<Case>({{0, 2, 11, 0},
                                                   {1, 1, 10, 1},
                                                   {2, 2, 10, 2},
                                                   {3, 2, 10, 0},
                                                   {4, 2, 10, 3},
                                                   {5, 2, 10, 4},
                                                   {6, 1, 10, 5},
                                                   {7, 2, 11, 6},
                                                   {8, 2, 11, 9},
                                                   {9, 2, 10, 10},
                                                   {10, 2, 11, 0},
                                                   {11, 3, 10, 7},
                                                   {12, 2, 11, 8},
                                                   {13, 2, 11, 11},
                                                   {14, 2, 11, 12},
                                                   {15, 2, 10, 13},
                                                   {16, 2, 11, 0},
                                                   {0xFFFFFFFF, 2, 11, 0}})) {
    set_slot_count("1");
    rebuild({controller("", {drive_in(1).number(STOR_DRIVE_STATE, expected.code)})});
    const auto &row = *tavoStorageLocalDiskTable_head;
    EXPECT_EQ(row.operability, expected.operability) << expected.code;
    EXPECT_EQ(row.presence, expected.presence) << expected.code;
    EXPECT_EQ(row.state, expected.state) << expected.code;
  }
}

TEST_F(StorageLocalDiskTableTest, ConnectionsAndMediaHaveTheirValues) {
  struct Case {
    std::uint32_t code;
    std::int32_t connection;
    const char *media;
  };
  for (const Case &expected : std::to_array<Case>({{0, 0, "unknown"},
                                                   {1, 0, "HDD"},
                                                   {2, 1, "SSD"},
                                                   {3, 2, "unknown"},
                                                   {4, 0, "unknown"},
                                                   {0xFFFFFFFF, 0, "unknown"}})) {
    set_slot_count("1");
    rebuild({controller(
        "", {drive_in(1).number(STOR_DRIVE_CONNECTION, expected.code).number(STOR_DRIVE_MEDIA, expected.code)})});
    EXPECT_EQ(tavoStorageLocalDiskTable_head->connection, expected.connection) << expected.code;
    EXPECT_STREQ(tavoStorageLocalDiskTable_head->media, expected.media) << expected.code;
  }
}

TEST_F(StorageLocalDiskTableTest, TextsThatFillTheirFieldsAreKeptWhole) {
  set_slot_count("1");
  rebuild({controller(std::string(64, 'l'), {StorDrive()
                                                 .number(STOR_DRIVE_SLOT, 1)
                                                 .text(STOR_DRIVE_NAME, std::string(32, 'n'))
                                                 .text(116, std::string(32, 'x'))
                                                 .text(STOR_DRIVE_MODEL, std::string(32, 'a'))
                                                 .text(STOR_DRIVE_REVISION, std::string(32, 'b'))})});
  const auto &row = *tavoStorageLocalDiskTable_head;
  EXPECT_EQ(row.name, std::string(32, 'n'));
  EXPECT_EQ(row.model, std::string(32, 'a'));
  EXPECT_EQ(row.revision, std::string(32, 'b'));
  EXPECT_EQ(row.dn, "sys/rack-unit-1/board/storage-SAS-" + std::string(29, 'l')) << "63 characters";
}

}  // namespace
}  // namespace tavo
