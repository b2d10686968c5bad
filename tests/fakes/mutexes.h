// Between the module and its mutexes, conditions and thread attributes: makes a call fail, tells which mutex was asked
// for and when one is about to be waited for, answers a signal, and records what is destroyed.
#pragma once

#include <functional>
#include <vector>

namespace tavo::fakes {

// After `successes` more, which are real, the calling thread's next pthread_mutex_lock, pthread_mutex_trylock or
// pthread_mutex_unlock does nothing and returns `error`; later ones are real again. The fakes of the platform's
// functions lock and unlock a mutex, too. 0 takes a failure back.
void fail_next_mutex_call(int error, int successes = 0);

// The mutex of the calling thread's last pthread_mutex_lock and of its last pthread_mutex_trylock.
const void *last_locked_mutex();
const void *last_tried_mutex();

// Called by the calling thread within its next pthread_mutex_lock, right before it waits.
void before_next_mutex_lock(std::function<void()> call);

// The condition of the calling thread's last pthread_cond_signal.
const void *last_signalled_condition();

// The calling thread's next pthread_cond_signal calls `answer` instead and returns its result.
void answer_next_signal(std::function<int()> answer);

// Every call of the calling thread is real again.
void reset_mutexes();

// While it lives, pthread_mutex_destroy, pthread_cond_destroy and pthread_attr_destroy record what they are called with
// and leave it as it is. One at a time.
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
