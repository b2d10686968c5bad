#include "hardware/sd_cards.h"

#include <gmock/gmock.h>

#include "tree.h"

namespace tavo::service {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class SdCardsTest : public Tree {
 protected:
  // A card in the host with this number, and its disk.
  std::string add_card(const std::string &number, const std::string &type) {
    const std::string host = "devices/platform/1c0f00" + number + ".mmc/mmc_host/mmc" + number;
    const std::string card = host + "/mmc" + number + ":aaaa";
    link("class/mmc_host/mmc" + number, host);
    write(card + "/type", type + "\n");
    write(card + "/name", "CARD" + number + "\n");
    write(card + "/serial", "0x0000001" + number + "\n");
    write(card + "/date", "06/2019\n");
    const std::string disk = card + "/block/mmcblk" + number;
    write(disk + "/size", "61071360\n");
    write(disk + "/ro", "0\n");
    return disk;
  }

  void add_partition(const std::string &disk, const std::string &number, const std::string &facts = "") {
    const std::string directory = disk + "/" + std::filesystem::path(disk).filename().string() + "p" + number;
    write(directory + "/partition", number + "\n");
    write(directory + "/uevent", "DEVTYPE=partition\n" + facts);
  }

  Register register_{""};
  SdCardSource source_{roots(), register_};
};

TEST_F(SdCardsTest, ACardHasItsTexts) {
  add_card("0", "SD");
  const SdCards sd = found_by(source_).sd;
  ASSERT_THAT(sd.cards, SizeIs(1));
  EXPECT_EQ(sd.cards[0].number("slot"), 1);
  EXPECT_EQ(sd.cards[0].text("column-7"), "Write enabled");
  EXPECT_EQ(sd.cards[0].text("column-11"), "06/2019");
  EXPECT_EQ(sd.cards[0].text("column-13"), "29820 MB");
  EXPECT_EQ(sd.cards[0].text("column-21"), "CARD0");
  EXPECT_EQ(sd.cards[0].text("column-24"), "0x00000010");
  EXPECT_TRUE(sd.controller.flag("present"));
  EXPECT_EQ(sd.controller.number("mode"), 255) << "0 would say something that nobody knows";
}

TEST_F(SdCardsTest, PartitionsHaveTheirNames) {
  const std::string disk = add_card("0", "SD");
  add_partition(disk, "1", "PARTNAME=Hypervisor\nPARTN=1\n");
  add_partition(disk, "2");
  const SdCards sd = found_by(source_).sd;
  ASSERT_THAT(sd.partitions, SizeIs(2));
  EXPECT_EQ(sd.partitions[0].text("name"), "Hypervisor");
  EXPECT_EQ(sd.partitions[1].text("name"), "mmcblk0p2");
  EXPECT_EQ(sd.partitions[1].number("number"), 2);
}

TEST_F(SdCardsTest, NoMoreAreTakenThanTheTablesHold) {
  const std::string disk = add_card("0", "SD");
  add_card("1", "SD");
  add_card("2", "SD");
  for (const char *number : {"1", "2", "3", "4", "5", "6"}) {
    add_partition(disk, number);
  }
  const Finding finding = source_.read();
  EXPECT_THAT(finding.unreadable,
              ElementsAre("mmcblk0p6: there are too many partitions", "mmc2:aaaa: there are too many SD cards"));
  EXPECT_THAT(found_by(source_).sd.cards, SizeIs(2));
  EXPECT_THAT(found_by(source_).sd.partitions, SizeIs(5));
}

TEST_F(SdCardsTest, AChipThatIsNoCardIsLeftOut) {
  add_card("0", "MMC");
  EXPECT_THAT(found_by(source_).sd.cards, IsEmpty());
}

TEST_F(SdCardsTest, ACardThatIsGoneIsMissedUntilForgotten) {
  add_partition(add_card("0", "SD"), "1");
  source_.read();
  std::filesystem::remove(sys() / "class/mmc_host/mmc0");
  const Trouble gone = only_trouble(source_);
  EXPECT_EQ(gone.description, "SD card 1 (CARD0) is missing");
  EXPECT_EQ(gone.affected, "sys/rack-unit-1/board/storage-veltro/pd-SLOT-1");
  EXPECT_THAT(register_.keys("sd-partition"), SizeIs(1)) << "it may come back";
  EXPECT_TRUE(register_.forget_part("sd-card", 1));
  EXPECT_THAT(source_.read().troubles, IsEmpty());
  EXPECT_THAT(register_.keys("sd-partition"), IsEmpty());
}

TEST_F(SdCardsTest, APartitionThatIsGoneFreesItsNumber) {
  const std::string disk = add_card("0", "SD");
  add_partition(disk, "1");
  add_partition(disk, "2");
  source_.read();
  std::filesystem::remove_all(sys() / disk / "mmcblk0p1");
  add_partition(disk, "3");
  source_.read();
  add_partition(disk, "4");
  std::vector<std::int64_t> numbers;
  for (const Part &partition : found_by(source_).sd.partitions) {
    numbers.push_back(partition.number("number"));
  }
  EXPECT_THAT(numbers, ElementsAre(2, 3, 1));
}

}  // namespace
}  // namespace tavo::service
