// The inventory refresh thread: rebuilds the tables that a fault or a storage event has marked as due, and most of them
// periodically. refresh/refresh_pass.h has the rules.
#pragma once

namespace tavo {

#pragma GCC visibility push(default)
extern "C" {

// 0, or -1 when the thread cannot be created.
int create_inventory_thread(void);
// The thread sees it when it wakes next: after its first minute, or after the 10 seconds between two passes. A pass
// that is under way ends first, with its rebuilds and the sleeps of its requests (up to 90 seconds).
void stop_inventory_thread(void);
// Waits for the thread and destroys the inventory lock. Always 0.
int join_inventory_thread(void);
// The thread's start routine; its argument is not used. Leaves by pthread_exit.
void *inventory_thread(void *unused);
}
#pragma GCC visibility pop

}  // namespace tavo
