#include "service/queries.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "simulator/scenario.h"

namespace tavo::service {
namespace {

using testing::HasSubstr;
using testing::Not;

class Queries : public testing::Test {
 protected:
  std::string lines(std::string_view key) const { return flattened(query(inventory_, key).value()).value(); }

  Inventory inventory_ = load_scenario(RACK_SERVER);
};

TEST(Flatkv, PrintsOneFieldPerLine) {
  EXPECT_EQ(flattened(R"({"pwState": 1})"), " pwState: 1\n");
  EXPECT_EQ(flattened(R"({"a": "two words", "b": {"c": 2.5, "d": true}})"), " a: two words\n c: 2.5\n d: true\n");
}

TEST(Flatkv, PrintsUnitsOneAfterAnother) {
  EXPECT_EQ(flattened(R"([{"id": 1, "x": "a"}, {"id": 2, "x": "b"}])"), " id: 1\n x: a\n id: 2\n x: b\n");
  EXPECT_EQ(flattened(R"({"fan": [1, 2]})"), " fan: 1\n fan: 2\n");
}

TEST(Flatkv, RefusesWhatIsNotJson) {
  EXPECT_EQ(flattened("pwState: 1"), std::nullopt);
  EXPECT_EQ(flattened(""), std::nullopt);
}

TEST(Flatkv, LeavesOutWhatIsNestedDeeply) {
  const std::size_t levels = 1'000'000;
  EXPECT_EQ(flattened("[{\"a\": 1}, " + std::string(levels, '[') + std::string(levels, ']') + "]"), " a: 1\n");
}

TEST_F(Queries, ProcessorsComeInSocketOrder) {
  EXPECT_THAT(lines("inventoryCPU"), testing::StartsWith(" id: 1\n SocketDesignation: CPU1\n"));
  EXPECT_THAT(lines("inventoryCPU"), HasSubstr(" CoreCount: 8\n CoreEnabled: 6\n ThreadCount: 12\n"));
}

TEST_F(Queries, AbsentPartsAreNotListed) {
  inventory_.processors[0].set("present", "no");
  EXPECT_THAT(lines("inventoryCPU"), testing::StartsWith(" id: 1\n SocketDesignation: CPU2\n"));
  EXPECT_THAT(lines("memoryStats"), Not(HasSubstr(" id: 3\n")));  // slot A3 is empty
  EXPECT_THAT(lines("memoryStats"), HasSubstr(" id: 4\n"));
}

// The unit tables number processors, and memory modules without a number, by their rows.
TEST_F(Queries, StatisticsHaveTheNumbersOfTheUnitTables) {
  inventory_.processors[0].set("present", "no");
  EXPECT_THAT(lines("processorStats"), testing::StartsWith(" id: 1\n temperature: 40.5\n"));
  inventory_.dimms[3].set("number", "0");
  EXPECT_THAT(lines("memoryStats"), HasSubstr(" id: 3\n temperature: 34.2\n"));
}

TEST_F(Queries, AbsentSupplyIsListedAsMissing) {
  inventory_.supplies[1].set("present", "no");
  EXPECT_THAT(lines("tavPowerStates"), HasSubstr(" id: 2\n presence: missing\n"));
}

TEST_F(Queries, MemorySummaryFollowsTheModules) {
  EXPECT_EQ(lines("inventoryMemorySummary"),
            " MemorySpeed: 2133 MHz\n EffectiveMemory: 180224 MB\n TotalMemory: 196608 MB\n");
  inventory_.dimms[0].set("speed", "1600 MHz");
  inventory_.dimms[1].set("capacity", "512 MB");
  inventory_.dimms[3].set("present", "no");
  EXPECT_EQ(lines("inventoryMemorySummary"),
            " MemorySpeed: 1600 MHz\n EffectiveMemory: 147968 MB\n TotalMemory: 164352 MB\n");
  const auto failed =
      std::ranges::find_if(inventory_.dimms, [](const Part &dimm) { return dimm.text("status") == "Inoperable"; });
  ASSERT_NE(failed, inventory_.dimms.end());
  failed->set("speed", "800 MHz");
  EXPECT_THAT(lines("inventoryMemorySummary"), HasSubstr(" MemorySpeed: 1600 MHz\n"));
  inventory_.server.set("memory-total", "1 MB");
  EXPECT_THAT(lines("inventoryMemorySummary"), HasSubstr(" TotalMemory: 1 MB\n"));
}

TEST_F(Queries, EmptyListIsNoEmptyDump) {
  inventory_.processors.clear();
  EXPECT_EQ(lines("inventoryCPU"), " count: 0\n");
}

TEST_F(Queries, ImageVersionPrecedesItsState) {
  EXPECT_EQ(lines("adapterFW[2]"),
            " image-version: 2.0.1\n image-state: STARTUP, RUNNING\n image-version: 1.9.0\n image-state: BACKUP\n");
  EXPECT_EQ(query(inventory_, "adapterFW[9]"), std::nullopt);
}

TEST_F(Queries, ImageVersionNeedNotBeUtf8) {
  inventory_.adapters[0].set("running-version", "\xff");
  EXPECT_THAT(lines("adapterFW[2]"), HasSubstr(" image-version: \uFFFD\n"));
}

TEST_F(Queries, EveryKeyAndNoOtherIsAnswered) {
  for (const std::string_view key : query_keys()) {
    if (!key.starts_with("adapterFW")) {
      EXPECT_THAT(lines(key), testing::MatchesRegex("( [A-Za-z0-9-]+: [^\n]*\n)+")) << key;
    }
  }
  EXPECT_EQ(query(inventory_, "inventoryGPU"), std::nullopt);
}

TEST_F(Queries, TimestampHasTheFormThatReadersParse) {
  EXPECT_THAT(lines("motherboardStats"), HasSubstr(" consumedPower: 187.5\n"));
  EXPECT_THAT(lines("motherboardStats"),
              testing::ContainsRegex(" timeCollected: [0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\n"));
}

}  // namespace
}  // namespace tavo::service
