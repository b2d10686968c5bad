/* The handle of the thread that sends test notifications. The daemon that loads the module defines it, starts the
 * thread and sends it SIGUSR1; the module only joins the thread. A daemon without such a thread leaves the handle
 * undefined, so the module imports it weakly and checks its address. */
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
