#include "tests/fakes/signals.h"

#include <signal.h>

#include <condition_variable>
#include <mutex>

namespace tavo::fakes {
namespace {

std::mutex mutex;
std::condition_variable counted;
int waits = 0;

}  // namespace

bool wait_for_sigwait(int times, std::chrono::seconds limit) {
  std::unique_lock lock(mutex);
  return counted.wait_for(lock, limit, [times] { return waits >= times; });
}

void reset_signals() {
  const std::scoped_lock lock(mutex);
  waits = 0;
}

}  // namespace tavo::fakes

extern "C" {

int __real_sigwait(const sigset_t *signals, int *signal);

int __wrap_sigwait(const sigset_t *signals, int *signal) {
  {
    const std::scoped_lock lock(tavo::fakes::mutex);
    ++tavo::fakes::waits;
  }
  tavo::fakes::counted.notify_all();
  return __real_sigwait(signals, signal);
}
}
