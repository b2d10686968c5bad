// For test programs without tests/fakes/threads.h.
#include <pthread.h>

#include "tests/harness/started_threads.h"

extern "C" {

int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*start_routine)(void *),
                          void *argument);

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*start_routine)(void *),
                          void *argument) {
  tavo::note_started_thread();
  return __real_pthread_create(thread, attributes, start_routine, argument);
}
}
