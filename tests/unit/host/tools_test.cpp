#include "host/tools.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/harness/emulated.h"
#include "tests/harness/eventually.h"
#include "tests/harness/threaded.h"
#include "tests/unit/host/recorded_log.h"

namespace tavo {
namespace {

using std::chrono::milliseconds;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

constexpr auto no_limit = milliseconds(0);
constexpr auto short_limit = milliseconds(1000);
constexpr auto long_limit = std::chrono::hours(1);
const std::string hanging = "exec sleep 3600";

bool killed(int status) {
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

std::string read_all(FILE *stream) {
  std::string text;
  for (int character = std::fgetc(stream); character != EOF; character = std::fgetc(stream)) {
    text += static_cast<char>(character);
  }
  return text;
}

struct Result {
  std::string output;
  int status;
};

Result read_tool(const std::string &command) {
  FILE *stream = popen(command.c_str(), "re");
  if (stream == nullptr) {
    return {.output = "", .status = -1};
  }
  std::string output = read_all(stream);
  const int status = pclose(stream);
  return {.output = std::move(output), .status = status};
}

std::size_t open_descriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

bool has_children() {
  siginfo_t child;
  return waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT) == 0;
}

// While it lives, standard input is this text.
class StandardInput {
 public:
  explicit StandardInput(const std::string &text) {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    EXPECT_EQ(write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
    close(ends[1]);
  }
  ~StandardInput() {
    dup2(former_, STDIN_FILENO);
    close(former_);
  }
  StandardInput(const StandardInput &) = delete;
  StandardInput &operator=(const StandardInput &) = delete;

 private:
  const int former_ = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
};

class ToolsTest : public testing::Test {
 protected:
  ToolsTest() {
    std::string directory = testing::TempDir() + "tools-XXXXXX";
    directory_ = mkdtemp(directory.data());
  }
  ~ToolsTest() override {
    EXPECT_FALSE(has_children());
    runner_.reset();
    EXPECT_EQ(open_descriptors(), descriptors_);
    std::filesystem::remove_all(directory_);
  }

  void limit(milliseconds limit) { runner_.emplace(limit); }

  // A command that notes its process id in `file` before it does something else.
  std::string noting(const char *file, const std::string &command) const {
    return "echo $$ > " + (directory_ / file).string() + "; " + command;
  }
  // The same in a process of its own.
  std::string child(const char *file, const std::string &command) const {
    return "sh -c '" + noting(file, command) + "'";
  }

  pid_t noted(const char *file) const {
    pid_t process = 0;
    eventually([&] { return (std::ifstream(directory_ / file) >> process).good(); });
    return process;
  }

  // A killed process remains as a zombie until its adoptive parent cares.
  bool has_ended(const char *file) const {
    std::ifstream status("/proc/" + std::to_string(noted(file)) + "/stat");
    std::string process;
    std::string name;
    std::string state;
    return !(status >> process >> name >> state) || state == "Z" || state == "X";
  }

