#include "host/platform_calls.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/harness/eventually.h"
#include "tests/harness/threaded.h"
#include "tests/unit/host/recorded_log.h"

namespace tavo {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr auto short_limit = milliseconds(200);
constexpr auto long_limit = std::chrono::hours(1);

class PlatformCallsTest : public testing::Test {
 protected:
  void limit(milliseconds limit) { calls_.emplace(limit); }

  std::optional<PlatformCalls> calls_;
  const RecordedLog log_;
};

TEST_F(PlatformCallsTest, AQuickCallLeavesNoTrace) {
  limit(long_limit);
  { const PlatformCalls::Call call("GetCPUItems"); }
  const PlatformCalls::Call call("GetCPUInfo");
  EXPECT_EQ(calls_->overdue(), std::nullopt);
  EXPECT_EQ(calls_->overdue_so_far(), 0U);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(PlatformCallsTest, ACallOverTheLimitIsNamedTwice) {
  limit(short_limit);
  std::optional<PlatformCalls::Call> call("veltutil_mgnt");
  ASSERT_TRUE(eventually([&] { return log_.lines().size() == 1; }));
  EXPECT_THAT(log_.lines(), ElementsAre(MatchesRegex("4 platform call not back after [0-9.]+ s: veltutil_mgnt\n")));
  ASSERT_NE(calls_->overdue(), std::nullopt);
  EXPECT_STREQ(calls_->overdue()->function, "veltutil_mgnt");
  EXPECT_GE(calls_->overdue()->age, short_limit);
  std::this_thread::sleep_for(short_limit);
  EXPECT_EQ(log_.lines().size(), 1U) << "once is enough";
  call.reset();
  EXPECT_EQ(log_.lines().size(), 2U);
  EXPECT_THAT(log_.lines().back(), MatchesRegex("4 platform call back after [0-9.]+ s: veltutil_mgnt\n"));
  EXPECT_EQ(calls_->overdue(), std::nullopt);
  EXPECT_EQ(calls_->overdue_so_far(), 1U);
}

TEST_F(PlatformCallsTest, OfSeveralTheOldestIsShown) {
  limit(short_limit);
  std::optional<PlatformCalls::Call> first("GetMemoryItems");
  const PlatformCalls::Call second("getSensorName");
  EXPECT_TRUE(eventually([&] { return calls_->overdue_so_far() == 2; }));
  EXPECT_STREQ(calls_->overdue()->function, "GetMemoryItems");
  first.reset();
  EXPECT_STREQ(calls_->overdue()->function, "getSensorName");
}

TEST_F(PlatformCallsTest, ALaterCallIsSeenAfterAQuickOne) {
  limit(short_limit);
  { const PlatformCalls::Call quick("GetCPUItems"); }
  std::this_thread::sleep_for(2 * short_limit);  // the watcher rests again
  const PlatformCalls::Call slow("GetCPUInfo");
  EXPECT_TRUE(eventually([&] { return calls_->overdue_so_far() == 1; }));
}

TEST_F(PlatformCallsTest, WithoutALimitNothingIsWatched) {
  limit(milliseconds(0));
  const PlatformCalls::Call call("GetCPUItems");
  EXPECT_EQ(calls_->overdue(), std::nullopt);
}

TEST_F(PlatformCallsTest, CallsFromManyThreadsAreAllEnded) {
  limit(milliseconds(1));
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 200; ++round) {
        const PlatformCalls::Call call("IPMI_SensorGetSensorData");
        if (round % 50 == 0) {
          std::this_thread::sleep_for(milliseconds(10));
        }
        static_cast<void>(calls_->overdue());
      }
    });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  EXPECT_EQ(calls_->overdue(), std::nullopt);
  EXPECT_GT(calls_->overdue_so_far(), 0U) << "a busy watcher misses some";
  EXPECT_EQ(log_.lines().size() % 2, 0U);
}

// Every wake-up of the watcher is a voluntary context switch.
long context_switches() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_nvcsw;
}

TEST_F(PlatformCallsTest, TheWatcherDoesNotWakeForEachCall) {
  limit(long_limit);
  { const PlatformCalls::Call first("GetCPUItems"); }
  std::this_thread::sleep_for(milliseconds(100));
  const long before = context_switches();
  for (int i = 0; i < 1000; ++i) {
    const PlatformCalls::Call call("GetCPUItems");
  }
  EXPECT_LT(context_switches() - before, 100);
}

TEST_F(PlatformCallsTest, TheDaemonStandsInFrontOfEachFunction) {
  Dl_info self{};
  ASSERT_NE(dladdr(reinterpret_cast<void *>(&context_switches), &self), 0);
  for (const char *name : watched_platform_functions()) {
    Dl_info found{};
    void *function = dlsym(RTLD_DEFAULT, name);
    ASSERT_NE(function, nullptr) << name;
    dladdr(function, &found);
    EXPECT_EQ(found.dli_fbase, self.dli_fbase) << name;
  }
}

}  // namespace
}  // namespace tavo
