// For tests of what the module keeps as long as its process lives.
#pragma once

#include <string>

namespace tavo {

// Runs the test that calls this in a process where nothing has happened yet: the program is started anew for that one
// test. There this is false and the test goes on; here it is true, a failure over there is one here, and the test
// returns. Its first statement, since the fixture is set up in both processes.
//
// `variable`: "NAME=VALUE", set in that process's environment.
[[nodiscard]] bool ran_in_a_process_of_its_own(const std::string &variable = "");

// Whether this is such a process.
bool is_a_process_of_its_own();

struct ProcessResult {
  bool passed;  // the test ran, and neither failed nor was skipped
  std::string output;
};

// Runs one test of this program, "Suite.Name", in a process of its own.
ProcessResult run_in_a_process_of_its_own(const std::string &test, const std::string &variable = "");

}  // namespace tavo
