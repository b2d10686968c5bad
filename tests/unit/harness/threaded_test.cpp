// What a test that starts threads is held to.
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <pthread.h>

#include <functional>
#include <future>
#include <latch>
#include <ostream>
#include <thread>

#include "tests/fakes/threads.h"
#include "tests/harness/started_threads.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

struct WayToStart {
  const char *name;
  void (*start)();
};

void PrintTo(const WayToStart &way, std::ostream *out) {
  *out << way.name;
}

void *do_nothing(void *) {
  return nullptr;
}

class StartedThreadTest : public testing::TestWithParam<WayToStart> {};

INSTANTIATE_TEST_SUITE_P(EveryWay, StartedThreadTest,
                         testing::Values(WayToStart{"Thread", [] { std::thread([] {}).join(); }},
                                         WayToStart{"JoiningThread", [] { std::jthread([] {}); }},
                                         WayToStart{"Async", [] { std::async(std::launch::async, [] {}).wait(); }},
                                         WayToStart{"PthreadCreate",
                                                    [] {
                                                      pthread_t thread = {};
                                                      ASSERT_EQ(pthread_create(&thread, nullptr, do_nothing, nullptr),
                                                                0);
                                                      pthread_join(thread, nullptr);
                                                    }}),
                         [](const auto &test) { return test.param.name; });

TEST_P(StartedThreadTest, FailsInAFileWithoutTheMarker) {
  forget_started_threads();
  GetParam().start();
  EXPECT_NONFATAL_FAILURE(expect_threads_in_threaded_files_only("another_test.cpp"), "threaded.h");
}

TEST_P(StartedThreadTest, IsAllowedInAFileWithTheMarker) {
  GetParam().start();
  expect_threads_in_threaded_files_only(__FILE__);
}

TEST(ThreadedTest, WithoutAThreadNoFileNeedsTheMarker) {
  forget_started_threads();
  expect_threads_in_threaded_files_only("another_test.cpp");
}

TEST(ThreadedTest, AThreadThatOutlivesItsTestFails) {
  const int before = running_threads();
  std::latch end(1);
  std::thread late([&] { end.wait(); });
  EXPECT_NONFATAL_FAILURE(expect_running_threads(before), "outlives");
  end.count_down();
  late.join();
  expect_running_threads(before);
}

}  // namespace
}  // namespace tavo
