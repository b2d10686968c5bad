// The module's two entry points for the daemon that loads it, and the test-notification thread that the daemon owns.
#pragma once

#pragma GCC visibility push(default)
extern "C" {

// Registers every table in a fixed order and starts the background threads. Called once, on the daemon's own thread.
// Always 0: a table that cannot be set up is absent or empty, and the rest is served all the same.
int init_subagent_modules(void);

// Joins the threads and frees what they used. Stops nothing: the daemon calls the stop functions first, or this waits
// for the first thread that still runs. Always 0.
int close_subagent_modules(void);

// The start routine for the daemon's test_trap_thread: each SIGUSR1 sends one test notification. The signal must be
// blocked in every thread of the process. A stop takes effect with the next signal, after that has been served. Leaves
// by pthread_exit.
void *SendTestTrap(void *unused);

// Clears the thread's run flag, which is set from the moment the module is loaded.
void stop_test_trap_thread(void);

// Joins test_trap_thread. A daemon that does not define that handle has no such thread: nothing is joined, and that is
// no failure. Always 1.
int join_test_trap_thread(void);
}
#pragma GCC visibility pop
