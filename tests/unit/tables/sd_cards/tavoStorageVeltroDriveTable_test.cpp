#include "tables/sd_cards/tavoStorageVeltroDriveTable.h"

#include <gmock/gmock.h>

#include <array>
#include <string>

#include "tests/fakes/allocation.h"
#include "tests/fixtures/sd_card_tables_fixture.h"
#include "tests/harness/golden.h"

namespace tavo {
namespace {

using fakes::counter64;
using fakes::gauge;
using fakes::integer;
using fakes::text;
using fakes::VeltPartition;

constexpr std::array<oid, 12> table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 45, 36};

class StorageVeltroDriveTableTest : public fakes::SdCardTableTest {
 protected:
  static void rebuild_with(const std::array<VeltPartition, 5> &partitions, std::uint32_t mode = 0) {
    fakes::set_velt_controller(fakes::VeltController().number(VELT_CONTROLLER_MODE, mode));
    fakes::set_velt_partitions(partitions);
    rebuild();
  }

  // The row of the only partition.
  static const StorageVeltroDriveRow &row_of(const VeltPartition &partition, std::uint32_t mode = 0) {
    rebuild_with({partition}, mode);
    return *tavoStorageVeltroDriveTable_head;
  }
};

VeltPartition numbered(std::uint32_t number) {
  return VeltPartition().number(VELT_PARTITION_NUMBER, number);
}

TEST_F(StorageVeltroDriveTableTest, ServesEveryColumnOfEveryPartition) {
  testing::internal::CaptureStdout();
  init_tavoStorageVeltroDriveTable();
  testing::internal::GetCapturedStdout();
  const auto full = numbered(4)
                        .number(VELT_PARTITION_COLUMN_4, 0xFFFFFFFF)
                        .text(VELT_PARTITION_NAME, std::string(32, 'n'))
                        .number(VELT_PARTITION_COLUMN_12, 0xF122334455667788, 8)
                        .text(VELT_PARTITION_COLUMN_16, std::string(32, 'p'))
                        .text(VELT_PARTITION_COLUMN_17, std::string(32, 'q'))
                        .number(VELT_PARTITION_COLUMN_18, 18, 8)
                        .number(VELT_PARTITION_COLUMN_7, 4)
                        .text(VELT_PARTITION_COLUMN_20, std::string(32, 't'))
                        .number(VELT_PARTITION_COLUMN_22, 1)
                        .number(VELT_PARTITION_COLUMN_23, 0xFFFFFFFE)
                        .number(VELT_PARTITION_COLUMN_21, 1)
                        .number(VELT_PARTITION_COLUMN_25, 3)
                        .number(VELT_PARTITION_COLUMN_24, 7);
  rebuild_with({full, numbered(2)}, 1);
  fakes::expect_table(table, {
                                 {2, 1, text("sys/rack-unit-1/board/storage-veltro/vd-4")},
                                 {3, 1, text("vd-4")},
                                 {4, 1, gauge(0xFFFFFFFF)},
                                 {5, 1, integer(0)},
                                 {6, 1, gauge(1)},
                                 {7, 1, integer(1)},
                                 {8, 1, integer(0)},
                                 {9, 1, gauge(4)},
                                 {10, 1, text(std::string(32, 'n'))},
                                 {11, 1, text(std::string(32, 'n'))},
                                 {12, 1, counter64(0xF122334455667788)},
                                 {13, 1, text("")},
                                 {14, 1, integer(1)},
                                 {15, 1, integer(10)},
                                 {16, 1, text(std::string(32, 'p'))},
                                 {17, 1, text(std::string(32, 'q'))},
                                 {18, 1, counter64(18)},
                                 {19, 1, gauge(4)},
                                 {20, 1, text(std::string(32, 't'))},
                                 {21, 1, integer(0)},
                                 {22, 1, integer(1)},
                                 {23, 1, integer(-2)},
                                 {24, 1, integer(15)},
                                 {25, 1, integer(5)},
                                 {2, 2, text("sys/rack-unit-1/board/storage-veltro/vd-2")},
                                 {3, 2, text("vd-2")},
                                 {4, 2, gauge(0)},
                                 {5, 2, integer(0)},
                                 {6, 2, gauge(1)},
                                 {7, 2, integer(0)},
                                 {8, 2, integer(0)},
                                 {9, 2, gauge(2)},
                                 {10, 2, text("")},
                                 {11, 2, text("")},
                                 {12, 2, counter64(0)},
                                 {13, 2, text("")},
                                 {14, 2, integer(1)},
                                 {15, 2, integer(10)},
                                 {16, 2, text("")},
                                 {17, 2, text("")},
                                 {18, 2, counter64(0)},
                                 {19, 2, gauge(2)},
                                 {20, 2, text("")},
                                 {21, 2, integer(1)},
                                 {22, 2, integer(2)},
                                 {23, 2, integer(0)},
                                 {24, 2, integer(0)},
                                 {25, 2, integer(17)},
                             });
  const auto beside = fakes::get({fakes::cell(table, 1, 1), fakes::cell(table, 26, 1), fakes::cell(table, 2, 3)});
  ASSERT_EQ(beside.answers.size(), 3U);
  EXPECT_EQ(beside.answers[0].value, fakes::no_such_object);
  EXPECT_EQ(beside.answers[1].value, fakes::no_such_object);
  EXPECT_EQ(beside.answers[2].value, fakes::no_such_instance);
}

TEST_F(StorageVeltroDriveTableTest, SkippedEntriesLeaveGapsInTheIndex) {
  rebuild_with({numbered(1), VeltPartition(), numbered(3)});
  ASSERT_NE(tavoStorageVeltroDriveTable_head, nullptr);
  EXPECT_EQ(tavoStorageVeltroDriveTable_head->index, 3U);
  ASSERT_NE(tavoStorageVeltroDriveTable_head->next, nullptr);
  EXPECT_EQ(tavoStorageVeltroDriveTable_head->next->index, 1U);
  EXPECT_EQ(tavoStorageVeltroDriveTable_head->next->next, nullptr);
}

TEST_F(StorageVeltroDriveTableTest, TheIndexIsThePlaceAndTheNameIsTheNumber) {
  rebuild_with({VeltPartition(), VeltPartition(), VeltPartition(), VeltPartition(), numbered(2)});
  EXPECT_EQ(tavoStorageVeltroDriveTable_head->index, 5U);
  EXPECT_EQ(tavoStorageVeltroDriveTable_head->number, 2U);
  EXPECT_STREQ(tavoStorageVeltroDriveTable_head->rn, "vd-2");
}

TEST_F(StorageVeltroDriveTableTest, NegativeNumbersAreEmptyEntries) {
  rebuild_with({numbered(0xFFFFFFFF), numbered(0x80000000)});
  EXPECT_EQ(tavoStorageVeltroDriveTable_head, nullptr);
}

TEST_F(StorageVeltroDriveTableTest, KnownNamesTellTheKindWithoutRegardToCase) {
  struct Case {
    const char *name;
    std::int32_t kind;
  };
  for (const Case &expected : std::to_array<Case>({{"SCU", 1},
                                                   {"scu", 1},
                                                   {"HUU", 2},
                                                   {"Huu", 2},
                                                   {"Drivers", 4},
                                                   {"drivers", 4},
                                                   {"DRIVERS", 4},
                                                   {"Driver", 0},
                                                   {"Drivers ", 0},
                                                   {"SC", 0},
                                                   {"", 0}})) {
    for (const std::uint32_t mode : {0U, 1U, 2U}) {
      EXPECT_EQ(row_of(numbered(2).text(VELT_PARTITION_NAME, expected.name), mode).kind, expected.kind)
          << expected.name;
    }
  }
  EXPECT_EQ(row_of(numbered(1).text(VELT_PARTITION_NAME, "SCU"), 0).kind, 1) << "a known name goes before the place";
  EXPECT_EQ(row_of(numbered(5).text(VELT_PARTITION_NAME, "huu"), 1).kind, 2);
}

TEST_F(StorageVeltroDriveTableTest, OtherNamesHaveAKindByPlaceAndMode) {
  for (std::uint32_t number = 1; number <= 6; ++number) {
    for (const std::uint32_t mode : {0U, 1U, 2U, 0xFFFFFFFFU}) {
      const bool known = (number == 5 && mode == 1) || (number == 1 && mode == 0);
      EXPECT_EQ(row_of(numbered(number).text(VELT_PARTITION_NAME, "System"), mode).kind, known ? 3 : 0)
          << number << " in mode " << mode;
    }
  }
}

TEST_F(StorageVeltroDriveTableTest, Columns24And25DependOnTheMode) {
  struct Case {
    std::uint32_t code;
    std::int32_t column_24_with_mode;
    std::int32_t column_24_without;
    std::int32_t column_25_with_mode;
    std::int32_t column_25_without;
  };
  for (const Case &expected : std::to_array<Case>({{0, 0, 1, 17, 17},
                                                   {1, 16, 13, 6, 3},
                                                   {2, 11, 8, 6, 3},
                                                   {3, 16, 13, 5, 4},
                                                   {4, 11, 8, 5, 4},
                                                   {5, 0, 12, 17, 2},
                                                   {6, 0, 7, 17, 2},
                                                   {7, 15, 14, 0, 0},
                                                   {8, 10, 9, 0, 0},
                                                   {9, 0, 0, 0, 0},
                                                   {0xFFFFFFFF, 0, 0, 0, 0}})) {
    const auto partition =
        numbered(1).number(VELT_PARTITION_COLUMN_24, expected.code).number(VELT_PARTITION_COLUMN_25, expected.code);
    for (const std::uint32_t mode : {1U, 2U, 0x80000000U}) {
      EXPECT_EQ(row_of(partition, mode).column_24, expected.column_24_with_mode) << expected.code;
      EXPECT_EQ(row_of(partition, mode).column_25, expected.column_25_with_mode) << expected.code;
    }
    EXPECT_EQ(row_of(partition, 0).column_24, expected.column_24_without) << expected.code;
    EXPECT_EQ(row_of(partition, 0).column_25, expected.column_25_without) << expected.code;
  }
}

TEST_F(StorageVeltroDriveTableTest, OtherCodesHaveTheirValues) {
  struct Case {
    std::uint32_t code;
    std::int32_t column_7;
    std::int32_t column_21;
    std::int32_t column_22;
  };
  for (const Case &expected : std::to_array<Case>(
           {{0, 0, 1, 2}, {1, 0, 0, 1}, {2, 0, 0, 0}, {4, 1, 0, 0}, {5, 0, 0, 0}, {0xFFFFFFFF, 0, 0, 0}})) {
    const auto &row = row_of(numbered(1)
                                 .number(VELT_PARTITION_COLUMN_7, expected.code)
                                 .number(VELT_PARTITION_COLUMN_21, expected.code)
                                 .number(VELT_PARTITION_COLUMN_22, expected.code));
    EXPECT_EQ(row.column_7, expected.column_7) << expected.code;
    EXPECT_EQ(row.column_21, expected.column_21) << expected.code;
    EXPECT_EQ(row.column_22, expected.column_22) << expected.code;
  }
}

TEST_F(StorageVeltroDriveTableTest, AServiceThatFailsLeavesNoRows) {
  fakes::set_velt_result(VELT_REQUEST_PARTITIONS, -1);
  rebuild_with({numbered(1), numbered(2)});
  EXPECT_EQ(tavoStorageVeltroDriveTable_head, nullptr);
}

TEST_F(StorageVeltroDriveTableTest, PrintsTheSizesAndGivesOneEvenWithoutMemory) {
  rebuild_with({numbered(1), numbered(2)});
  for (const int successes : {0, 1}) {
    testing::internal::CaptureStdout();
    fakes::fail_allocations(successes);
    EXPECT_EQ(initialize_velt_drive_table(1), 1);
    fakes::reset_allocations();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), fakes::printed_velt_sizes);
    EXPECT_EQ(tavoStorageVeltroDriveTable_head, nullptr);
  }
}

}  // namespace
}  // namespace tavo