  std::filesystem::path directory_;
  const std::size_t descriptors_ = open_descriptors();
  std::optional<ToolRunner> runner_;
  const RecordedLog log_;
};

TEST_F(ToolsTest, TheCallerGetsStatusAndOutput) {
  limit(long_limit);
  EXPECT_EQ(WEXITSTATUS(std::system("exit 3")), 3);
  const Result result = read_tool("echo one; echo two; exit 4");
  EXPECT_EQ(result.output, "one\ntwo\n");
  EXPECT_EQ(WEXITSTATUS(result.status), 4);
  EXPECT_EQ(WEXITSTATUS(std::system("/nowhere/tool 2>/dev/null")), 127);
  EXPECT_NE(std::system(nullptr), 0) << "there is a shell";
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ToolsTest, ATooLongToolIsKilledWithItsGroup) {
  limit(short_limit);
  const std::string command = child("child", hanging) + " & " + child("other", hanging);
  EXPECT_TRUE(killed(std::system(command.c_str())));
  EXPECT_TRUE(eventually([&] { return has_ended("child") && has_ended("other"); }));
  EXPECT_THAT(log_.lines(), ElementsAre(AllOf(StartsWith("4 tool killed after 1."), EndsWith(command + "\n"))));
}

TEST_F(ToolsTest, AReaderSeesTheEndOfAToolKilledAtItsLimit) {
  limit(short_limit);
  const Result result = read_tool("echo first; " + hanging);
  EXPECT_EQ(result.output, "first\n");
  EXPECT_TRUE(killed(result.status));
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("s: echo first; exec sleep 3600\n")));
}

TEST_F(ToolsTest, EachToolIsKilledAtItsOwnLimit) {
  limit(short_limit);
  std::thread first([&] {
    EXPECT_TRUE(killed(std::system(noting("first", hanging).c_str())));
    EXPECT_FALSE(has_ended("second"));
  });
  EXPECT_GT(noted("first"), 0);
  std::this_thread::sleep_for(short_limit * 4 / 5);
  EXPECT_TRUE(killed(std::system(noting("second", hanging).c_str())));
  first.join();
}

// A group number of 0 would stand for the daemon's own group.
TEST_F(ToolsTest, AToolThatCannotBeStartedIsNeverKilled) {
  if (is_emulated()) {
    GTEST_SKIP() << hides_failed_starts;
  }
  const auto stop_after_a_failed_start = [] {
    setpgid(0, 0);
    ToolRunner runner(no_limit);
    const std::string longer_than_an_argument(1 << 20, 'x');
    EXPECT_EQ(runner.run(longer_than_an_argument.c_str()), -1);
    EXPECT_EQ(errno, E2BIG);
    runner.stop();
    std::_Exit(testing::Test::HasFailure() ? 1 : 0);
  };
  EXPECT_EXIT(stop_after_a_failed_start(), testing::ExitedWithCode(0), "");
}

TEST_F(ToolsTest, ASignalDoesNotEndTheWaitForATool) {
  limit(long_limit);
  struct sigaction interrupts {};
  interrupts.sa_handler = [](int) {};
  struct sigaction former {};
  sigaction(SIGUSR2, &interrupts, &former);
  std::atomic<bool> done = false;
  std::thread waits([&] {
    EXPECT_EQ(WEXITSTATUS(std::system("sleep 0.3; exit 3")), 3);
    const Result result = read_tool("sleep 0.3; echo text; exec >&-; sleep 0.3; exit 4");
    EXPECT_EQ(result.output, "text\n");
    EXPECT_EQ(WEXITSTATUS(result.status), 4);
    done = true;
  });
  while (!done) {
    pthread_kill(waits.native_handle(), SIGUSR2);
    std::this_thread::sleep_for(milliseconds(10));
  }
  waits.join();
  sigaction(SIGUSR2, &former, nullptr);
}

TEST_F(ToolsTest, ToolsAreCounted) {
  limit(short_limit);
  const auto counts = [this] {
    const ToolRunner::Counts now = runner_->counts();
    return std::vector({now.started, now.failed, now.killed});
  };
  EXPECT_THAT(counts(), ElementsAre(0, 0, 0));
  EXPECT_EQ(std::system("true"), 0);
  EXPECT_THAT(counts(), ElementsAre(1, 0, 0));
  EXPECT_EQ(WEXITSTATUS(read_tool("exit 3").status), 3);
  EXPECT_THAT(counts(), ElementsAre(2, 1, 0));
  EXPECT_TRUE(killed(std::system(hanging.c_str())));
  EXPECT_THAT(counts(), ElementsAre(3, 2, 1));
  read_tool("yes");
  EXPECT_THAT(counts(), ElementsAre(4, 3, 2));
  runner_->stop();
  EXPECT_EQ(std::system("true"), -1);
  EXPECT_THAT(counts(), ElementsAre(5, 4, 2));
}

TEST_F(ToolsTest, ATooLongToolIsKilledThoughNobodyReadsIt) {
  limit(short_limit);
  FILE *stream = popen((child("child", hanging) + " & " + noting("tool", hanging)).c_str(), "r");
  EXPECT_TRUE(eventually([&] { return has_ended("tool") && has_ended("child"); }));
  EXPECT_TRUE(killed(pclose(stream)));
}

TEST_F(ToolsTest, AProcessOutsideTheGroupDoesNotHoldTheReader) {
  limit(short_limit);
  const Result result = read_tool("echo first; setsid " + child("outside", hanging) + " &");
  EXPECT_EQ(result.output, "first\n");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(log_.lines().size(), 1U);
  EXPECT_FALSE(has_ended("outside"));
  kill(noted("outside"), SIGKILL);
}

TEST_F(ToolsTest, WhatAToolLeavesInItsGroupIsKilled) {
  limit(long_limit);
  EXPECT_EQ(std::system((child("child", hanging) + " & while ! test -s " + (directory_ / "child").string() +
                         "; do sleep 0.01; done")
                            .c_str()),
            0);
  EXPECT_TRUE(eventually([&] { return has_ended("child"); }));
}

TEST_F(ToolsTest, AToolMayPrintOneMebibyte) {
  limit(long_limit);
  const Result result = read_tool("head -c 1048576 /dev/zero");
  EXPECT_EQ(result.output.size(), 1048576U);
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ToolsTest, AToolThatPrintsMoreIsKilled) {
  limit(long_limit);
  const Result result = read_tool("exec yes");
  EXPECT_EQ(result.output.size(), 1048576U);
  EXPECT_TRUE(killed(result.status));
  EXPECT_THAT(log_.lines(), ElementsAre(MatchesRegex("4 tool killed after [0-9.]+ s and more than 1048576 octets of "
                                                     "output: exec yes\n")));
}

TEST_F(ToolsTest, WithoutALimitAToolTakesItsTime) {
  limit(no_limit);
  EXPECT_EQ(std::system("sleep 0.5"), 0);
  EXPECT_EQ(read_tool("sleep 0.5; echo late").output, "late\n");
}

TEST_F(ToolsTest, StoppingKillsEveryToolAndRefusesMore) {
  limit(no_limit);
  std::thread runs([&] { EXPECT_TRUE(killed(std::system(noting("run", hanging).c_str()))); });
  std::thread reads([&] { EXPECT_TRUE(killed(read_tool(noting("read", hanging)).status)); });
  const std::string holding = "setsid " + child("outside", hanging) + " & " + noting("held", "");
  std::thread held([&] { EXPECT_EQ(read_tool(holding).output, ""); });
  for (const char *file : {"run", "read", "outside", "held"}) {
    EXPECT_GT(noted(file), 0);
  }
  runner_->stop();
  for (std::thread *thread : {&runs, &reads, &held}) {
    thread->join();
  }
  EXPECT_EQ(log_.lines().size(), 3U);
  EXPECT_THAT(log_.lines(), Each(HasSubstr("because the daemon stops: ")));
  EXPECT_EQ(std::system("true"), -1);
  EXPECT_EQ(popen("true", "r"), nullptr);
  EXPECT_EQ(errno, ECANCELED);
  kill(noted("outside"), SIGKILL);
}

TEST_F(ToolsTest, AToolStartsWithDefaultSignalsAndNoInput) {
  limit(long_limit);
  sigset_t blocked;
  sigset_t former;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &blocked, &former);
  const auto handler = std::signal(SIGPIPE, SIG_IGN);
  const StandardInput input("for the daemon");
  const Result result = read_tool("cat; grep -E 'Sig(Ign|Blk)' /proc/self/status; readlink /proc/self/fd/0");
  std::signal(SIGPIPE, handler);
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
  for (const std::string name : {"SigBlk:\t", "SigIgn:\t"}) {
    const std::string mask = result.output.substr(result.output.find(name) + name.size(), 16);
    // Without signals 32 and 33, which the C library keeps to itself.
    EXPECT_EQ(std::stoull(mask, nullptr, 16) & 0x7fffffff, 0U) << name << mask;
  }
  EXPECT_THAT(result.output, EndsWith("\n/dev/null\n"));
  EXPECT_THAT(result.output, Not(HasSubstr("for the daemon")));
}

