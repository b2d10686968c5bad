// The programs that the simulated server's other software runs: clients of the simulator's socket.
#pragma once

#include <string>
#include <vector>

namespace tavo::sim {

// datactl, flatkv, slotutil or ipmitool: bmcsim under another name. Returns the program's exit status.
int run_tool(const std::string &name, const std::vector<std::string> &words);

// `bmcsim ctl WORDS...`; waits for the simulator to come up for as long as `wait_seconds` say.
int run_control(const std::vector<std::string> &words, const std::string &socket, unsigned wait_seconds);

}  // namespace tavo::sim
