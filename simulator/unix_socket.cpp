#include "simulator/unix_socket.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <vector>

namespace tavo::sim {

std::string socket_path() {
  const char *path = std::getenv("BMCSIM_SOCKET");
  return path != nullptr && *path != '\0' ? path : default_socket_path;
}

Descriptor connect_to(const std::string &path, std::chrono::milliseconds time_limit) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return {};
  }
  path.copy(address.sun_path, path.size());
  Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!connection) {
    return {};
  }
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time_limit);
  const timeval limit{.tv_sec = seconds.count(),
                      .tv_usec = std::chrono::duration_cast<std::chrono::microseconds>(time_limit - seconds).count()};
  setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  if (connect(connection.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
    const int reason = errno;
    connection = Descriptor();
    errno = reason;
  }
  return connection;
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

bool send_frame(int fd, const nlohmann::json &message) {
  std::vector<std::uint8_t> frame(4);
  nlohmann::json::to_cbor(message, frame);
  const std::size_t length = frame.size() - 4;
  for (std::size_t i = 0; i < 4; ++i) {
    frame[i] = static_cast<std::uint8_t>(length >> (8 * i));
  }
  return send_all(fd, std::as_bytes(std::span(frame)));
}

std::optional<nlohmann::json> receive_frame(int fd, std::size_t limit) {
  std::array<std::byte, 4> header{};
  if (!receive_all(fd, header)) {
    return std::nullopt;
  }
  std::size_t length = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    length |= std::to_integer<std::size_t>(header[i]) << (8 * i);
  }
  if (length > limit) {
    return std::nullopt;
  }
  std::vector<std::uint8_t> body(length);
  if (!receive_all(fd, std::as_writable_bytes(std::span(body)))) {
    return std::nullopt;
  }
  auto message = nlohmann::json::from_cbor(body, true, false);
  if (!message.is_object()) {
    return std::nullopt;
  }
  return message;
}

}  // namespace tavo::sim