TEST_F(ToolsTest, TheCallerStillTakesSignals) {
  limit(long_limit);
  const Result while_reading = read_tool("grep SigIgn /proc/$PPID/status");
  EXPECT_EQ(std::system(("grep SigIgn /proc/$PPID/status > " + (directory_ / "signals").string()).c_str()), 0);
  std::ifstream file(directory_ / "signals");
  const std::string while_running(std::istreambuf_iterator<char>(file), {});
  EXPECT_EQ(while_running, while_reading.output) << "system() of the C library ignores SIGINT meanwhile";
}

TEST_F(ToolsTest, AStreamMayBeClosedBeforeItsEnd) {
  limit(long_limit);
  FILE *stream = popen("echo first; exec yes", "r");
  EXPECT_EQ(std::fgetc(stream), 'f');
  const int status = pclose(stream);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGPIPE);
}

TEST_F(ToolsTest, StreamsForWritingAreTheCLibrarys) {
  limit(long_limit);
  FILE *stream = popen(("cat > " + (directory_ / "written").string()).c_str(), "w");
  std::fputs("text", stream);
  EXPECT_EQ(pclose(stream), 0);
  EXPECT_EQ(std::filesystem::file_size(directory_ / "written"), 4U);
}

TEST_F(ToolsTest, WithoutARunnerTheCLibraryRunsTools) {
  EXPECT_EQ(WEXITSTATUS(std::system("exit 3")), 3);
  EXPECT_EQ(read_tool("echo text").output, "text\n");
}

// Run under ThreadSanitizer too.
TEST_F(ToolsTest, SeveralThreadsRunToolsAtOnce) {
  limit(long_limit);
  const std::vector<std::string> texts = {"0", "1", "2", "3", "4", "5", "6", "7"};
  std::vector<std::thread> threads;
  for (const std::string &text : texts) {
    threads.emplace_back([&] {
      for (int round = 0; round < 10; ++round) {
        const Result result = read_tool("echo " + text + "; exit " + text);
        EXPECT_EQ(result.output, text + "\n");
        EXPECT_EQ(std::to_string(WEXITSTATUS(result.status)), text);
        EXPECT_EQ(std::to_string(WEXITSTATUS(std::system(("exit " + text).c_str()))), text);
      }
      EXPECT_TRUE(killed(std::system(noting(text.c_str(), hanging).c_str())));
    });
  }
  for (const std::string &text : texts) {
    EXPECT_GT(noted(text.c_str()), 0);
  }
  runner_->stop();
  for (std::thread &thread : threads) {
    thread.join();
  }
  EXPECT_EQ(log_.lines().size(), texts.size());
}

}  // namespace
}  // namespace tavo
