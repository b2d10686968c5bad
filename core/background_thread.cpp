#include "core/background_thread.h"

#include "core/health.h"

namespace tavo {

int BackgroundThread::create(Caller caller) {
  run_flag_.store(1, std::memory_order_relaxed);
  pthread_attr_init(&attributes_);
  pthread_attr_setdetachstate(&attributes_, PTHREAD_CREATE_JOINABLE);
  trace(caller, description_.source, description_.creating, caller.function);
  if (const int error = pthread_create(&handle_, &attributes_, description_.start_routine, nullptr); error != 0) {
    snmp_log(description_.failure_level, "%s", description_.create_failed);
    report(tavo_thread_missing, caller.function, error);
    return -1;
  }
  created_ = true;
  return 0;
}

void BackgroundThread::stop() {
  snmp_log(LOG_DEBUG, "%s", description_.stopping);
  clear_run_flag();
}

void BackgroundThread::join() {
  // Without a thread the handle is invalid, and pthread_join would use it all the same.
  if (!created_ || pthread_join(handle_, nullptr) != 0) {
    snmp_log(description_.failure_level, "%s", description_.join_failed);
  }
  created_ = false;
  if (description_.release_before_attributes != nullptr) {
    description_.release_before_attributes();
  }
  pthread_attr_destroy(&attributes_);
  if (description_.release_after_attributes != nullptr) {
    description_.release_after_attributes();
  }
  snmp_log(LOG_DEBUG, "%s", description_.exited);
}

}  // namespace tavo
