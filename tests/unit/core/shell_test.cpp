#include "core/shell.h"

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

#include "tests/unit/fakes/files.h"
#include "tests/unit/fakes/module_test.h"

namespace {

class ShellTest : public fakes::ModuleTest {
 protected:
  static std::optional<std::string> first_line(const std::string &command, std::size_t longest = 127) {
    std::string out(longest + 1, '\x7f');
    const std::string untouched = out;
    if (!tavo::first_line_of(command.c_str(), longest, out.data())) {
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

TEST_F(ShellTest, gives_the_first_line_without_its_newline) {
  EXPECT_EQ(first_line("printf 'one\\ntwo\\n'"), "one");
}

TEST_F(ShellTest, an_empty_line_is_a_line) {
  EXPECT_EQ(first_line("echo"), "");
  EXPECT_EQ(first_line("printf '\\nsecond\\n'"), "");
}

TEST_F(ShellTest, drops_the_last_character_read_newline_or_not) {
  EXPECT_EQ(first_line("printf 'no newline'"), "no newlin");
  EXPECT_EQ(first_line("printf x"), "");
}

TEST_F(ShellTest, reads_no_more_than_the_longest_line) {
  for (const int longest : {127, 128}) {
    for (const int length : {longest - 2, longest - 1, longest, longest + 1, 1 << 20}) {
      const std::string kept(static_cast<std::size_t>(std::min(length, longest - 1)), 'v');
      const std::string command = "head -c " + std::to_string(length) + " /dev/zero | tr '\\0' v; echo";
      EXPECT_EQ(first_line(command, static_cast<std::size_t>(longest)), kept) << length << " of " << longest;
    }
  }
}

TEST_F(ShellTest, nuls_in_the_line_are_kept) {
  EXPECT_EQ(first_line("printf 'a\\0b\\n'"), std::string("a\0b", 3));
  EXPECT_EQ(first_line("printf '\\0\\n'"), std::string("\0", 1));
}

TEST_F(ShellTest, a_command_that_prints_nothing_gives_nothing) {
  EXPECT_EQ(first_line("true"), std::nullopt);
  EXPECT_EQ(first_line("no-such-tool 2> /dev/null"), std::nullopt);
  EXPECT_EQ(first_line("'unbalanced 2> /dev/null", 127), std::nullopt);
}

TEST_F(ShellTest, a_command_that_fails_after_printing_gives_its_line) {
  EXPECT_EQ(first_line("echo text; exit 3"), "text");
}

TEST_F(ShellTest, output_without_an_end_does_not_keep_the_caller) {
  EXPECT_EQ(first_line("yes"), "y");
}

TEST_F(ShellTest, a_flood_of_256_mebibytes_gives_its_first_octets) {
  EXPECT_EQ(first_line("head -c 268435456 /dev/zero 2> /dev/null"), std::string(126, '\0'));
}

TEST_F(ShellTest, a_writer_that_loses_its_reader_does_not_signal_the_module) {
  static volatile std::sig_atomic_t pipes_broken = 0;
  struct sigaction count = {};
  struct sigaction before;
  count.sa_handler = [](int) { pipes_broken = pipes_broken + 1; };
  ASSERT_EQ(::sigaction(SIGPIPE, &count, &before), 0);
  EXPECT_EQ(first_line("yes"), "y");
  ::sigaction(SIGPIPE, &before, nullptr);
  EXPECT_EQ(pipes_broken, 0);
}

TEST_F(ShellTest, a_daemon_that_ignores_broken_pipes_gets_its_line_too) {
  const auto before = std::signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(first_line("yes 2> /dev/null"), "y");
  std::signal(SIGPIPE, before);
}

TEST_F(ShellTest, signals_do_not_end_the_output) {
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

TEST_F(ShellTest, a_command_that_cannot_be_started_gives_nothing) {
  rlimit limit;
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none = {.rlim_cur = 3, .rlim_max = limit.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const auto line = first_line("echo line");
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(line, std::nullopt);
}

TEST_F(ShellTest, leaves_no_descriptor_and_no_child_behind) {
  const auto descriptors = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
  };
  const auto before = descriptors();
  first_line("yes");
  first_line("no-such-tool 2> /dev/null");
  tavo::run_in_shell("true");
  EXPECT_EQ(descriptors(), before);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(ShellTest, tools_do_not_inherit_close_on_exec_descriptors) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_GE(socket, 0);
  const std::string look = "test -e /proc/self/fd/" + std::to_string(socket) + " && echo inherited || echo closed";
  EXPECT_EQ(first_line(look), "closed");
  ::close(socket);
}

TEST_F(ShellTest, runs_a_command_to_its_end) {
  const std::string real = fakes::FakeFiles::real_path("/var/written");
  tavo::run_in_shell(("echo written | tr a-z A-Z > " + real).c_str());
  EXPECT_EQ(files.read("/var/written"), "WRITTEN\n");
}

TEST_F(ShellTest, runs_a_missing_command_without_harm) {
  tavo::run_in_shell("no-such-tool 2> /dev/null");
}

}  // namespace
