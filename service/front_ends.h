// The programs that are clients of the simulator: the query tools and `bmcsim ctl`.
#pragma once

#include <string>
#include <vector>

namespace tavo::service {

// The exit status for an option, a command, a field or a value that is wrong.
inline constexpr int wrong_usage = 2;

// Runs the query tool `name` (one of tool_names) with the words of its command line. Returns its exit status.
int run_tool(const std::string &name, const std::vector<std::string> &words);

// Runs `bmcsim ctl WORDS...` against the simulator at `socket`, and waits up to `wait_seconds` for it to come up.
// Returns the exit status: 0, 1 if no simulator answers, or 2 if the command is wrong.
int run_control(const std::vector<std::string> &words, const std::string &socket, unsigned wait_seconds);

}  // namespace tavo::service
