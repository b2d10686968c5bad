#include "tests/fakes/sockets.h"

#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstddef>
#include <cstring>
#include <limits>
#include <map>
#include <mutex>
#include <span>
#include <string>

#include "tests/fakes/files.h"

namespace tavo::fakes {
namespace {

std::mutex mutex;
struct Failure {
  int error;
  int successes_left;
};

std::map<std::string, Failure, std::less<>> failures;
std::function<void(int)> close_observer;
std::vector<BoundAddress> bound;
std::vector<int> listened;
std::vector<SocketOption> options;
std::vector<OpenedSocket> opened;
std::atomic<std::size_t> most_in_one_send = std::numeric_limits<std::size_t>::max();
int accepting = 0;
std::condition_variable accepting_changed;

void note_accepting(int change) {
  {
    const std::scoped_lock lock(mutex);
    accepting += change;
  }
  accepting_changed.notify_all();
}

// Whether the call is to fail; errno then says why.
bool fails(std::string_view function) {
  const std::scoped_lock lock(mutex);
  const auto failure = failures.find(function);
  if (failure == failures.end() || failure->second.successes_left-- > 0) {
    return false;
  }
  const int error = failure->second.error;
  failures.erase(failure);
  errno = error;
  return true;
}

int note_opened(const char *function, int descriptor) {
  if (descriptor >= 0) {
    const std::scoped_lock lock(mutex);
    opened.push_back({.function = function,
                      .descriptor = descriptor,
                      .close_on_exec = (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == FD_CLOEXEC});
  }
  return descriptor;
}

}  // namespace

void fail_next_socket_call(std::string_view function, int error, int successes) {
  const std::scoped_lock lock(mutex);
  failures.insert_or_assign(std::string(function), Failure{.error = error, .successes_left = successes});
}

void limit_sends(std::size_t octets) {
  most_in_one_send = octets;
}

std::vector<BoundAddress> bound_addresses() {
  const std::scoped_lock lock(mutex);
  return bound;
}

std::vector<int> backlogs() {
  const std::scoped_lock lock(mutex);
  return listened;
}

std::vector<SocketOption> socket_options() {
  const std::scoped_lock lock(mutex);
  return options;
}

std::vector<OpenedSocket> opened_sockets() {
  const std::scoped_lock lock(mutex);
  return opened;
}

void on_close(std::function<void(int)> observer) {
  const std::scoped_lock lock(mutex);
  close_observer = std::move(observer);
}

bool wait_until_accepting(std::chrono::seconds limit) {
  std::unique_lock lock(mutex);
  return accepting_changed.wait_for(lock, limit, [] { return accepting > 0; });
}

void reset_sockets() {
  const std::scoped_lock lock(mutex);
  failures.clear();
  bound.clear();
  listened.clear();
  options.clear();
  opened.clear();
  close_observer = nullptr;
  most_in_one_send = std::numeric_limits<std::size_t>::max();
}

}  // namespace tavo::fakes

using namespace tavo::fakes;

extern "C" {

int __real_close(int descriptor);
int __real_socket(int domain, int type, int protocol);
int __real_setsockopt(int descriptor, int level, int name, const void *value, socklen_t size);
int __real_bind(int descriptor, const sockaddr *address, socklen_t length);
int __real_listen(int descriptor, int backlog);
int __real_accept4(int descriptor, sockaddr *address, socklen_t *length, int flags);
int __real_select(int count, fd_set *readable, fd_set *writable, fd_set *exceptional, timeval *limit);
ssize_t __real_send(int descriptor, const void *octets, std::size_t size, int flags);
ssize_t __real_recv(int descriptor, void *buffer, std::size_t size, int flags);

int __wrap_close(int descriptor) {
  std::function<void(int)> observer;
  {
    const std::scoped_lock lock(mutex);
    observer = close_observer;
  }
  if (observer) {
    observer(descriptor);
  }
  return __real_close(descriptor);
}

int __wrap_socket(int domain, int type, int protocol) {
  return fails("socket") ? -1 : note_opened("socket", __real_socket(domain, type, protocol));
}

int __wrap_setsockopt(int descriptor, int level, int name, const void *value, socklen_t size) {
  if (size == sizeof(int)) {
    SocketOption option = {.descriptor = descriptor, .level = level, .name = name, .value = 0};
    std::memcpy(&option.value, value, sizeof option.value);
    const std::scoped_lock lock(mutex);
    options.push_back(option);
  }
  return fails("setsockopt") ? -1 : __real_setsockopt(descriptor, level, name, value, size);
}

int __wrap_bind(int descriptor, const sockaddr *address, socklen_t length) {
  const auto octets = std::as_bytes(std::span(reinterpret_cast<const char *>(address), length));
  {
    const std::scoped_lock lock(mutex);
    bound.push_back({.family = address->sa_family, .octets = {octets.begin(), octets.end()}});
  }
  if (fails("bind")) {
    return -1;
  }
  if (address->sa_family != AF_UNIX) {
    return __real_bind(descriptor, address, length);
  }
  const std::string path = FakeFiles::real_path(reinterpret_cast<const sockaddr_un *>(address)->sun_path);
  sockaddr_un there = {};
  there.sun_family = AF_UNIX;
  path.copy(there.sun_path, sizeof there.sun_path - 1);
  return __real_bind(descriptor, reinterpret_cast<const sockaddr *>(&there), sizeof there);
}

int __wrap_listen(int descriptor, int backlog) {
  {
    const std::scoped_lock lock(mutex);
    listened.push_back(backlog);
  }
  return fails("listen") ? -1 : __real_listen(descriptor, backlog);
}

int __wrap_accept4(int descriptor, sockaddr *address, socklen_t *length, int flags) {
  if (fails("accept4")) {
    return -1;
  }
  note_accepting(1);
  const int accepted = note_opened("accept4", __real_accept4(descriptor, address, length, flags));
  note_accepting(-1);
  return accepted;
}

int __wrap_select(int count, fd_set *readable, fd_set *writable, fd_set *exceptional, timeval *limit) {
  return fails("select") ? -1 : __real_select(count, readable, writable, exceptional, limit);
}

ssize_t __wrap_send(int descriptor, const void *octets, std::size_t size, int flags) {
  return fails("send") ? -1 : __real_send(descriptor, octets, std::min<std::size_t>(size, most_in_one_send), flags);
}

ssize_t __wrap_recv(int descriptor, void *buffer, std::size_t size, int flags) {
  return fails("recv") ? -1 : __real_recv(descriptor, buffer, size, flags);
}
}
