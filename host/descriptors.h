// Keeps descriptors inside the daemon. The module runs tools through the shell: one that hangs must not keep the AgentX
// session or a listening port open after the daemon has gone.
#pragma once

namespace tavo {

// Marks every open descriptor above the standard three close-on-exec, for the files that libraries open. Sockets are
// created that way already: the daemon replaces socket() and accept().
void close_descriptors_on_exec();

}  // namespace tavo
