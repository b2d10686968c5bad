#include "threads/inventory_refresh.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "tests/fakes/clock.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fixtures/module_fixture.h"

namespace {

using fakes::LogLine;
using tavo::Inventory;
using tavo::RefreshPass;
using tavo::RefreshRequests;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Field;
using testing::IsEmpty;

std::vector<Inventory> rebuilt;

void record(Inventory kind) {
  rebuilt.push_back(kind);
}

class RefreshPassTest : public fakes::ModuleTest {
 protected:
  RefreshPassTest() { rebuilt.clear(); }

  static std::vector<Inventory> served(const RefreshRequests &requests) {
    RefreshPass pass(record);
    pass.serve(requests);
    return rebuilt;
  }

  fakes::FakeClock clock;
};

TEST_F(RefreshPassTest, NothingAskedForIsNothingDone) {
  EXPECT_THAT(served({}), IsEmpty());
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(RefreshPassTest, AFanRefreshesFansAndBoardStatistics) {
  EXPECT_THAT(served({.fans = true}), ElementsAre(Inventory::fans, Inventory::board_statistics));
  EXPECT_THAT(clock.sleeps(), ElementsAre(10));
  EXPECT_THAT(fakes::log_lines(), ElementsAre(LogLine{LOG_DEBUG, "FAN refresh requested\n"}));
}

TEST_F(RefreshPassTest, ASupplyRefreshesSuppliesBoardStatisticsAndFans) {
  EXPECT_THAT(served({.supplies = true}),
              ElementsAre(Inventory::supplies, Inventory::board_statistics, Inventory::fans));
  EXPECT_THAT(clock.sleeps(), ElementsAre(10));
  EXPECT_THAT(fakes::log_texts(), ElementsAre("PSU refresh requested\n"));
}

TEST_F(RefreshPassTest, MemoryRefreshesMemoryRackUnitAndBoardStatistics) {
  EXPECT_THAT(served({.memory = true}),
              ElementsAre(Inventory::memory, Inventory::rack_unit, Inventory::board_statistics));
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_THAT(fakes::log_texts(), ElementsAre("MEM refresh requested\n"));
}

TEST_F(RefreshPassTest, AProcessorRefreshesProcessorsRackUnitAndBoardStatistics) {
  EXPECT_THAT(served({.processors = true}),
              ElementsAre(Inventory::processors, Inventory::rack_unit, Inventory::board_statistics));
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_THAT(fakes::log_texts(), ElementsAre("CPU refresh requested\n"));
}

TEST_F(RefreshPassTest, StorageIsReadAgainAfterAMinuteAndWithoutALine) {
  EXPECT_THAT(served({.storage = true}), ElementsAre(Inventory::storage));
  EXPECT_THAT(clock.sleeps(), ElementsAre(60));
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_F(RefreshPassTest, AnAdaptorRefreshesAdaptors) {
  EXPECT_THAT(served({.adaptors = true}), ElementsAre(Inventory::adaptors));
  EXPECT_THAT(clock.sleeps(), ElementsAre(10));
  EXPECT_THAT(fakes::log_texts(), ElementsAre("ADAPTOR refresh requested\n"));
}

// Each kind's own order, and what an earlier kind of the same pass has done already is left out.
TEST_F(RefreshPassTest, AnyTwoRequestsRebuildEachKindOnceInTheOrderOfThePass) {
  struct Kind {
    bool RefreshRequests::*request;
    std::vector<Inventory> rebuilds;
  };
  const std::vector<Kind> kinds = {
      {&RefreshRequests::fans, {Inventory::fans, Inventory::board_statistics}},
      {&RefreshRequests::supplies, {Inventory::supplies, Inventory::board_statistics, Inventory::fans}},
      {&RefreshRequests::memory, {Inventory::memory, Inventory::rack_unit, Inventory::board_statistics}},
      {&RefreshRequests::processors, {Inventory::processors, Inventory::rack_unit, Inventory::board_statistics}},
      {&RefreshRequests::storage, {Inventory::storage}},
      {&RefreshRequests::adaptors, {Inventory::adaptors}},
  };
  for (std::size_t i = 0; i < kinds.size(); ++i) {
    for (std::size_t j = i + 1; j < kinds.size(); ++j) {
      RefreshRequests requests;
      requests.*kinds[i].request = true;
      requests.*kinds[j].request = true;
      std::vector<Inventory> expected = kinds[i].rebuilds;
      for (const Inventory kind : kinds[j].rebuilds) {
        if (std::find(expected.begin(), expected.end(), kind) == expected.end()) {
          expected.push_back(kind);
        }
      }
      rebuilt.clear();
      EXPECT_THAT(served(requests), ElementsAreArray(expected)) << "requests " << i << " and " << j;
    }
  }
}

TEST_F(RefreshPassTest, ThePeriodicSetLeavesOutFansAndStorage) {
  int supplies_left = 3;
  RefreshPass pass(record);
  pass.refresh_periodically(supplies_left);
  EXPECT_THAT(rebuilt,
              ElementsAre(Inventory::memory, Inventory::processors, Inventory::rack_unit, Inventory::board_statistics,
                          Inventory::adaptors, Inventory::supplies, Inventory::leds));
  EXPECT_EQ(supplies_left, 2);
}

TEST_F(RefreshPassTest, SuppliesTakePartInTheFirstThreePeriodicRefreshesOnly) {
  int supplies_left = 3;
  for (int i = 0; i < 5; ++i) {
    rebuilt.clear();
    RefreshPass pass(record);
    pass.refresh_periodically(supplies_left);
    EXPECT_EQ(std::count(rebuilt.begin(), rebuilt.end(), Inventory::supplies), i < 3 ? 1 : 0) << i;
    EXPECT_EQ(std::count(rebuilt.begin(), rebuilt.end(), Inventory::leds), 1) << i;
  }
  EXPECT_EQ(supplies_left, 0);
}

TEST_F(RefreshPassTest, ARequestForSuppliesUsesUpAPeriodicTurnAllTheSame) {
  int supplies_left = 3;
  RefreshPass pass(record);
  pass.serve({.supplies = true});
  pass.refresh_periodically(supplies_left);
  EXPECT_EQ(std::count(rebuilt.begin(), rebuilt.end(), Inventory::supplies), 1);
  EXPECT_EQ(std::count(rebuilt.begin(), rebuilt.end(), Inventory::board_statistics), 1);
  EXPECT_EQ(supplies_left, 2);
}

TEST_F(RefreshPassTest, AllRequestsAndThePeriodicSetRebuildEachKindOnce) {
  int supplies_left = 1;
  RefreshPass pass(record);
  pass.serve({.fans = true, .supplies = true, .memory = true, .processors = true, .storage = true, .adaptors = true});
  pass.refresh_periodically(supplies_left);
  EXPECT_THAT(rebuilt, ElementsAre(Inventory::fans, Inventory::board_statistics, Inventory::supplies, Inventory::memory,
                                   Inventory::rack_unit, Inventory::processors, Inventory::storage, Inventory::adaptors,
                                   Inventory::leds));
}

std::vector<std::string> events;

// Every line, sleep and rebuild of a pass, in their order.
TEST_F(RefreshPassTest, EachRequestHasItsOwnOrderOfLineSleepAndRebuild) {
  events.clear();
  clock.on_sleep([](unsigned seconds) { events.push_back("sleep " + std::to_string(seconds)); });
  fakes::on_log([](const LogLine &line) { events.push_back(line.text); });
  RefreshPass pass([](Inventory kind) {
    constexpr std::array<const char *, tavo::inventory_kinds> names = {
        "fans", "supplies", "board statistics", "memory", "processors", "rack unit", "storage", "adaptors", "leds"};
    events.emplace_back(names.at(static_cast<std::size_t>(kind)));
  });
  pass.serve({.fans = true, .supplies = true, .memory = true, .processors = true, .storage = true, .adaptors = true});
  EXPECT_THAT(events, ElementsAre("sleep 10", "FAN refresh requested\n", "fans", "board statistics",  //
                                  "PSU refresh requested\n", "sleep 10", "supplies",                  //
                                  "MEM refresh requested\n", "memory", "rack unit",                   //
                                  "CPU refresh requested\n", "processors",                            //
                                  "sleep 60", "storage",                                              //
                                  "ADAPTOR refresh requested\n", "sleep 10", "adaptors"));
  EXPECT_THAT(fakes::log_lines(), Each(Field(&LogLine::priority, LOG_DEBUG)));
}

}  // namespace
