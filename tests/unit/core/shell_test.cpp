#include "core/shell.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>

#include "tests/fakes/files.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/shell.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

class ShellTest : public fakes::ModuleTest {
 protected:
  static std::optional<std::string> first_line(const std::string &command, std::size_t longest = 127) {
    std::string out(longest + 1, '\x7f');
    const std::string untouched = out;
    if (!first_line_of(command.c_str(), longest, out.data())) {
      EXPECT_EQ(out, untouched);
      return std::nullopt;
    }
    EXPECT_EQ(out.back(), '\x7f');
    out.resize(out.find_last_not_of('\x7f') + 1);
    EXPECT_EQ(out.back(), '\0');
    out.pop_back();
    return out;
  }

  fakes::FakeFiles files;
};

TEST_F(ShellTest, GivesTheFirstLineWithoutItsNewline) {
  EXPECT_EQ(first_line("printf 'one\\ntwo\\n'"), "one");
}

TEST_F(ShellTest, AnEmptyLineIsALine) {
  EXPECT_EQ(first_line("echo"), "");
  EXPECT_EQ(first_line("printf '\\nsecond\\n'"), "");
}

TEST_F(ShellTest, DropsTheLastCharacterReadNewlineOrNot) {
  EXPECT_EQ(first_line("printf 'no newline'"), "no newlin");
  EXPECT_EQ(first_line("printf x"), "");
}

TEST_F(ShellTest, ReadsNoMoreThanTheLongestLine) {
  for (const int longest : {127, 128}) {
    for (const int length : {longest - 2, longest - 1, longest, longest + 1, 1 << 20}) {
      const std::string kept(static_cast<std::size_t>(std::min(length, longest - 1)), 'v');
      const std::string command = "head -c " + std::to_string(length) + " /dev/zero | tr '\\0' v; echo";
      EXPECT_EQ(first_line(command, static_cast<std::size_t>(longest)), kept) << length << " of " << longest;
    }
  }
}

TEST_F(ShellTest, NulsInTheLineAreKept) {
  EXPECT_EQ(first_line("printf 'a\\0b\\n'"), std::string("a\0b", 3));
  EXPECT_EQ(first_line("printf '\\0\\n'"), std::string("\0", 1));
}

TEST_F(ShellTest, ACommandThatPrintsNothingGivesNothing) {
  EXPECT_EQ(first_line("true"), std::nullopt);
  EXPECT_EQ(first_line("no-such-tool 2> /dev/null"), std::nullopt);
  EXPECT_EQ(first_line("'unbalanced 2> /dev/null", 127), std::nullopt);
}

TEST_F(ShellTest, ACommandThatFailsAfterPrintingGivesItsLine) {
  EXPECT_EQ(first_line("echo text; exit 3"), "text");
}

TEST_F(ShellTest, OutputWithoutAnEndDoesNotKeepTheCaller) {
  EXPECT_EQ(first_line("yes"), "y");
}

TEST_F(ShellTest, AFloodOf256MebibytesGivesItsFirstOctets) {
  EXPECT_EQ(first_line("head -c 268435456 /dev/zero 2> /dev/null"), std::string(126, '\0'));
}

TEST_F(ShellTest, AWriterThatLosesItsReaderDoesNotSignalTheModule) {
  static volatile std::sig_atomic_t pipes_broken = 0;
  struct sigaction count = {};
  struct sigaction before;
  count.sa_handler = [](int) { pipes_broken = pipes_broken + 1; };
  ASSERT_EQ(::sigaction(SIGPIPE, &count, &before), 0);
  EXPECT_EQ(first_line("yes"), "y");
  ::sigaction(SIGPIPE, &before, nullptr);
  EXPECT_EQ(pipes_broken, 0);
}

TEST_F(ShellTest, ADaemonThatIgnoresBrokenPipesGetsItsLineToo) {
  const auto before = std::signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(first_line("yes 2> /dev/null"), "y");
  std::signal(SIGPIPE, before);
}

