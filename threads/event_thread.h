// The fault event thread: loads the fault engine's active faults, then applies each change that its broadcaster sends.
#pragma once

namespace tavo {

#pragma GCC visibility push(default)
extern "C" {

// Makes the fault database and starts the thread. 0, or -1 when there is no memory or no thread.
int create_FE_thread(void);
// The thread sees it after its next event: waiting for one blocks.
void stop_FE_thread(void);
// Waits for the thread, then frees the fault database and empties the fault table. Always 1.
int join_FE_thread(void);

// The thread's start routine. Leaves by pthread_exit.
void *FE_thread(void *unused);

// Forgets all faults and loads those that are active from the fault engine. The result of the engine's last read: 0, or
// -1 when the engine's list ended early, which leaves only the faults read before, or when there is no memory.
int init_fault_tables(void);

// Diagnostic hooks. FE_poll gives its argument back; PrintDataFromFE is called with each record before it is applied,
// and does nothing.
int FE_poll(int value);
void PrintDataFromFE(const void *record);
}
#pragma GCC visibility pop

}  // namespace tavo
