#include "tables/sd_cards/tavoStorageVeltroCardTable.h"

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
using fakes::VeltCard;

constexpr std::array<oid, 12> table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 45, 34};

class StorageVeltroCardTableTest : public fakes::SdCardTableTest {
 protected:
  static void rebuild_with(const VeltCard &first, const VeltCard &second) {
    fakes::set_velt_cards({first, second});
    rebuild();
  }
};

VeltCard full_card() {
  return VeltCard()
      .number(VELT_CARD_SLOT, 1)
      .number(VELT_CARD_COLUMN_4, 4)
      .number(VELT_CARD_COLUMN_5, 0xFFFFFFFB)
      .number(VELT_CARD_COLUMN_6, 6)
      .text(VELT_CARD_COLUMN_7, std::string(32, 'g'))
      .number(VELT_CARD_COLUMN_9, 9)
      .number(VELT_CARD_COLUMN_10, 0xFFFFFFFF)
      .text(VELT_CARD_COLUMN_11, std::string(32, 'k'))
      .text(VELT_CARD_COLUMN_12, std::string(32, 'l'))
      .text(VELT_CARD_COLUMN_13, std::string(72, 'm'))
      .text(VELT_CARD_COLUMN_15, std::string(32, 'o'))
      .number(VELT_CARD_COLUMN_19, 19)
      .text(VELT_CARD_COLUMN_20, std::string(32, 't'))
      .text(VELT_CARD_COLUMN_21, std::string(32, 'u'))
      .number(VELT_CARD_COLUMN_22, 0xF122334455667788, 8)
      .number(VELT_CARD_COLUMN_23, 23)
      .text(VELT_CARD_COLUMN_24, std::string(40, 'x'))
      .number(VELT_CARD_COLUMN_25, 25)
      .number(VELT_CARD_COLUMN_26, 26)
      .number(VELT_CARD_COLUMN_27, 27)
      .number(VELT_CARD_COLUMN_28, 1)
      .text(VELT_CARD_COLUMN_29, std::string(32, 'c'))
      .number(VELT_CARD_COLUMN_30, 30)
      .number(VELT_CARD_COLUMN_31, 31)
      .text(VELT_CARD_COLUMN_32, std::string(64, 'f'))
      .number(VELT_CARD_COLUMN_33, 33);
}

TEST_F(StorageVeltroCardTableTest, ServesEveryColumnOfEveryCard) {
  testing::internal::CaptureStdout();
  init_tavoStorageVeltroCardTable();
  testing::internal::GetCapturedStdout();
  rebuild_with(full_card(), VeltCard().number(VELT_CARD_SLOT, 2));
  fakes::expect_table(table, {
                                 {2, 1, text("sys/rack-unit-1/board/storage-veltro/pd-SLOT-1")},
                                 {3, 1, text("pd-SLOT-1")},
                                 {4, 1, gauge(4)},
                                 {5, 1, integer(-5)},
                                 {6, 1, integer(6)},
                                 {7, 1, text(std::string(32, 'g'))},
                                 {8, 1, integer(0)},
                                 {9, 1, gauge(9)},
                                 {10, 1, gauge(0xFFFFFFFF)},
                                 {11, 1, text(std::string(32, 'k'))},
                                 {12, 1, text(std::string(32, 'l'))},
                                 {13, 1, text(std::string(72, 'm'))},
                                 {14, 1, counter64(0)},
                                 {15, 1, text(std::string(32, 'o'))},
                                 {16, 1, text("")},
                                 {17, 1, integer(1)},
                                 {18, 1, integer(10)},
                                 {19, 1, gauge(19)},
                                 {20, 1, text(std::string(32, 't'))},
                                 {21, 1, text(std::string(32, 'u'))},
                                 {22, 1, counter64(0xF122334455667788)},
                                 {23, 1, gauge(23)},
                                 {24, 1, text(std::string(40, 'x'))},
                                 {25, 1, integer(25)},
                                 {26, 1, gauge(26)},
                                 {27, 1, integer(27)},
                                 {28, 1, integer(2)},
                                 {29, 1, text(std::string(32, 'c'))},
                                 {30, 1, gauge(30)},
                                 {31, 1, gauge(31)},
                                 {32, 1, text(std::string(64, 'f'))},
                                 {33, 1, gauge(33)},
                                 {2, 2, text("sys/rack-unit-1/board/storage-veltro/pd-SLOT-2")},
                                 {3, 2, text("pd-SLOT-2")},
                                 {4, 2, gauge(0)},
                                 {5, 2, integer(0)},
                                 {6, 2, integer(0)},
                                 {7, 2, text("")},
                                 {8, 2, integer(0)},
                                 {9, 2, gauge(0)},
                                 {10, 2, gauge(0)},
                                 {11, 2, text("")},
                                 {12, 2, text("")},
                                 {13, 2, text("")},
                                 {14, 2, counter64(0)},
                                 {15, 2, text("")},
                                 {16, 2, text("")},
                                 {17, 2, integer(1)},
                                 {18, 2, integer(10)},
                                 {19, 2, gauge(0)},
                                 {20, 2, text("")},
                                 {21, 2, text("")},
                                 {22, 2, counter64(0)},
                                 {23, 2, gauge(0)},
                                 {24, 2, text("")},
                                 {25, 2, integer(0)},
                                 {26, 2, gauge(0)},
                                 {27, 2, integer(0)},
                                 {28, 2, integer(0)},
                                 {29, 2, text("")},
                                 {30, 2, gauge(0)},
                                 {31, 2, gauge(0)},
                                 {32, 2, text("")},
                                 {33, 2, gauge(0)},
                             });
  const auto beside = fakes::get({fakes::cell(table, 1, 1), fakes::cell(table, 34, 1), fakes::cell(table, 2, 3)});
  ASSERT_EQ(beside.answers.size(), 3U);
  EXPECT_EQ(beside.answers[0].value, fakes::no_such_object);
  EXPECT_EQ(beside.answers[1].value, fakes::no_such_object);
  EXPECT_EQ(beside.answers[2].value, fakes::no_such_instance);
}

