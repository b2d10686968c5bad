// snmp-subagentd: see docs/daemon.md.
#include <cstdio>
#include <exception>

#include "host/daemon.h"
#include "host/options.h"

int main(int argc, char **argv) {
  using tavo::ExitStatus;
  ExitStatus status = ExitStatus::failure;
  try {
    const tavo::CommandLine command_line = tavo::parse_command_line(argc, argv);
    if (command_line.leave) {
      std::fputs(command_line.text.c_str(), *command_line.leave == ExitStatus::ok ? stdout : stderr);
      return static_cast<int>(*command_line.leave);
    }
    status = tavo::run_daemon(command_line.options);
  } catch (const tavo::StartFailure &failure) {
    std::fprintf(stderr, "snmp-subagentd: %s\n", failure.what());
    status = failure.status();
  } catch (const std::exception &error) {
    std::fprintf(stderr, "snmp-subagentd: %s\n", error.what());
  }
  return static_cast<int>(status);
}
