#include "refresh/refresh_pass.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/access_lock.h"
#include "core/class_number.h"
#include "core/shortage.h"
#include "sources/stor_info.h"
#include "tests/fakes/allocation.h"
#include "tests/fakes/clock.h"
#include "tests/fakes/files.h"
#include "tests/fakes/mutexes.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/storage_client.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/fixtures/whole_server.h"
#include "tests/harness/manager.h"

namespace tavo {
namespace {

using fakes::LogLine;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr const char *fans = "tavoEquipmentFanTable";
constexpr const char *supplies = "tavoEquipmentPsuTable";
constexpr const char *power = "tavoComputeMbPowerStatsTable";
constexpr const char *temperatures = "tavoComputeRackUnitMbTempStatsTable";
constexpr const char *memory = "tavoMemoryUnitTable";
constexpr const char *memory_statistics = "tavoMemoryUnitEnvStatsTable";
constexpr const char *processors = "tavoProcessorUnitTable";
constexpr const char *processor_statistics = "tavoProcessorEnvStatsTable";
constexpr const char *rack_unit = "tavoComputeRackUnitTable";
constexpr const char *board = "tavoComputeBoardTable";
constexpr const char *adaptors = "tavoAdaptorUnitTable";
constexpr const char *led = "tavoEquipmentHealthLedTable";
// The storage tables' reload, by the line that it logs without a snapshot.
constexpr const char *storage = "Unable to open /var/stor_info_data\n";

// What has happened, in order: rebuilds by their table's name, log lines, sleeps.
std::vector<std::string> events;

// Rebuilds of other tables than those above are not noted: a new table has its own rules and disturbs nobody's order.
template <std::size_t position>
int note_rebuild(int refresh) {
  constexpr auto noted =
      std::to_array<std::string_view>({fans, supplies, power, temperatures, memory, memory_statistics, processors,
                                       processor_statistics, rack_unit, board, adaptors, led});
  EXPECT_EQ(refresh, 1);
  if (const char *name = all_tables()[position]->description().name; std::ranges::count(noted, name) != 0) {
    events.emplace_back(name);
  }
  return 0;
}

constexpr std::size_t most_tables = 64;  // that a pass keeps fresh

template <std::size_t... positions>
constexpr std::array<int (*)(int), sizeof...(positions)> builders(std::index_sequence<positions...>) {
  return {note_rebuild<positions>...};
}

// The module's tables with builders that only note the call.
class RefreshPassTest : public fakes::ModuleTest {
 protected:
  RefreshPassTest() {
    constexpr auto noting = builders(std::make_index_sequence<most_tables>());
    for (std::size_t i = 0; i < all_tables().size(); ++i) {
      TableDescription description = all_tables()[i]->description();
      description.build = noting.at(i);
      tables_.emplace_back(stubs_.emplace_back(description));
    }
    for (Table &table : tables_) {
      pointers_.push_back(&table);
    }
    events.clear();
    fakes::on_log([](const LogLine &line) {
      if (line.text == storage) {
        events.push_back(line.text);
      }
    });
  }

  RefreshPass new_pass() const { return RefreshPass(pointers_); }

  std::vector<std::string> served(std::initializer_list<RefreshCause> causes) const {
    RefreshRequests requests;
    for (const RefreshCause cause : causes) {
      requests.add(cause);
    }
    events.clear();
    RefreshPass pass = new_pass();
    pass.serve(requests);
    return events;
  }

  fakes::FakeClock clock;
  fakes::FakeFiles files;

 private:
  struct Stub : Table {
    explicit Stub(const TableDescription &description) : Table(description, {}, &head) {}
    void *head = nullptr;
  };

