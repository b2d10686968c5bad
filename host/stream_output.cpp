#include "host/stream_output.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "host/interposed.h"

namespace tavo {
namespace {

using Clock = std::chrono::steady_clock;

bool is_tcp(int socket) {
  int protocol = 0;
  socklen_t size = sizeof protocol;
  return getsockopt(socket, SOL_SOCKET, SO_PROTOCOL, &protocol, &size) == 0 && protocol == IPPROTO_TCP;
}

bool writable_within(int socket, std::chrono::milliseconds limit) {
  pollfd room{.fd = socket, .events = POLLOUT, .revents = 0};
  return poll(&room, 1, static_cast<int>(std::max<std::int64_t>(limit.count(), 0))) > 0;
}

// The whole message, or an error.
ssize_t send_in_time(int socket, const char *octets, std::size_t size, int flags) {
  const auto deadline = Clock::now() + longest_send;
  std::size_t sent = 0;
  while (sent < size) {
    const ssize_t now = send(socket, octets + sent, size - sent, flags | MSG_DONTWAIT | MSG_NOSIGNAL);
    if (now >= 0) {
      sent += static_cast<std::size_t>(now);
    } else if (errno == EAGAIN) {
      if (!writable_within(socket, std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()))) {
        snmp_log(LOG_WARNING, "a TCP peer does not read: its connection is closed\n");
        shutdown(socket, SHUT_RDWR);
        errno = ETIMEDOUT;
        return -1;
      }
    } else if (errno != EINTR) {
      return -1;
    }
  }
  return static_cast<ssize_t>(sent);
}

}  // namespace

bool writable(int socket) {
  return writable_within(socket, std::chrono::milliseconds(0));
}

extern "C" ssize_t sendto(int socket, const void *octets, std::size_t size, int flags, const sockaddr *to,
                          socklen_t to_size) {
  using Function = ssize_t(int, const void *, std::size_t, int, const sockaddr *, socklen_t);
  static auto *const original = next_definition<Function>("sendto");
  if (to != nullptr || !is_tcp(socket)) {
    return original(socket, octets, size, flags, to, to_size);
  }
  return send_in_time(socket, static_cast<const char *>(octets), size, flags);
}

}  // namespace tavo
