#include <gmock/gmock.h>

#include "controller.h"
#include "hardware/ipmi_fru.h"

namespace tavo::service {
namespace {

TEST(IpmiFru, AnAreaTellsOfBoardAndProduct) {
  const IpmiFru fru = decode_fru(
      made_up_fru({"Board maker", "Board", "B-1", "BP-1", ""}, {"Maker", "Product", "P-1", "1.2", "S-1", "", ""}, 750));
  EXPECT_EQ(fru.board_manufacturer, "Board maker");
  EXPECT_EQ(fru.board_product, "Board");
  EXPECT_EQ(fru.board_serial, "B-1");
  EXPECT_EQ(fru.product_name, "Product");
  EXPECT_EQ(fru.product_part, "P-1");
  EXPECT_EQ(fru.product_version, "1.2");
  EXPECT_EQ(fru.product_serial, "S-1");
  EXPECT_EQ(fru.supply_capacity, 750U);
}

TEST(IpmiFru, AnAreaThatIsCutShortTellsTheRest) {
  const IpmiOctets whole =
      made_up_fru({"Board maker", "Board", "B-1", "BP-1", ""}, {"Maker", "Product", "P-1", "1.2", "S-1", "", ""}, 750);
  bool told_of_board_alone = false;
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const IpmiFru fru = decode_fru({whole.begin(), whole.begin() + static_cast<int>(size)});
    EXPECT_EQ(fru.supply_capacity, std::nullopt) << size;
    told_of_board_alone = told_of_board_alone || (fru.board_product == "Board" && fru.product_name.empty());
  }
  EXPECT_TRUE(told_of_board_alone);
}

TEST(IpmiFru, AnAreaWithAWrongChecksumTellsNothing) {
  IpmiOctets area = made_up_fru({"Board maker", "Board", "B-1", "", ""}, {"Maker", "Product", "", "", "S-1", "", ""});
  ++area[20];
  EXPECT_EQ(decode_fru(area).board_product, "");
  EXPECT_EQ(decode_fru(area).product_name, "Product");
  ++area[3];
  EXPECT_EQ(decode_fru(area), IpmiFru());
}

}  // namespace
}  // namespace tavo::service
