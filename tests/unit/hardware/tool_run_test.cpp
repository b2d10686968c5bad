#include "hardware/tool_run.h"

#include <gmock/gmock.h>

#include <csignal>
#include <thread>

#include "program.h"
#include "tests/harness/emulated.h"

namespace tavo::service {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using State = ToolRun::State;

class ToolRunTest : public ProgramTest {
 protected:
  std::string tool(const std::string &commands) { return program("tool", commands); }

  static State end_of(ToolRun &run) { return run.wait(ToolRun::Clock::now() + 30s); }

  // Whether the process whose number was written to this file comes to its end.
  bool ends(const std::string &file) const {
    pid_t process = 0;
    std::ifstream(directory_ / file) >> process;
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (process > 0 && is_running(process) && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(5ms);
    }
    return process > 0 && !is_running(process);
  }

 private:
  // One that nobody has waited for, because its parent has been killed, does not run any more.
  static bool is_running(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    const std::size_t name_end = content.rfind(')');
    return name_end != std::string::npos && content.compare(name_end, 3, ") Z") != 0;
  }
};

TEST_F(ToolRunTest, WhatItPrintsIsTaken) {
  ToolRun run({tool("echo \"$1\"; echo not this >&2"), "this"}, 30s);
  EXPECT_EQ(end_of(run), State::Ended);
  EXPECT_EQ(run.output(), "this\n");
  EXPECT_EQ(run.error(), "");
  EXPECT_TRUE(run.is_gone());
}

TEST_F(ToolRunTest, AMissingProgramIsNamed) {
  if (is_emulated()) {
    GTEST_SKIP() << hides_failed_starts;
  }
  ToolRun run({"/nonexistent/tool"}, 30s);
  EXPECT_EQ(run.state(), State::Ended);
  EXPECT_THAT(run.error(), HasSubstr("/nonexistent/tool: No such"));
}

TEST_F(ToolRunTest, OneThatHangsIsKilledInTime) {
  const std::string note = "echo $$ > $here/pid; ";
  for (const char *hang : {"exec sleep 60", "exec sleep 60 >&-", "exec yes >/dev/null"}) {
    const auto begin = std::chrono::steady_clock::now();
    ToolRun run({tool(note + hang)}, 500ms);
    EXPECT_EQ(end_of(run), State::Killed) << hang;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s) << hang;
    EXPECT_THAT(run.error(), HasSubstr("tool has not answered within 1 s"));
    EXPECT_TRUE(ends("pid")) << hang;
  }
}

TEST_F(ToolRunTest, ItsChildrenAreKilledAsWell) {
  ToolRun run({tool("sleep 60 & echo $! > $here/child; wait")}, 500ms);
  EXPECT_EQ(end_of(run), State::Killed);
  EXPECT_TRUE(ends("child"));
}

TEST_F(ToolRunTest, AChildThatKeepsThePipeIsKilledInTime) {
  ToolRun run({tool("sleep 60 & echo $! > $here/child")}, 500ms);
  EXPECT_EQ(end_of(run), State::Killed);
  EXPECT_THAT(run.error(), HasSubstr("tool has not answered within 1 s"));
  EXPECT_LT(run.descriptor(), 0);
  EXPECT_TRUE(run.is_gone());
  EXPECT_TRUE(ends("child"));
}

TEST_F(ToolRunTest, OneThatPrintsWithoutEndIsEnded) {
  ToolRun run({tool("echo $$ > $here/pid; exec yes")}, 30s);
  EXPECT_EQ(end_of(run), State::Ended);
  EXPECT_LE(run.output().size(), (1U << 20) + 4096);
  EXPECT_TRUE(ends("pid"));
}

TEST_F(ToolRunTest, NobodyHasToWaitForIt) {
  ToolRun run({tool("exec sleep 60")}, 30s);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(run.state(), State::Runs);
  EXPECT_EQ(run.wait(begin + 50ms), State::Runs);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s);
}

TEST_F(ToolRunTest, OneThatNobodyWantsAnyMoreIsKilled) {
  {
    ToolRun run({tool("echo $$ > $here/pid; echo ready; exec sleep 60")}, 30s);
    while (run.output().empty() && run.state() == State::Runs) {
      std::this_thread::sleep_for(5ms);
    }
  }
  EXPECT_TRUE(ends("pid"));
}

TEST_F(ToolRunTest, SignalsCanEndIt) {
  sigset_t signals;
  sigset_t before;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, &before);
  ToolRun run({tool("kill -TERM $$; echo survived")}, 30s);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  EXPECT_EQ(end_of(run), State::Ended);
  EXPECT_EQ(run.output(), "");
}

}  // namespace
}  // namespace tavo::service
