// The module's two entry points for the daemon that loads it.
#pragma once

namespace tavo {

#pragma GCC visibility push(default)
extern "C" {

// Registers every table in a fixed order and starts the background threads. Called once, on the daemon's own thread.
// Always 0: a table that cannot be set up is absent or empty, and the rest is served all the same.
int init_subagent_modules(void);

// Joins the threads and frees what they used. It stops no thread: the daemon must call the stop functions first, or
// this call waits for ever. Always 0.
int close_subagent_modules(void);
}
#pragma GCC visibility pop

}  // namespace tavo
