// Several threads call the daemon's snmp_log, debugmsg and debugmsgtoken at once.
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <latch>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using testing::IsEmpty;

constexpr int threads = 4;
constexpr int rounds = 500;
constexpr const char *token = "log_lock_test";

// Unlocked on purpose, like net-snmp's own log handlers: only the daemon's functions keep the threads apart.
std::vector<std::string> lines;
bool answers_itself = false;

int record_line(netsnmp_log_handler *, int, const char *text) {
  lines.emplace_back();
  std::this_thread::yield();  // gives another thread the chance to interfere
  lines.back() = text;
  if (answers_itself && std::string_view(text).starts_with("log")) {
    snmp_log(LOG_INFO, "heard %s", text);
  }
  return 1;
}

class LogLockTest : public testing::Test {
 protected:
  LogLockTest() : handler_(netsnmp_register_loghandler(NETSNMP_LOGHANDLER_CALLBACK, LOG_DEBUG)) {
    handler_->handler = record_line;
    std::string tokens = token;
    debug_register_tokens(tokens.data());
    snmp_set_do_debugging(1);
    answers_itself = false;
    lines.clear();
  }
  ~LogLockTest() override {
    snmp_set_do_debugging(0);
    netsnmp_remove_loghandler(handler_);
  }

  // Calls `round` on all threads at once, with the number of the thread and of the round.
  static void on_all_threads(const std::function<void(int thread, int round)> &round) {
    std::array<std::thread, threads> running;
    std::latch start(threads);
    for (int i = 0; i < threads; ++i) {
      running[static_cast<std::size_t>(i)] = std::thread([&round, &start, i] {
        start.arrive_and_wait();
        for (int number = 0; number < rounds; ++number) {
          round(i, number);
        }
      });
    }
    for (std::thread &thread : running) {
      thread.join();
    }
  }

 private:
  netsnmp_log_handler *handler_;
};

// One in ten overflows the fixed buffers of net-snmp and the daemon.
std::string filling(int thread, int round) {
  return std::string(round % 10 == 0 ? 3000 : 30, static_cast<char>('a' + thread));
}

std::string line(const char *kind, int thread, int round) {
  return std::string(kind) + " " + std::to_string(thread) + " " + std::to_string(round) + " " + filling(thread, round) +
         "\n";
}

void log_line(int thread, int round) {
  snmp_log(LOG_INFO, "log %d %d %s\n", thread, round, filling(thread, round).c_str());
}

// The lines that were recorded more or less often than expected, each with its surplus (negative when lines are
// missing).
std::map<std::string, int> difference(const std::vector<std::string> &expected) {
  std::map<std::string, int> counts;
  for (const std::string &text : lines) {
    ++counts[text];
  }
  for (const std::string &text : expected) {
    --counts[text];
  }
  std::erase_if(counts, [](const auto &entry) { return entry.second == 0; });
  return counts;
}

std::vector<std::string> lines_of_all(const std::vector<const char *> &kinds) {
  std::vector<std::string> expected;
  for (int thread = 0; thread < threads; ++thread) {
    for (int round = 0; round < rounds; ++round) {
      for (const char *kind : kinds) {
        expected.push_back(line(kind, thread, round));
      }
    }
  }
  return expected;
}

TEST_F(LogLockTest, LinesAndTracesArriveWholeAndOnceEach) {
  on_all_threads([](int thread, int round) {
    log_line(thread, round);
    debugmsgtoken(token, "trace %d %d %s\n", thread, round, filling(thread, round).c_str());
    debugmsg(token, "trace %d %d %s\n", thread, round, filling(thread, round).c_str());
    debugmsg("another_token", "never shown\n");
  });
  std::vector<std::string> expected = lines_of_all({"log", "trace"});
  expected.insert(expected.end(), threads * rounds, std::string(token) + ": ");
  EXPECT_THAT(difference(expected), IsEmpty());
}

TEST_F(LogLockTest, LinesOfOneThreadStayInOrder) {
  on_all_threads(log_line);
  std::array<int, threads> next = {};
  for (const std::string &text : lines) {
    const auto thread = static_cast<std::size_t>(text.at(4) - '0');
    ASSERT_LT(thread, next.size());
    EXPECT_EQ(text, line("log", static_cast<int>(thread), next[thread]++));
  }
  EXPECT_TRUE(std::ranges::all_of(next, [](int count) { return count == rounds; }));
}

TEST_F(LogLockTest, ALogHandlerMayLogItself) {
  answers_itself = true;
  on_all_threads(log_line);
  EXPECT_THAT(difference(lines_of_all({"log", "heard log"})), IsEmpty());
  for (std::size_t i = 0; i + 1 < lines.size(); i += 2) {
    ASSERT_EQ(lines[i + 1], "heard " + lines[i]) << "another thread came between a line and what its handler logs";
  }
}

}  // namespace
}  // namespace tavo
