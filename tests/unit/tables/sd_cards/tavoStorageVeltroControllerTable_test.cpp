#include "tables/sd_cards/tavoStorageVeltroControllerTable.h"

#include <gmock/gmock.h>

#include <array>
#include <string>

#include "tests/fakes/allocation.h"
#include "tests/fixtures/sd_card_tables_fixture.h"
#include "tests/harness/golden.h"

namespace tavo {
namespace {

using fakes::gauge;
using fakes::integer;
using fakes::text;
using fakes::VeltController;

constexpr std::array<oid, 12> table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 45, 35};

class StorageVeltroControllerTableTest : public fakes::SdCardTableTest {
 protected:
  static const StorageVeltroControllerRow &row_of(const VeltController &controller) {
    fakes::set_velt_controller(controller);
    rebuild();
    return *tavoStorageVeltroControllerTable_head;
  }
};

TEST_F(StorageVeltroControllerTableTest, ServesEveryColumn) {
  testing::internal::CaptureStdout();
  init_tavoStorageVeltroControllerTable();
  testing::internal::GetCapturedStdout();
  row_of(VeltController()
             .number(VELT_CONTROLLER_COLUMN_4, 0xFFFFFFFC)
             .number(VELT_CONTROLLER_COLUMN_5, 5)
             .number(VELT_CONTROLLER_COLUMN_6, 1)
             .text(VELT_CONTROLLER_COLUMN_8, "text 8")
             .number(VELT_CONTROLLER_COLUMN_15, 0xFFFFFFFF)
             .number(VELT_CONTROLLER_COLUMN_18, 18)
             .number(VELT_CONTROLLER_COLUMN_19, 0x80000000)
             .number(VELT_CONTROLLER_COLUMN_20, 20)
             .text(VELT_CONTROLLER_COLUMN_21, std::string(32, 'u'))
             .text(VELT_CONTROLLER_COLUMN_22, std::string(32, 'v'))
             .text(VELT_CONTROLLER_COLUMN_25, "text 25")
             .number(VELT_CONTROLLER_COLUMN_26, 26)
             .number(VELT_CONTROLLER_COLUMN_28, 28)
             .text(VELT_CONTROLLER_COLUMN_31, "text 31")
             .number(VELT_CONTROLLER_COLUMN_43, 0)
             .number(VELT_CONTROLLER_MODE, 1)
             .number(VELT_CONTROLLER_COLUMN_30, 1));
  fakes::expect_table(table, {
                                 {2, 1, text("sys/rack-unit-1/board/storage-veltro")},
                                 {3, 1, text("storage-veltro")},
                                 {4, 1, integer(-4)},
                                 {5, 1, integer(5)},
                                 {6, 1, integer(2)},
                                 {7, 1, gauge(1)},
                                 {8, 1, text("text 8")},
                                 {9, 1, text("")},
                                 {10, 1, integer(1)},
                                 {11, 1, integer(1)},
                                 {12, 1, text("")},
                                 {13, 1, text("")},
                                 {14, 1, integer(100)},
                                 {15, 1, gauge(0xFFFFFFFF)},
                                 {16, 1, integer(100)},
                                 {17, 1, integer(10)},
                                 {18, 1, gauge(18)},
                                 {19, 1, integer(-0x7FFFFFFF - 1)},
                                 {20, 1, gauge(20)},
                                 {21, 1, text(std::string(32, 'u'))},
                                 {22, 1, text(std::string(32, 'v'))},
                                 {23, 1, integer(100)},
                                 {24, 1, integer(4)},
                                 {25, 1, text("text 25")},
                                 {26, 1, gauge(26)},
                                 {27, 1, integer(100)},
                                 {28, 1, gauge(28)},
                                 {29, 1, integer(0)},
                                 {30, 1, integer(2)},
                                 {31, 1, text("text 31")},
                                 {32, 1, text("")},
                                 {33, 1, text("")},
                                 {34, 1, text("")},
                                 {35, 1, gauge(0)},
                                 {36, 1, gauge(0)},
                                 {37, 1, text("")},
                                 {38, 1, text("")},
                                 {39, 1, text("")},
                                 {40, 1, text("")},
                                 {41, 1, text("")},
                                 {42, 1, gauge(0)},
                                 {43, 1, integer(1)},
                                 {44, 1, text("")},
                                 {45, 1, integer(2)},
                                 {46, 1, integer(0)},
                             });
  const auto beside = fakes::get({fakes::cell(table, 1, 1), fakes::cell(table, 47, 1), fakes::cell(table, 2, 2)});
  ASSERT_EQ(beside.answers.size(), 3U);
  EXPECT_EQ(beside.answers[0].value, fakes::no_such_object);
  EXPECT_EQ(beside.answers[1].value, fakes::no_such_object);
  EXPECT_EQ(beside.answers[2].value, fakes::no_such_instance);
}

TEST_F(StorageVeltroControllerTableTest, CodesHaveTheirValues) {
  struct Case {
    std::uint32_t code;
    std::int32_t flag;
    std::int32_t zero;
  };
  for (const Case &expected : std::to_array<Case>({{0, 1, 1}, {1, 2, 0}, {2, 0, 0}, {0xFFFFFFFF, 0, 0}})) {
    const auto &row = row_of(VeltController()
                                 .number(VELT_CONTROLLER_COLUMN_6, expected.code)
                                 .number(VELT_CONTROLLER_COLUMN_30, expected.code)
                                 .number(VELT_CONTROLLER_COLUMN_43, expected.code)
                                 .number(VELT_CONTROLLER_MODE, expected.code));
    EXPECT_EQ(row.column_6, expected.flag) << expected.code;
    EXPECT_EQ(row.column_30, expected.flag) << expected.code;
    EXPECT_EQ(row.mode, expected.flag) << expected.code;
    EXPECT_EQ(row.column_43, expected.zero) << expected.code;
  }
}

TEST_F(StorageVeltroControllerTableTest, AServiceThatFailsLeavesARowOfZerosAndEmptyTexts) {
  fakes::set_velt_result(VELT_REQUEST_CONTROLLER, -1);
  const auto &row = row_of(VeltController().number(VELT_CONTROLLER_COLUMN_4, 4).text(VELT_CONTROLLER_COLUMN_8, "8"));
  EXPECT_EQ(row.index, 1U);
  EXPECT_EQ(row.column_4, 0);
  EXPECT_STREQ(row.column_8, "");
  EXPECT_STREQ(row.rn, "storage-veltro");
}

TEST_F(StorageVeltroControllerTableTest, TheBuilderPrintsTheSizesAndGivesOne) {
  for (const int refresh : {1, 0}) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(initialize_velt_controller_table(refresh), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), fakes::printed_velt_sizes);
  }
  EXPECT_NE(tavoStorageVeltroControllerTable_head->next, nullptr) << "without a refresh the old row stays";
}

TEST_F(StorageVeltroControllerTableTest, WithoutMemoryTheBuilderGivesOneAllTheSame) {
  for (const int successes : {0, 1}) {
    testing::internal::CaptureStdout();
    fakes::fail_allocations(successes);
    EXPECT_EQ(initialize_velt_controller_table(1), 1);
    fakes::reset_allocations();
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(tavoStorageVeltroControllerTable_head, nullptr);
  }
}

}  // namespace
}  // namespace tavo
