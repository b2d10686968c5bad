// Holds a mutex for the length of a block.
#pragma once

#include <pthread.h>

namespace tavo {

class MutexHold {
 public:
  explicit MutexHold(pthread_mutex_t &mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
  MutexHold(const MutexHold &) = delete;
  MutexHold &operator=(const MutexHold &) = delete;
  ~MutexHold() { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t &mutex_;
};

}  // namespace tavo
