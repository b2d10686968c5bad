// The platform's number of drive slots.
#include "tables/storage/tavoStorageLocalDiskTable.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>

#include "tests/fixtures/storage_tables_fixture.h"

namespace tavo {
namespace {

using testing::ElementsAre;

class SlotCountTest : public fakes::StorageTableTest {
 protected:
  static constexpr int untouched = -7;

  // getNumOfHDD's result for a dump.
  int count_in(const std::string &dump, const char *key = "hdd:", const char *suffix = "") {
    shell_.prints(slot_count_query, dump);
    value_ = untouched;
    return getNumOfHDD(key, suffix, &value_);
  }

  int value_ = untouched;
};

TEST_F(SlotCountTest, IsTheNumberBehindTheKeyUpToTheLinesEnd) {
  EXPECT_EQ(count_in(" sku: 4\n hdd: 24\n psu: 2\n"), 1);
  EXPECT_EQ(value_, 24);
  EXPECT_THAT(shell_.commands(), ElementsAre(slot_count_query));
}

TEST_F(SlotCountTest, TheFirstOfSeveralCounts) {
  EXPECT_EQ(count_in(" hdd: 3\n hdd: 9\n"), 1);
  EXPECT_EQ(value_, 3);
}

TEST_F(SlotCountTest, TheSuffixFollowsTheKey) {
  EXPECT_EQ(count_in("hdd: 1\nhdd: max= 8\n", "hdd:", " max="), 1);
  EXPECT_EQ(value_, 8);
}

TEST_F(SlotCountTest, ATextThatIsNoNumberIsNone) {
  EXPECT_EQ(count_in(" hdd: many\n"), 1);
  EXPECT_EQ(value_, 0);
}

TEST_F(SlotCountTest, AMissingKeyOrNewlineLeavesTheResultAlone) {
  for (const char *dump : {"", "\n", " hd: 4\n", " hdd: 4", " hdd:"}) {
    EXPECT_EQ(count_in(dump), 0) << dump;
    EXPECT_EQ(value_, untouched) << dump;
  }
}

TEST_F(SlotCountTest, ADumpThatCannotBeOpenedLeavesTheResultAlone) {
  shell_.prints(slot_count_query, " hdd: 4\n");
  fakes::refuse_open("/var/getNumOfHDD", EACCES);
  EXPECT_EQ(getNumOfHDD("hdd:", "", &value_), 0);
  EXPECT_EQ(value_, untouched);
}

TEST_F(SlotCountTest, OfALongLine127CharactersAreRead) {
  EXPECT_EQ(count_in("hdd:" + std::string(124, ' ') + "1234567\n"), 1);
  EXPECT_EQ(value_, 123);
}

}  // namespace
}  // namespace tavo