  std::deque<TableDescription> stubs_;
  std::deque<Stub> tables_;
  std::vector<Table *> pointers_;
};

RefreshRequests all_requests() {
  RefreshRequests requests;
  for (int cause = 0; cause < static_cast<int>(RefreshCause::Periodic); ++cause) {
    requests.add(static_cast<RefreshCause>(cause));
  }
  return requests;
}

TEST_F(RefreshPassTest, NothingAskedForIsNothingDone) {
  EXPECT_THAT(served({}), IsEmpty());
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(RefreshPassTest, AFanRefreshesFansAndBoardStatistics) {
  EXPECT_THAT(served({RefreshCause::Fans}), ElementsAre(fans, power, temperatures));
  EXPECT_THAT(clock.sleeps(), ElementsAre(10));
  EXPECT_THAT(fakes::log_lines(), ElementsAre(LogLine{LOG_DEBUG, "FAN refresh requested\n"}));
}

TEST_F(RefreshPassTest, ASupplyRefreshesBoardStatisticsAndFans) {
  EXPECT_THAT(served({RefreshCause::PowerSupplies}), ElementsAre(supplies, power, temperatures, fans));
  EXPECT_THAT(clock.sleeps(), ElementsAre(10));
  EXPECT_THAT(fakes::log_texts(), ElementsAre("PSU refresh requested\n"));
}

TEST_F(RefreshPassTest, MemoryRefreshesRackUnitAndBoardStatistics) {
  EXPECT_THAT(served({RefreshCause::Memory}), ElementsAre(memory, memory_statistics, rack_unit, power, temperatures));
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_THAT(fakes::log_texts(), ElementsAre("MEM refresh requested\n"));
}

TEST_F(RefreshPassTest, AProcessorRefreshesRackUnitAndBoardStatistics) {
  EXPECT_THAT(served({RefreshCause::Processors}),
              ElementsAre(processors, processor_statistics, rack_unit, power, temperatures));
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_THAT(fakes::log_texts(), ElementsAre("CPU refresh requested\n"));
}

TEST_F(RefreshPassTest, StorageIsReadAgainAfterAMinute) {
  EXPECT_THAT(served({RefreshCause::Storage}), ElementsAre(storage));
  EXPECT_THAT(clock.sleeps(), ElementsAre(60));
  EXPECT_THAT(fakes::log_texts(), ElementsAre(storage)) << "the request itself logs nothing";
}

TEST_F(RefreshPassTest, AnAdaptorRefreshesAdaptors) {
  EXPECT_THAT(served({RefreshCause::Adaptors}), ElementsAre(adaptors));
  EXPECT_THAT(clock.sleeps(), ElementsAre(10));
  EXPECT_THAT(fakes::log_texts(), ElementsAre("ADAPTOR refresh requested\n"));
}

// Each cause has its own order; what an earlier cause of the same pass has rebuilt is left out.
TEST_F(RefreshPassTest, TwoRequestsRebuildEachTableOnce) {
  const std::vector<std::pair<RefreshCause, std::vector<std::string>>> causes = {
      {RefreshCause::Fans, {fans, power, temperatures}},
      {RefreshCause::PowerSupplies, {supplies, power, temperatures, fans}},
      {RefreshCause::Memory, {memory, memory_statistics, rack_unit, power, temperatures}},
      {RefreshCause::Processors, {processors, processor_statistics, rack_unit, power, temperatures}},
      {RefreshCause::Storage, {storage}},
      {RefreshCause::Adaptors, {adaptors}},
  };
  for (std::size_t i = 0; i < causes.size(); ++i) {
    for (std::size_t j = i + 1; j < causes.size(); ++j) {
      std::vector<std::string> expected = causes[i].second;
      for (const std::string &table : causes[j].second) {
        if (std::ranges::count(expected, table) == 0) {
          expected.push_back(table);
        }
      }
      EXPECT_THAT(served({causes[i].first, causes[j].first}), ElementsAreArray(expected)) << i << " and " << j;
    }
  }
}

TEST_F(RefreshPassTest, ThePeriodicSetLeavesOutFansAndStorage) {
  new_pass().refresh_periodically(0);
  EXPECT_THAT(events, ElementsAre(memory, memory_statistics, processors, processor_statistics, rack_unit, power,
                                  temperatures, adaptors, supplies, led));
}

TEST_F(RefreshPassTest, SuppliesJoinTheFirstThreePeriodicPasses) {
  for (int passes_before = 0; passes_before < 5; ++passes_before) {
    events.clear();
    new_pass().refresh_periodically(passes_before);
    EXPECT_EQ(std::ranges::count(events, supplies), passes_before < 3 ? 1 : 0) << passes_before;
    EXPECT_EQ(std::ranges::count(events, led), 1) << passes_before;
  }
}

TEST_F(RefreshPassTest, ARequestAndThePeriodicSetRebuildOnce) {
  RefreshPass pass = new_pass();
  pass.serve(all_requests());
  pass.refresh_periodically(2);
  EXPECT_THAT(events, ElementsAre(fans, power, temperatures, supplies, memory, memory_statistics, rack_unit, processors,
                                  processor_statistics, storage, adaptors, led));
}

TEST_F(RefreshPassTest, AfterAShortageEveryTableIsRebuiltOnce) {
  new_pass().rebuild_all();
  EXPECT_THAT(events,
              testing::UnorderedElementsAre(fans, supplies, power, temperatures, memory, memory_statistics, processors,
                                            processor_statistics, rack_unit, board, adaptors, led, storage));
  EXPECT_THAT(fakes::velt_requests(), testing::SizeIs(3)) << "the SD cards' controller, cards and partitions";
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

// Every line, sleep and rebuild of a pass, in their order.
TEST_F(RefreshPassTest, EachRequestOrdersLineSleepAndRebuild) {
  clock.on_sleep([](unsigned seconds) { events.push_back("sleep " + std::to_string(seconds)); });
  fakes::on_log([](const LogLine &line) { events.push_back(line.text); });
  new_pass().serve(all_requests());
  EXPECT_THAT(events, ElementsAre("sleep 10", "FAN refresh requested\n", fans, power, temperatures,  //
                                  "PSU refresh requested\n", "sleep 10", supplies,                   //
                                  "MEM refresh requested\n", memory, memory_statistics, rack_unit,   //
                                  "CPU refresh requested\n", processors, processor_statistics,       //
                                  "sleep 60", storage,                                               //
                                  "ADAPTOR refresh requested\n", "sleep 10", adaptors));
}

TEST_F(RefreshPassTest, RequestsAreTakenOnce) {
  acquire_inventory_lock();
  signal_inventory_condition(class_number::memory_module);
  signal_inventory_condition(class_number::storage);
  release_inventory_lock();
  const RefreshRequests taken = RefreshRequests::take();
  EXPECT_TRUE(taken.has(RefreshCause::Memory));
  EXPECT_TRUE(taken.has(RefreshCause::Storage));
  for (const RefreshCause cause :
       {RefreshCause::Fans, RefreshCause::PowerSupplies, RefreshCause::Processors, RefreshCause::Adaptors}) {
    EXPECT_FALSE(taken.has(cause));
  }
  EXPECT_FALSE(RefreshRequests::take().has(RefreshCause::Memory));
}

TEST_F(RefreshPassTest, AMarkSetDuringTheWaitForTheLockCounts) {
  fakes::before_next_mutex_lock([] { signal_inventory_condition(class_number::memory); });
  EXPECT_TRUE(RefreshRequests::take().has(RefreshCause::Memory));
}

// The module's tables themselves, on a server with one of everything.
class WholeRefreshTest : public fakes::ModuleTest {
 protected:
  WholeRefreshTest() {
    testing::internal::CaptureStdout();  // some builders print
    for (const Table *table : all_tables()) {
      table->entry_points().init();
    }
    free_stor_info(head_stor_ptr);  // a reload takes it that nothing was left in memory
  }
  ~WholeRefreshTest() override { testing::internal::GetCapturedStdout(); }

  // At the same time of day each time, which the statistics show.
  void rebuild_all() {
    server_.clock.set(now_);
    RefreshPass(all_tables()).rebuild_all();
  }

  static std::vector<fakes::Answer> shown() {
    std::vector<fakes::Answer> values;
    for (const Table *table : all_tables()) {
      std::ranges::copy(fakes::bulk_walk(table->description().root, 100), std::back_inserter(values));
    }
    return values;
  }

 private:
  fakes::WholeServer server_;
  const std::int64_t now_ = server_.clock.now();
};

TEST_F(WholeRefreshTest, WhatAnyFailedAllocationTookComesBack) {
  rebuild_all();
  const std::vector<fakes::Answer> whole = shown();
  int successes = 0;
  int incomplete = 0;
  while (true) {
    fakes::reset_allocations();
    fakes::fail_allocations(successes, 1);
    rebuild_all();
    if (fakes::failed_allocations() == 0) {
      break;
    }
    incomplete += shown() == whole ? 0 : 1;
    ASSERT_TRUE(shortage_is_over()) << "nobody has noticed the failure after " << successes;
    rebuild_all();
    ASSERT_EQ(shown(), whole) << "after the failure behind " << successes;
    ++successes;
  }
  EXPECT_GT(incomplete, 20) << "most of the " << successes << " failures take something";
}

}  // namespace
}  // namespace tavo
