// What the module imports from the daemon that loads it. A test sets the handle to the thread it has started.
#include "platform/test_trap.h"

pthread_t test_trap_thread = 0;
