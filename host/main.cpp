// snmp-subagentd: see docs/daemon.md.
#include <cstdio>
#include <exception>

#include "host/daemon.h"
#include "host/name.h"
#include "host/options.h"

namespace tavo {
namespace {

ExitStatus run(int argc, const char *const *argv) {
  try {
    const CommandLine command_line = parse_command_line(argc, argv);
    if (command_line.leave) {
      std::fputs(command_line.text.c_str(), *command_line.leave == ExitStatus::Ok ? stdout : stderr);
      return *command_line.leave;
    }
    return run_daemon(command_line.options);
  } catch (const StartFailure &failure) {
    std::fprintf(stderr, "%s: %s\n", daemon_name, failure.what());
    return failure.status();
  } catch (const std::exception &error) {
    std::fprintf(stderr, "%s: %s\n", daemon_name, error.what());
    return ExitStatus::Failure;
  }
}

}  // namespace
}  // namespace tavo

int main(int argc, char **argv) {
  return static_cast<int>(tavo::run(argc, argv));
}
