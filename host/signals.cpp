#include "host/signals.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <optional>
#include <system_error>
#include <utility>

namespace tavo {
namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned char watcher_must_end = 0;

// Carries signal numbers, one octet each, from the handler to the watcher.
std::array<int, 2> channel = {-1, -1};

void pass_on(int signal_number) {
  const int saved = errno;
  const auto octet = static_cast<unsigned char>(signal_number);
  [[maybe_unused]] const ssize_t written = write(channel[1], &octet, 1);
  errno = saved;
}

void ignore(int /*signal_number*/) {}

void handle(int signal_number, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigaction(signal_number, &action, nullptr);
}

}  // namespace

Signals::Signals(std::chrono::seconds longest_stop, Reactions reactions)
    : longest_stop_(longest_stop), reactions_(std::move(reactions)) {
  if (pipe2(channel.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  sigset_t test_signal;
  sigemptyset(&test_signal);
  sigaddset(&test_signal, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &test_signal, nullptr);
  watcher_ = std::thread([this] { watch(); });
  // An empty handler instead of SIG_IGN, which the module's shell commands would inherit.
  handle(SIGPIPE, ignore);
  // If the daemon inherits SIGCHLD as ignored, the kernel reaps its tools and their statuses are lost.
  handle(SIGCHLD, SIG_DFL);
  for (const int signal_number : {SIGTERM, SIGINT, SIGHUP}) {
    handle(signal_number, pass_on);
  }
}

Signals::~Signals() {
  for (const int signal_number : {SIGTERM, SIGINT, SIGHUP}) {
    handle(signal_number, SIG_IGN);
  }
  pass_on(watcher_must_end);
  watcher_.join();
  for (int &end : channel) {
    close(std::exchange(end, -1));
  }
}

void Signals::watch() {
  std::optional<Clock::time_point> deadline;
  for (;;) {
    pollfd readable{.fd = channel[0], .events = POLLIN, .revents = 0};
    const auto left = deadline ? std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now())
                               : std::chrono::milliseconds(-1);
    if (deadline && (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) == 0)) {
      reactions_.leave_at_once();
    }
    if (!deadline) {
      poll(&readable, 1, -1);
    }
    unsigned char signal_number = 0;
    if (read(channel[0], &signal_number, 1) != 1) {
      continue;
    }
    if (signal_number == watcher_must_end) {
      return;
    }
    if (signal_number == SIGHUP) {
      reload_requested_ = true;
    } else if (stop_requested_.exchange(true)) {
      reactions_.leave_at_once();
    } else {
      deadline = Clock::now() + longest_stop_;
      reactions_.stop_begins();
    }
    changed_.signal();
  }
}

}  // namespace tavo