TEST_F(ShellTest, SignalsDoNotEndTheOutput) {
  struct sigaction interrupt = {};  // no SA_RESTART: reads are interrupted
  struct sigaction before;
  interrupt.sa_handler = [](int) {};
  ASSERT_EQ(::sigaction(SIGUSR2, &interrupt, &before), 0);
  const pthread_t reader = ::pthread_self();
  std::jthread signaller([reader](const std::stop_token &stop) {
    while (!stop.stop_requested()) {
      ::pthread_kill(reader, SIGUSR2);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  EXPECT_EQ(first_line("sleep 0.05; printf 'slow '; sleep 0.05; echo line"), "slow line");
  signaller.request_stop();
  signaller.join();
  ::sigaction(SIGUSR2, &before, nullptr);
}

TEST_F(ShellTest, ACommandThatCannotBeStartedGivesNothing) {
  rlimit limit;
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none = {.rlim_cur = 3, .rlim_max = limit.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const auto line = first_line("echo line");
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(line, std::nullopt);
}

TEST_F(ShellTest, LeavesNoDescriptorAndNoChildBehind) {
  const auto descriptors = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
  };
  const auto before = descriptors();
  first_line("yes");
  first_line("no-such-tool 2> /dev/null");
  run_in_shell("true");
  EXPECT_EQ(descriptors(), before);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(ShellTest, ToolsDoNotInheritCloseOnExecDescriptors) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_GE(socket, 0);
  const std::string look = "test -e /proc/self/fd/" + std::to_string(socket) + " && echo inherited || echo closed";
  EXPECT_EQ(first_line(look), "closed");
  ::close(socket);
}

TEST_F(ShellTest, APipeIsNotInheritedByToolsThatStartMeanwhile) {
  first_line("echo");
  EXPECT_EQ(fakes::last_popen_mode(), "re");
}

TEST_F(ShellTest, RunsACommandToItsEnd) {
  const std::string real = fakes::FakeFiles::real_path("/var/written");
  EXPECT_TRUE(run_in_shell("echo written | tr a-z A-Z > %s", real.c_str()));
  EXPECT_EQ(files.read("/var/written"), "WRITTEN\n");
}

TEST_F(ShellTest, RunsAMissingCommandWithoutHarm) {
  EXPECT_TRUE(run_in_shell("no-such-tool 2> /dev/null"));
}

TEST_F(ShellTest, ACommandMayFillItsLength) {
  const fakes::FakeShell shell;
  const std::string tail(longest_command - 5, 'x');
  EXPECT_TRUE(run_in_shell("echo %s", tail.c_str()));
  char out[8];
  first_line_of(7, sizeof out, out, "echo %s", "xy");
  EXPECT_THAT(shell.commands(), testing::ElementsAre("echo " + tail, "echo xy"));
  EXPECT_THAT(fakes::log_lines(), testing::IsEmpty());
}

TEST_F(ShellTest, ACommandThatIsTooLongIsLoggedAndNotRun) {
  const fakes::FakeShell shell;
  const std::string tail(longest_command - 4, 'x');
  EXPECT_FALSE(run_in_shell("echo %s", tail.c_str()));
  EXPECT_THAT(fakes::log_lines(),
              testing::ElementsAre(
                  fakes::LogLine{LOG_ERR, "Not run: a shell command may have 511 characters, this one has 512: echo " +
                                              tail.substr(1) + "...\n"}));
  char out[8] = "before";
  EXPECT_FALSE(first_line_of(6, sizeof out, out, "echo %s", "xy"));
  EXPECT_FALSE(first_line_of(1 << 20, sizeof out, out, "echo %s", tail.c_str()));
  EXPECT_STREQ(out, "before");
  EXPECT_THAT(shell.commands(), testing::IsEmpty());
  EXPECT_THAT(fakes::log_lines(), testing::SizeIs(3)) << "one line for each";
}

}  // namespace
}  // namespace tavo
