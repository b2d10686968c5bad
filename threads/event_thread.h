// The fault event thread: loads the fault engine's active faults, then applies each change that its broadcaster sends.
#pragma once

namespace tavo {

#pragma GCC visibility push(default)
extern "C" {

// Creates the fault database and starts the thread. 0, or -1 if memory is short or the thread cannot be created.
int create_FE_thread(void);
// Clears the run flag. The thread is not woken: it ends after the next record.
void stop_FE_thread(void);
// Waits for the thread, then frees the fault database and empties the fault table. Always 1.
int join_FE_thread(void);

// The thread's start routine; its argument is not used. Leaves by pthread_exit.
void *FE_thread(void *unused);

// Forgets all faults and loads the active ones from the fault engine. The result of the engine's last read: 0, or -1 if
// the engine's list ended early, and then only the faults read so far are loaded. Also -1 if memory is short. The
// thread does it again after a -1 while the engine counts active faults: at once, then every second, 10 times in all.
int init_fault_tables(void);

// Diagnostic hooks. FE_poll returns its argument. PrintDataFromFE is called with each record before it is applied, and
// does nothing.
int FE_poll(int value);
void PrintDataFromFE(const void *record);
}
#pragma GCC visibility pop

}  // namespace tavo
