// The thread that sends a test notification for each SIGUSR1. The daemon owns it; the module supplies its body.
#pragma once

namespace tavo {

#pragma GCC visibility push(default)
extern "C" {

// The start routine of the daemon's test_trap_thread: sends one test notification for each SIGUSR1, which must be
// blocked in every thread of the process. A stop takes effect after one more signal, which is still served. The
// argument is not used. Leaves by pthread_exit.
void *SendTestTrap(void *unused);

// Clears the thread's run flag, which is set as soon as the module is loaded.
void stop_test_trap_thread(void);

// Waits for test_trap_thread to end. A daemon that does not define this handle has no such thread, which is no failure.
// Always 1.
int join_test_trap_thread(void);
}
#pragma GCC visibility pop

}  // namespace tavo
