// Intercepts the module's calls on mutexes, conditions and thread attributes: can make a call fail, reports which mutex
// was locked and when a thread is about to wait for one, answers a signal, and records what is destroyed.
#pragma once

#include <functional>
#include <vector>

namespace tavo::fakes {

// After `successes` more, which are real, the calling thread's next `failures` calls of pthread_mutex_lock,
// pthread_mutex_trylock or pthread_mutex_unlock do nothing and return `error`; later ones are real again. Calls that
// the fakes make count too. An error of 0 cancels a failure that has not happened yet.
void fail_next_mutex_call(int error, int successes = 0, int failures = 1);

// The same for calls on this mutex alone: calls on other mutexes are real and do not count.
void fail_next_call_with(const void *mutex, int error, int successes = 0);

// The mutex of the calling thread's last pthread_mutex_lock and of its last pthread_mutex_trylock.
const void *last_locked_mutex();
const void *last_tried_mutex();

// The calling thread calls this within its next pthread_mutex_lock, right before it waits.
void before_next_mutex_lock(std::function<void()> call);

// The condition of the calling thread's last pthread_cond_signal.
const void *last_signalled_condition();

// The calling thread's next pthread_cond_signal calls `answer` instead and returns its result.
void answer_next_signal(std::function<int()> answer);

// Every call of the calling thread is real again.
void reset_mutexes();

// While it lives, pthread_mutex_destroy, pthread_cond_destroy and pthread_attr_destroy only record their argument. One
// at a time.
class Destructions {
 public:
  Destructions();
  ~Destructions();
  Destructions(const Destructions &) = delete;
  Destructions &operator=(const Destructions &) = delete;

  // Oldest first.
  std::vector<const void *> so_far() const;
};

}  // namespace tavo::fakes