TEST_F(StorageVeltroCardTableTest, AnEmptySlotHasNoRowAndUsesUpNoIndex) {
  rebuild_with(VeltCard(), VeltCard().number(VELT_CARD_SLOT, 2));
  ASSERT_NE(tavoStorageVeltroCardTable_head, nullptr);
  EXPECT_EQ(tavoStorageVeltroCardTable_head->index, 1U);
  EXPECT_STREQ(tavoStorageVeltroCardTable_head->rn, "pd-SLOT-2");
  EXPECT_EQ(tavoStorageVeltroCardTable_head->next, nullptr);
}

TEST_F(StorageVeltroCardTableTest, ANegativeSlotIsEmpty) {
  rebuild_with(VeltCard().number(VELT_CARD_SLOT, 0xFFFFFFFF), VeltCard().number(VELT_CARD_SLOT, 0x80000000));
  EXPECT_EQ(tavoStorageVeltroCardTable_head, nullptr);
}

TEST_F(StorageVeltroCardTableTest, AnySlotAboveZeroIsNamed) {
  rebuild_with(VeltCard().number(VELT_CARD_SLOT, 0x7FFFFFFF), VeltCard());
  EXPECT_STREQ(tavoStorageVeltroCardTable_head->dn, "sys/rack-unit-1/board/storage-veltro/pd-SLOT-2147483647");
}

TEST_F(StorageVeltroCardTableTest, Column28HasItsValues) {
  struct Case {
    std::uint32_t code;
    std::int32_t value;
  };
  for (const Case &expected : std::to_array<Case>({{0, 0}, {1, 2}, {2, 1}, {3, 0}, {0xFFFFFFFF, 0}})) {
    rebuild_with(VeltCard().number(VELT_CARD_SLOT, 1).number(VELT_CARD_COLUMN_28, expected.code), VeltCard());
    EXPECT_EQ(tavoStorageVeltroCardTable_head->column_28, expected.value) << expected.code;
  }
}

TEST_F(StorageVeltroCardTableTest, AServiceThatFailsLeavesNoRows) {
  fakes::set_velt_result(VELT_REQUEST_CARDS, -1);
  rebuild_with(full_card(), full_card());
  EXPECT_EQ(tavoStorageVeltroCardTable_head, nullptr);
}

TEST_F(StorageVeltroCardTableTest, PrintsTheSizesAndGivesOneEvenWithoutMemory) {
  rebuild_with(full_card(), full_card());
  for (const int successes : {0, 1}) {
    testing::internal::CaptureStdout();
    fakes::fail_allocations(successes);
    EXPECT_EQ(initialize_velt_card_table(1), 1);
    fakes::reset_allocations();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), fakes::printed_velt_sizes);
    EXPECT_EQ(tavoStorageVeltroCardTable_head, nullptr);
  }
}

}  // namespace
}  // namespace tavo
