// What snmp-subagentd leaves with. The numbers are part of its interface: init scripts and tests tell the cases apart
// by them.
#pragma once

#include <stdexcept>
#include <string>

namespace tavo {

enum class ExitStatus : int {
  ok = 0,             // asked to stop, or -h or -v
  failure = 1,        // the system refused something basic: a thread, a descriptor, a fork
  usage = 2,          // bad command line
  configuration = 3,  // a file given with -c or --chassis-block cannot be read
  platform = 4,       // a platform library cannot be loaded
  module = 5,         // the module cannot be loaded
  symbol = 6,         // something that the module needs or must offer is missing
  address = 7,        // a listening address cannot be opened
};

// Ends the start of the daemon: `what()` is the line for the user.
class StartFailure : public std::runtime_error {
 public:
  StartFailure(ExitStatus status, const std::string &message) : std::runtime_error(message), status_(status) {}
  ExitStatus status() const { return status_; }

 private:
  ExitStatus status_;
};

}  // namespace tavo
