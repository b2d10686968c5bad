#include "simulator/protocol.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <span>
#include <vector>

#include "simulator/little_endian.h"
#include "simulator/unix_socket.h"

namespace tavo::sim {
namespace {

constexpr const char *default_socket_path = "/var/bmcsim/socket";
constexpr std::size_t header_size = 4;  // octets of a frame before its CBOR

}  // namespace

std::string socket_path() {
  const char *path = std::getenv("BMCSIM_SOCKET");
  return path != nullptr && *path != '\0' ? path : default_socket_path;
}

bool send_frame(int fd, const nlohmann::json &message) {
  std::vector<std::uint8_t> frame(header_size);
  nlohmann::json::to_cbor(message, frame);
  put_little_endian(std::as_writable_bytes(std::span(frame)).first(header_size), frame.size() - header_size);
  return send_all(fd, std::as_bytes(std::span(frame)));
}

std::optional<nlohmann::json> receive_frame(int fd, std::size_t limit) {
  std::array<std::byte, header_size> header{};
  if (!receive_all(fd, header)) {
    return std::nullopt;
  }
  const std::uint64_t length = little_endian(header);
  if (length > limit) {
    return std::nullopt;
  }
  std::vector<std::uint8_t> body(length);
  if (!receive_all(fd, std::as_writable_bytes(std::span(body)))) {
    return std::nullopt;
  }
  auto message = nlohmann::json::from_cbor(body, /*strict=*/true, /*allow_exceptions=*/false);
  if (!message.is_object()) {
    return std::nullopt;
  }
  return message;
}

}  // namespace tavo::sim
