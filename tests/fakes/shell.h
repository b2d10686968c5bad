// The module's system and popen calls. Real until a FakeShell exists.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tavo::fakes {

// While it lives, commands are recorded and answered by the test, and no process is started. What a command prints goes
// to the file behind its last " > ", or else to the module. A command that the test has set no output for prints
// nothing, just like a missing tool: the shell makes the file, and it stays empty. One at a time.
class FakeShell {
 public:
  FakeShell();
  ~FakeShell();
  FakeShell(const FakeShell &) = delete;
  FakeShell &operator=(const FakeShell &) = delete;

  // The exact command prints this, each time.
  void prints(const std::string &command, std::string output);
  // The exact command prints what `output` returns for its call number, from 1; empty: the command cannot be run at
  // all, so popen fails and system leaves the file alone.
  void answers(const std::string &command, std::function<std::optional<std::string>(int call)> output);

  // Every command so far, oldest first.
  std::vector<std::string> commands() const;
  // Only those run with system, or with popen.
  std::vector<std::string> system_commands() const;
  std::vector<std::string> popen_commands() const;
};

// The mode of the last popen, with or without a FakeShell.
std::string last_popen_mode();

}  // namespace tavo::fakes
