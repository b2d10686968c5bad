// The thread that sends a test notification at each SIGUSR1. The daemon owns it; the module supplies its body.
#pragma once

namespace tavo {

#pragma GCC visibility push(default)
extern "C" {

// The start routine for the daemon's test_trap_thread: each SIGUSR1 sends one test notification. The signal must be
// blocked in every thread of the process. A stop takes effect after one more signal, which is still served. Leaves by
// pthread_exit.
void *SendTestTrap(void *unused);

// Clears the thread's run flag, which is set from the moment the module is loaded.
void stop_test_trap_thread(void);

// Joins test_trap_thread. A daemon that does not define that handle has no such thread: nothing is joined, and that is
// no failure. Always 1.
int join_test_trap_thread(void);
}
#pragma GCC visibility pop

}  // namespace tavo
