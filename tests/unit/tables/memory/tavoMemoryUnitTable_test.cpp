#include "tables/memory/tavoMemoryUnitTable.h"

#include <gmock/gmock.h>

#include <array>
#include <climits>
#include <string>
#include <vector>

#include "core/access_lock.h"
#include "platform/inventory.h"
#include "tests/fakes/allocation.h"
#include "tests/fakes/memory_modules.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/harness/golden.h"

namespace tavo {
namespace {

using fakes::gauge;
using fakes::integer;
using fakes::MemoryCall;
using fakes::MemoryRecord;
using fakes::text;
using testing::ElementsAre;
using testing::IsEmpty;
using Row = MemoryUnitRow;

constexpr std::array<oid, 12> table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 30, 11};

class MemoryUnitTableTest : public fakes::ModuleTest {
 protected:
  // The row that a rebuild makes of one module.
  static Row row_of(const MemoryRecord &module) {
    fakes::set_memory_modules({module});
    EXPECT_EQ(initialize_memory_table(1), 0);
    return tavoMemoryUnitTable_head == nullptr ? Row{} : *tavoMemoryUnitTable_head;
  }

  static std::vector<std::uint32_t> indexes_in_list() {
    std::vector<std::uint32_t> indexes;
    for (const Row *row = tavoMemoryUnitTable_head; row != nullptr; row = row->next) {
      indexes.push_back(row->index);
    }
    return indexes;
  }
};

MemoryRecord operable() {
  return MemoryRecord()
      .text(MEMORY_NAME, "DIMM_A1")
      .text(MEMORY_CAPACITY, "16 GB")
      .text(MEMORY_SPEED, "2133 MHz")
      .text(MEMORY_LOCATION, "NODE 0 CHANNEL 1 DIMM 0")
      .text(MEMORY_SERIAL, "SERIAL-0101")
      .text(MEMORY_VISIBLE, "Yes")
      .text(MEMORY_STATUS, "Operable")
      .text(MEMORY_WIDTH, "64 bits")
      .text(MEMORY_CLOCK, "1866");
}

TEST_F(MemoryUnitTableTest, ServesEveryColumnOfEveryModule) {
  fakes::set_memory_modules({operable().numbered(7), MemoryRecord()
                                                         .text(MEMORY_CAPACITY, "4096 MB")
                                                         .text(MEMORY_SPEED, "1600 MHz")
                                                         .text(MEMORY_LOCATION, "BANK2")
                                                         .text(MEMORY_VISIBLE, "No")
                                                         .text(MEMORY_STATUS, "Inoperable")});
  ASSERT_EQ(init_tavoMemoryUnitTable(), 0);

  fakes::expect_table(table, {
                                 {2, 1, text("sys/rack-unit-1/board/memarray-1/mem-7")},
                                 {3, 1, text("mem-7")},
                                 {4, 1, gauge(1)},
                                 {5, 1, gauge(0)},
                                 {6, 1, gauge(16384)},
                                 {7, 1, gauge(1866)},
                                 {8, 1, integer(0)},
                                 {9, 1, gauge(7)},
                                 {10, 1, integer(0)},
                                 {11, 1, text("NODE 0 CHANNEL 1 DIMM 0")},
                                 {12, 1, text("unknown")},
                                 {13, 1, integer(1)},
                                 {14, 1, integer(1)},
                                 {15, 1, integer(0)},
                                 {16, 1, integer(0)},
                                 {17, 1, integer(10)},
                                 {18, 1, text("unknown")},
                                 {19, 1, text("SERIAL-0101")},
                                 {20, 1, gauge(0)},
                                 {21, 1, gauge(2133)},
                                 {22, 1, integer(0)},
                                 {23, 1, integer(24)},
                                 {24, 1, text("unknown")},
                                 {25, 1, integer(1)},
                                 {26, 1, integer(0)},
                                 {27, 1, gauge(64)},
                                 {28, 1, integer(1)},
                                 {29, 1, text("Operable")},
                                 {2, 2, text("sys/rack-unit-1/board/memarray-1/mem-2")},
                                 {3, 2, text("mem-2")},
                                 {4, 2, gauge(1)},
                                 {5, 2, gauge(0)},
                                 {6, 2, gauge(4096)},
                                 {7, 2, gauge(0)},
                                 {8, 2, integer(0)},
                                 {9, 2, gauge(2)},
                                 {10, 2, integer(0)},
                                 {11, 2, text("BANK2")},
                                 {12, 2, text("unknown")},
                                 {13, 2, integer(0)},
                                 {14, 2, integer(0)},
                                 {15, 2, integer(0)},
                                 {16, 2, integer(0)},
                                 {17, 2, integer(11)},
                                 {18, 2, text("unknown")},
                                 {19, 2, text("")},
                                 {20, 2, gauge(0)},
                                 {21, 2, gauge(0)},
                                 {22, 2, integer(0)},
                                 {23, 2, integer(24)},
                                 {24, 2, text("unknown")},
                                 {25, 2, integer(2)},
                                 {26, 2, integer(0)},
                                 {27, 2, gauge(0)},
                                 {28, 2, integer(1)},
                                 {29, 2, text("Inoperable")},
                             });
}

TEST_F(MemoryUnitTableTest, AsksTheInventoryForAllModulesAtOnce) {
  fakes::set_memory_modules({operable(), operable(), operable()});
  ASSERT_EQ(initialize_memory_table(0), 0);
  EXPECT_EQ(iDIMMItems, 3);
  EXPECT_THAT(fakes::memory_calls(),
              ElementsAre(MemoryCall{.function = "GetMemoryItems", .request = 0, .size = 4, .range = {}},
                          MemoryCall{.function = "GetMemoryDetail", .request = 8, .size = 3 * 672, .range = {{0, 3}}},
                          MemoryCall{.function = "GetMemorySummary", .request = 0, .size = 280, .range = {}}));
}

TEST_F(MemoryUnitTableTest, CapacityIsInMegabytesAndOnlyGbMultiplies) {
  const std::vector<std::pair<std::string, std::uint32_t>> capacities = {
      {"8 GB", 8192}, {"8192 MB", 8192},   {"8 Gb", 8},     {"8 gb", 8}, {"8GB", 8192},
      {"8 GBs", 8},   {"8 GB left", 8192}, {"8", 8},        {"", 0},     {"none", 0},
      {"GB", 0},      {"  4  GB ", 4096},  {"+2 GB", 2048}, {"0 GB", 0}, {"4.5 GB", 4},
  };
  for (const auto &[size, megabytes] : capacities) {
    EXPECT_EQ(row_of(operable().text(MEMORY_CAPACITY, size + '\0')).capacity, megabytes) << size;
  }
}

TEST_F(MemoryUnitTableTest, AModuleThatIsNotOperableShowsNoSpeed) {
  for (const std::string status : {"Inoperable", "", "operable", "Operable ", " Operable"}) {
    const Row row = row_of(operable().text(MEMORY_STATUS, status + '\0'));
    EXPECT_EQ(row.speed, 0U) << status;
    EXPECT_EQ(row.presence, 11) << status;
    EXPECT_EQ(row.oper_state, 0) << status;
    EXPECT_EQ(row.operability, 0) << status;
    EXPECT_EQ(row.status, status);
  }
}

TEST_F(MemoryUnitTableTest, VisibilityTakesTheExactWords) {
  const std::vector<std::pair<std::string, std::int32_t>> words = {{"Yes", 1}, {"No", 2}, {"Yes ", 0}, {"yes", 0},
                                                                   {"no", 0},  {"", 0},   {"Maybe", 0}};
  for (const auto &[word, code] : words) {
    EXPECT_EQ(row_of(operable().text(MEMORY_VISIBLE, word + '\0')).visibility, code) << word;
  }
}

TEST_F(MemoryUnitTableTest, WithoutSensorNamesIdsAreTheIndexes) {
  fakes::set_memory_modules({operable(), operable(), operable()});
  ASSERT_EQ(initialize_memory_table(0), 0);
  for (const Row *row = tavoMemoryUnitTable_head; row != nullptr; row = row->next) {
    EXPECT_EQ(row->id, row->index);
    EXPECT_EQ(row->rn, "mem-" + std::to_string(row->index));
  }
}

TEST_F(MemoryUnitTableTest, ANumberFromTheNameIsTheIdWhateverItIs) {
  const Row row = row_of(operable().numbered(-1));
  EXPECT_EQ(row.index, 1U);
  EXPECT_EQ(row.id, 0xFFFFFFFFU);
  EXPECT_STREQ(row.dn, "sys/rack-unit-1/board/memarray-1/mem--1");
  EXPECT_STREQ(row.rn, "mem--1");
}

TEST_F(MemoryUnitTableTest, TheBankIsZeroWhateverTheLocationSays) {
  for (const char *location : {"NODE 3", "BANK2", "NODE 3 BANK5", "elsewhere"}) {
    const Row row = row_of(MemoryRecord().text(MEMORY_LOCATION, location));
    EXPECT_EQ(row.bank, 0U);
    EXPECT_STREQ(row.location, location);
  }
}

TEST_F(MemoryUnitTableTest, TheListHoldsTheLastModuleFirst) {
  fakes::set_memory_modules({operable(), operable(), operable()});
  ASSERT_EQ(initialize_memory_table(0), 0);
  EXPECT_THAT(indexes_in_list(), ElementsAre(3, 2, 1));
}

TEST_F(MemoryUnitTableTest, NoModulesGiveAnEmptyTableAndAFailure) {
  EXPECT_EQ(initialize_memory_table(0), -1);
  EXPECT_EQ(tavoMemoryUnitTable_head, nullptr);
  EXPECT_EQ(fakes::memory_calls().size(), 1U);
}

TEST_F(MemoryUnitTableTest, AnyFailureOfTheInventoryAddsNothing) {
  const std::vector<std::array<int, 3>> failures = {{-1, 0, 0}, {5, 0, 0}, {0, -1, 0}, {0, 0, -1}, {0, 0, 7}};
  for (const auto &[items, detail, summary] : failures) {
    fakes::set_memory_modules({operable()});
    fakes::set_memory_results(0, 0, 0);
    ASSERT_EQ(initialize_memory_table(1), 0);
    fakes::set_memory_results(items, detail, summary);
    EXPECT_EQ(initialize_memory_table(0), -1);
    EXPECT_THAT(indexes_in_list(), ElementsAre(1));
    EXPECT_EQ(initialize_memory_table(1), -1);
    EXPECT_THAT(indexes_in_list(), IsEmpty());
  }
}

TEST_F(MemoryUnitTableTest, ACountThatCannotBeGivesNothing) {
  fakes::set_memory_modules({operable()});
  for (const int count : {-1, INT_MIN, INT_MAX, INT_MAX / 672 + 1}) {
    fakes::set_memory_count(count);
    EXPECT_EQ(initialize_memory_table(1), -1) << count;
    EXPECT_EQ(iDIMMItems, count);
    EXPECT_EQ(tavoMemoryUnitTable_head, nullptr);
  }
}

TEST_F(MemoryUnitTableTest, AListShorterThanItsCountGivesEmptyModules) {
  fakes::set_memory_modules({operable()});
  fakes::set_memory_count(2);
  ASSERT_EQ(initialize_memory_table(0), 0);
  EXPECT_THAT(indexes_in_list(), ElementsAre(2, 1));
  EXPECT_STREQ(tavoMemoryUnitTable_head->status, "");
  EXPECT_EQ(tavoMemoryUnitTable_head->presence, 11);
}

TEST_F(MemoryUnitTableTest, WithoutMemoryForTheBuildNothingIsAdded) {
  fakes::set_memory_modules({operable()});
  for (int successes = 0; successes < 3; ++successes) {
    fakes::fail_allocations(successes, 1);
    EXPECT_EQ(initialize_memory_table(1), -1) << successes;
    fakes::reset_allocations();
    EXPECT_EQ(tavoMemoryUnitTable_head, nullptr);
  }
}

TEST_F(MemoryUnitTableTest, ARowWithoutMemoryIsLeftOut) {
  fakes::set_memory_modules({operable(), operable(), operable()});
  fakes::fail_allocations(4, 1);
  EXPECT_EQ(initialize_memory_table(0), 0);
  EXPECT_THAT(indexes_in_list(), ElementsAre(3, 1));
}

TEST_F(MemoryUnitTableTest, TheLockIsHeldFromTheInventorysCountToTheLastRow) {
  ListLock &lock = ev_lock<30>;
  fakes::set_memory_modules({operable(), operable()});
  std::vector<int> held;
  fakes::on_memory_call([&] { held.push_back(lock.hold_count()); });
  fakes::set_debugging(true);
  fakes::on_debug_message([&] { held.push_back(lock.hold_count()); });  // a row's two messages
  EXPECT_EQ(initialize_memory_table(1), 0);
  EXPECT_THAT(held, ElementsAre(1, 1, 1, 1, 1, 1, 1)) << "three calls and two rows";
  EXPECT_EQ(lock.hold_count(), 0);
}

TEST_F(MemoryUnitTableTest, TheLockIsReleasedHoweverTheBuildEnds) {
  ListLock &lock = ev_lock<30>;
  const int before = lock.hold_count();
  fakes::set_memory_modules({operable()});
  initialize_memory_table(1);
  EXPECT_EQ(lock.hold_count(), before);
  fakes::set_memory_results(0, -1, 0);
  initialize_memory_table(1);
  EXPECT_EQ(lock.hold_count(), before);
  fakes::set_memory_results(-1, 0, 0);
  initialize_memory_table(1);
  EXPECT_EQ(lock.hold_count(), before);
  fakes::fail_allocations(0);
  initialize_memory_table(1);
  EXPECT_EQ(lock.hold_count(), before);
}

TEST_F(MemoryUnitTableTest, TextsWithoutANulEndWithTheirField) {
  const Row row = row_of(MemoryRecord().text(0, std::string(MEMORY_RECORD_SIZE, '7')));
  EXPECT_EQ(row.location, std::string(63, '7'));
  EXPECT_EQ(row.serial, std::string(63, '7'));
  EXPECT_EQ(row.status, std::string(16, '7'));
  EXPECT_EQ(row.capacity, static_cast<std::uint32_t>(INT_MAX));
  EXPECT_EQ(row.clock, static_cast<std::uint32_t>(INT_MAX));
  EXPECT_EQ(row.width, static_cast<std::uint32_t>(INT_MAX));
  EXPECT_EQ(row.visibility, 0);
}

TEST_F(MemoryUnitTableTest, EveryOctetOfADetailRecordIsSafe) {
  for (std::size_t at = 0; at < MEMORY_RECORD_SIZE; ++at) {
    MemoryRecord damaged = operable();
    damaged.octets[at] = ~damaged.octets[at];
    EXPECT_EQ(row_of(damaged).index, 1U);
  }
}

}  // namespace
}  // namespace tavo
