#include "host/deadline_watcher.h"

#include <poll.h>

#include <csignal>
#include <utility>

#include "host/poll_time.h"

namespace tavo {

DeadlineWatcher::~DeadlineWatcher() {
  if (thread_.joinable()) {
    must_end_ = true;
    wake();
    thread_.join();
  }
}

void DeadlineWatcher::start(Look look) {
  look_ = std::move(look);
  // Signals are for other threads.
  sigset_t all;
  sigset_t former;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &former);
  thread_ = std::thread([this] { watch(); });
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

void DeadlineWatcher::watch() {
  while (!must_end_) {
    const auto next = look_();
    pollfd changed{.fd = changed_.get(), .events = POLLIN, .revents = 0};
    poll(&changed, 1, poll_time(next));
    changed_.clear();
  }
}

}  // namespace tavo
