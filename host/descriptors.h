// Descriptors stay inside the daemon. The module runs tools through the shell; a tool that hangs would otherwise keep
// the AgentX session or a listening port open after the daemon has gone.
#pragma once

namespace tavo {

// Marks every open descriptor above the standard three close-on-exec. For files that libraries opened; sockets are
// born that way (the daemon stands in front of socket() and accept()).
void close_descriptors_on_exec();

}  // namespace tavo
