#include "host/signals.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <thread>

#include "tests/harness/own_process.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

// The module's threads and net-snmp do not expect a call to be interrupted.
TEST(SignalsTest, ASignalDoesNotInterruptACall) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  Signals signals(std::chrono::seconds(60), {.stop_begins = [] {}, .leave_at_once = [] {}});
  std::array<int, 2> channel{};
  ASSERT_EQ(pipe(channel.data()), 0);
  for (const int number : {SIGHUP, SIGPIPE, SIGTERM}) {
    std::thread sender([&, reader = pthread_self()] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      pthread_kill(reader, number);
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      EXPECT_EQ(write(channel[1], "x", 1), 1);
    });
    char octet = 0;
    EXPECT_EQ(read(channel[0], &octet, 1), 1) << "signal " << number;
    sender.join();
  }
}

}  // namespace
}  // namespace tavo
