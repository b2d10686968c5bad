// The storage event thread: requests a rebuild of the RAID tables from the inventory refresh thread whenever the
// storage configuration changes. It touches no table itself.
#pragma once

namespace tavo {

#pragma GCC visibility push(default)
extern "C" {

// Starts the thread. 0, or -1 if it cannot be created.
int create_stor_thread(void);

// The thread's start routine; its argument is not used. Leaves by pthread_exit.
void *stor_thread(void *unused);

// Clears the run flag. The thread is not woken: it ends after the next storage event.
void stop_stor_thread(void);

// Waits for the thread to end. Always 0.
int join_stor_thread(void);
}
#pragma GCC visibility pop

}  // namespace tavo
