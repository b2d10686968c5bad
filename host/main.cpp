// snmp-subagentd: see docs/daemon.md.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <string_view>

#include "host/daemon.h"
#include "host/exit_status.h"
#include "host/name.h"
#include "host/options.h"

namespace tavo {
namespace {

// Where nothing can catch a lack of memory: before main(), and where an exception would leave a thread.
[[noreturn]] void end_for_want_of_memory() {
  constexpr std::string_view line = "snmp-subagentd: out of memory\n";
  try {
    std::rethrow_exception(std::current_exception());
  } catch (const std::bad_alloc &) {
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
    _exit(static_cast<int>(ExitStatus::Failure));
  } catch (...) {
  }
  std::abort();
}

// Ahead of every other object with static storage.
__attribute__((constructor(101))) void prepare_for_want_of_memory() {
  std::set_terminate(end_for_want_of_memory);
}

ExitStatus run(int argc, const char *const *argv) {
  try {
    const CommandLine command_line = parse_command_line(argc, argv);
    if (command_line.leave) {
      std::fputs(command_line.text.c_str(), *command_line.leave == ExitStatus::Ok ? stdout : stderr);
      return *command_line.leave;
    }
    return run_daemon(command_line.options);
  } catch (const StartFailure &failure) {
    return report_start_failure(failure);
  } catch (const std::bad_alloc &) {
    std::fprintf(stderr, "%s: out of memory\n", daemon_name);
    return ExitStatus::Failure;
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
