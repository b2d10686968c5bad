#include "tests/harness/own_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace tavo {
namespace {

constexpr const char *marker = "TAVO_TEST_IN_ITS_OWN_PROCESS";  // a variable of the environment

// This process's, without what tells Google Test which tests to run and where to write about them.
std::vector<std::string> environment_of_one_test(const std::string &variable_of_its_own) {
  std::vector<std::string> environment = {std::string(marker) + "=1"};
  const std::string name = variable_of_its_own.substr(0, variable_of_its_own.find('=') + 1);
  if (!variable_of_its_own.empty()) {
    environment.push_back(variable_of_its_own);
  }
  for (char **variable = environ; *variable != nullptr; ++variable) {
    const std::string_view inherited = *variable;
    if (!inherited.starts_with("GTEST_") && (name.empty() || !inherited.starts_with(name))) {
      environment.emplace_back(*variable);
    }
  }
  return environment;
}

std::vector<char *> pointers_to(std::vector<std::string> &texts) {
  std::vector<char *> pointers;
  for (std::string &text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

ProcessResult run_in_a_process_of_its_own(const std::string &test, const std::string &variable) {
  std::vector<std::string> words = {"/proc/self/exe", "--gtest_filter=" + test, "--gtest_brief=1",
                                    "--gtest_also_run_disabled_tests"};
  std::vector<std::string> variables = environment_of_one_test(variable);
  const std::vector<char *> arguments = pointers_to(words);
  const std::vector<char *> environment = pointers_to(variables);
  std::array<int, 2> ends;
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(ends[1], STDOUT_FILENO);
    dup2(ends[1], STDERR_FILENO);
    execve(arguments[0], arguments.data(), environment.data());
    _exit(127);
  }
  close(ends[1]);
  std::string output;
  std::array<char, 4096> piece;
  for (ssize_t size = 0; (size = read(ends[0], piece.data(), piece.size())) > 0;) {
    output.append(piece.data(), static_cast<std::size_t>(size));
  }
  close(ends[0]);
  int status = -1;
  waitpid(child, &status, 0);
  return {.passed = status == 0 && output.find("[  PASSED  ] 1 test.") != std::string::npos, .output = output};
}

bool is_a_process_of_its_own() {
  return std::getenv(marker) != nullptr;
}

bool ran_in_a_process_of_its_own(const std::string &variable) {
  if (is_a_process_of_its_own()) {
    return false;
  }
  const testing::TestInfo *test = testing::UnitTest::GetInstance()->current_test_info();
  const ProcessResult result =
      run_in_a_process_of_its_own(std::string(test->test_suite_name()) + '.' + test->name(), variable);
  EXPECT_TRUE(result.passed) << result.output;
  return true;
}

}  // namespace tavo
