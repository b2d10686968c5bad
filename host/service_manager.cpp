#include "host/service_manager.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "core/descriptor.h"

namespace tavo {
namespace {

// A socket that sends to the service manager; none without one.
Descriptor connect_to_service_manager() {
  const char *const name = std::getenv("NOTIFY_SOCKET");
  const std::string_view path = name != nullptr ? name : "";
  sockaddr_un address{};
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    return {};
  }
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, path.size());
  if (path.front() == '@') {
    address.sun_path[0] = '\0';  // an abstract address, which is not in the file system
  }
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
  Descriptor sender(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (sender && connect(sender.get(), reinterpret_cast<const sockaddr *>(&address), size) != 0) {
    return {};
  }
  return sender;
}

}  // namespace

void report_to_service_manager(Report kind, std::string_view state) {
  static std::atomic<bool> is_read = true;
  const Descriptor sender = connect_to_service_manager();
  if (!sender) {
    return;
  }
  const bool is_worth_waiting_for = kind == Report::Decisive || is_read;
  if (is_worth_waiting_for) {
    pollfd room{.fd = sender.get(), .events = POLLOUT, .revents = 0};
    poll(&room, 1, static_cast<int>(std::chrono::milliseconds(longest_report).count()));
  }
  is_read = send(sender.get(), state.data(), state.size(), MSG_NOSIGNAL) >= 0;
  if (!is_read && is_worth_waiting_for) {
    snmp_log(LOG_WARNING, "the service manager did not take %.*s: %s\n", static_cast<int>(state.size()), state.data(),
             std::strerror(errno));
  }
}

}  // namespace tavo
