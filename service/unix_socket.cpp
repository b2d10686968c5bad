#include "service/unix_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <utility>

namespace tavo::service {
namespace {

// Nothing, with errno set, if the path is too long for a socket.
std::optional<sockaddr_un> address_of(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return std::nullopt;
  }
  path.copy(address.sun_path, path.size());
  return address;
}

const sockaddr *generic(const sockaddr_un &address) {
  return reinterpret_cast<const sockaddr *>(&address);
}

// Closes the socket and leaves errno alone.
Descriptor failed(Descriptor socket) {
  const int reason = errno;
  socket = Descriptor();
  errno = reason;
  return {};
}

void limit_time(int fd, std::chrono::milliseconds time_limit) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time_limit);
  const auto rest = std::chrono::duration_cast<std::chrono::microseconds>(time_limit - seconds);
  const timeval limit{.tv_sec = static_cast<time_t>(seconds.count()),
                      .tv_usec = static_cast<suseconds_t>(rest.count())};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

}  // namespace

Descriptor connect_to(const std::string &path, std::chrono::milliseconds time_limit) {
  const auto address = address_of(path);
  Descriptor connection(address ? socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0) : -1);
  if (!connection) {
    return {};
  }
  limit_time(connection.get(), time_limit);
  if (connect(connection.get(), generic(*address), sizeof *address) != 0) {
    return failed(std::move(connection));
  }
  return connection;
}

Descriptor listen_at(const std::string &path) {
  const auto address = address_of(path);
  Descriptor listener(address ? socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0) : -1);
  if (!listener) {
    return {};
  }
  unlink(path.c_str());
  // The mode set before the bind is the file's from its first moment.
  constexpr mode_t owner_alone = 0600;
  if (fchmod(listener.get(), owner_alone) != 0 || bind(listener.get(), generic(*address), sizeof *address) != 0 ||
      listen(listener.get(), SOMAXCONN) != 0) {
    return failed(std::move(listener));
  }
  return listener;
}

bool send_all(int fd, std::span<const std::byte> octets) {
  while (!octets.empty()) {
    const ssize_t sent = send(fd, octets.data(), octets.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) {
      continue;
    }
    if (sent <= 0) {
      return false;
    }
    octets = octets.subspan(static_cast<std::size_t>(sent));
  }
  return true;
}

bool receive_all(int fd, std::span<std::byte> octets) {
  while (!octets.empty()) {
    const ssize_t received = recv(fd, octets.data(), octets.size(), 0);
    if (received < 0 && errno == EINTR) {
      continue;
    }
    if (received <= 0) {
      return false;
    }
    octets = octets.subspan(static_cast<std::size_t>(received));
  }
  return true;
}

}  // namespace tavo::service
