// The exit statuses of snmp-subagentd. The numbers are part of its interface: init scripts and tests tell failures
// apart by them.
#pragma once

#include <stdexcept>
#include <string>

namespace tavo {

enum class ExitStatus : int {
  Ok = 0,             // stopped on request, or -h or -v
  Failure = 1,        // the system refused something basic: memory, a thread, a descriptor
  Usage = 2,          // bad command line
  Configuration = 3,  // a file named with -c or --chassis-block cannot be read
  Platform = 4,       // a platform library cannot be loaded
  Module = 5,         // the module cannot be loaded
  Symbol = 6,         // the module needs a symbol that nobody defines, or lacks one that the daemon needs
  Address = 7,        // a listening address cannot be opened
};

// Ends the start of the daemon. `what()` is the line printed for the user.
class StartFailure : public std::runtime_error {
 public:
  StartFailure(ExitStatus status, const std::string &message) : std::runtime_error(message), status_(status) {}
  ExitStatus status() const { return status_; }

 private:
  ExitStatus status_;
};

// Tells the user, on standard error, and the service manager why the start has ended. Returns the exit status.
ExitStatus report_start_failure(const StartFailure &failure);

}  // namespace tavo
