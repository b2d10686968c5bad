// The daemon itself: owns the agent's thread from loading the module to the exit.
#pragma once

#include "host/exit_status.h"
#include "host/options.h"

namespace tavo {

// Serves until a signal stops it, then returns once every thread has ended. If a thread does not end, exits the process
// itself, with the same status. Throws StartFailure while starting.
ExitStatus run_daemon(const Options &options);

}  // namespace tavo
