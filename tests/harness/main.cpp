// The main function of the test programs. A test that overruns ends the program with its name; one that starts a thread
// must be in a file that says so; and no thread outlives its test.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

#include "tests/harness/started_threads.h"

namespace tavo {
namespace {

constexpr unsigned int limit = 120;  // seconds, with a sanitizer too

// Written by the signal handler.
char overrun_line[512];

void end_program(int) {
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, overrun_line, sizeof overrun_line);
  _exit(1);
}

class EachTest : public testing::EmptyTestEventListener {
 public:
  EachTest() {
    signal(SIGALRM, end_program);
    std::thread([] {}).join();  // ThreadSanitizer starts its own with the first
    threads_ = running_threads();
  }

  void OnTestStart(const testing::TestInfo &test) override {
    std::snprintf(overrun_line, sizeof overrun_line, "%s.%s is not over after %u s\n", test.test_suite_name(),
                  test.name(), limit);
    alarm(limit);
    forget_started_threads();
  }

  void OnTestEnd(const testing::TestInfo &test) override {
    expect_threads_in_threaded_files_only(test.file());
    expect_running_threads(threads_);
    alarm(0);
  }

  // Google Test's brief output does not tell it.
  void OnTestIterationEnd(const testing::UnitTest &program, int) override {
    if (program.Failed() && GTEST_FLAG_GET(shuffle)) {
      std::printf("In the order of --gtest_shuffle --gtest_random_seed=%d\n", program.random_seed());
    }
  }

 private:
  int threads_;
};

}  // namespace
}  // namespace tavo

int main(int count, char **arguments) {
  testing::InitGoogleMock(&count, arguments);
  testing::UnitTest::GetInstance()->listeners().Append(new tavo::EachTest);
  return RUN_ALL_TESTS();
}
