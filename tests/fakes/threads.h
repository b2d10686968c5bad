// The module's pthread_create and pthread_join. Real, and recorded, until a test says otherwise.
#pragma once

#include <pthread.h>

#include <vector>

namespace tavo::fakes {

struct CreatedThread {
  pthread_t handle;
  const pthread_attr_t *attributes;
  int detach_state;
  void *(*start_routine)(void *);
  void *argument;
};

// Every call of pthread_create that succeeded, oldest first.
std::vector<CreatedThread> created_threads();

// Every handle passed to pthread_join, oldest first.
std::vector<pthread_t> joined_threads();

// From now on pthread_create records the call and succeeds, but starts nothing; joining its handle succeeds at once.
void start_no_threads();

// From now on pthread_create starts nothing and returns `error`.
void fail_thread_creation(int error);

// From now on pthread_join returns `error`. The thread is joined all the same, so that none outlives its test.
void fail_thread_join(int error);

// How many threads were created joinable and not joined, including those that were never started.
int unjoined_threads();

// Back to real threads, and no records.
void reset_threads();

}  // namespace tavo::fakes
