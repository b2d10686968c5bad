#include "service/event_stream.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <nlohmann/json.hpp>

#include "service/protocol.h"
#include "service/unix_socket.h"

namespace tavo::service {

bool EventStream::admitted() {
  const std::lock_guard lock(mutex_);
  if (refuse_times_ > 0) {
    --refuse_times_;
    return false;
  }
  return !refuse_always_;
}

void EventStream::serve(int fd) {
  Descriptor wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!wake || !admitted()) {
    send_frame(fd, {{"result", ECONNREFUSED}});
    return;
  }
  std::list<Follower>::iterator follower;
  {
    const std::lock_guard lock(mutex_);
    follower = followers_.emplace(followers_.end());
    follower->wake = std::move(wake);
    follower->socket = fd;
  }
  if (send_frame(fd, {{"result", 0}})) {
    follow(*follower);
  }
  const std::lock_guard lock(mutex_);
  followers_.erase(follower);
  sent_.notify_all();
}

void EventStream::follow(Follower &follower) {
  while (send_queued(follower)) {
    std::array<pollfd, 2> watched{{{.fd = follower.socket, .events = POLLIN | POLLRDHUP, .revents = 0},
                                   {.fd = follower.wake.get(), .events = POLLIN, .revents = 0}}};
    if (poll(watched.data(), watched.size(), -1) < 0 && errno != EINTR) {
      return;
    }
    if (watched[0].revents != 0) {
      return;  // the peer has left, or it has sent something, which followers must not do
    }
    eventfd_t count = 0;
    eventfd_read(follower.wake.get(), &count);
  }
}

// False if the follower has left or was dropped.
bool EventStream::send_queued(Follower &follower) {
  for (;;) {
    std::deque<Record> taken;
    {
      const std::lock_guard lock(mutex_);
      if (follower.closed) {
        return false;
      }
      taken.swap(follower.queue);
    }
    if (taken.empty()) {
      return true;
    }
    for (const Record &record : taken) {
      if (!send_all(follower.socket, record)) {
        return false;
      }
      const std::lock_guard lock(mutex_);
      --follower.pending;
      sent_.notify_all();
    }
  }
}

void EventStream::publish(const Record &record) {
  const std::lock_guard lock(mutex_);
  for (Follower &follower : followers_) {
    follower.queue.push_back(record);
    ++follower.pending;
    eventfd_write(follower.wake.get(), 1);
  }
}

void EventStream::wait_for_pending(std::size_t most) {
  std::unique_lock lock(mutex_);
  sent_.wait(lock,
             [&] { return std::ranges::all_of(followers_, [&](const Follower &f) { return f.pending <= most; }); });
}

std::size_t EventStream::close_all() {
  const std::lock_guard lock(mutex_);
  for (Follower &follower : followers_) {
    follower.closed = true;
    shutdown(follower.socket, SHUT_RDWR);
    eventfd_write(follower.wake.get(), 1);
  }
  return followers_.size();
}

void EventStream::refuse(bool always) {
  const std::lock_guard lock(mutex_);
  refuse_always_ = always;
  refuse_times_ = 0;
}

void EventStream::refuse_next(std::size_t times) {
  const std::lock_guard lock(mutex_);
  refuse_times_ = times;
}

std::size_t EventStream::followers() {
  const std::lock_guard lock(mutex_);
  return followers_.size();
}

}  // namespace tavo::service
