// The inventory refresh thread: rebuilds the tables that a fault or a storage event has marked as due, and most tables
// periodically. The rules are in the tables' descriptions (see refresh/refresh_pass.h).
#pragma once

namespace tavo {

#pragma GCC visibility push(default)
extern "C" {

// Starts the thread. 0, or -1 if it cannot be created.
int create_inventory_thread(void);
// Clears the run flag. The thread is not woken: it ends after its first minute, or after the 10 seconds between two
// passes. A pass in progress is completed first, with its rebuilds and its requests' sleeps (up to 90 seconds).
void stop_inventory_thread(void);
// Waits for the thread to end and destroys the inventory lock. Always 0.
int join_inventory_thread(void);
// The thread's start routine; its argument is not used. Leaves by pthread_exit.
void *inventory_thread(void *unused);
}
#pragma GCC visibility pop

}  // namespace tavo
