// The daemon itself: owns the agent's thread, from loading the module to leaving.
#pragma once

#include "host/exit_status.h"
#include "host/options.h"

namespace tavo {

// Serves until a signal asks it to stop. Returns when every thread has ended; when one cannot be made to, leaves the
// process from within, with the same status. Throws StartFailure while starting.
ExitStatus run_daemon(const Options &options);

}  // namespace tavo
