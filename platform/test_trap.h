/* The test-notification thread's handle. The daemon that loads the module defines it, starts the thread and sends it
 * SIGUSR1; the module only joins the thread. A daemon without such a thread does not define the handle: the module
 * imports it weakly and tests its address. */
#pragma once

#include <pthread.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

extern pthread_t test_trap_thread;

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
