// Unix stream sockets and the frames that the simulator and its clients exchange over them.
#pragma once

#include <chrono>
#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <string>

#include "core/descriptor.h"

namespace tavo::sim {

// Where the simulator listens when neither the option nor the environment variable BMCSIM_SOCKET says otherwise.
inline constexpr const char *default_socket_path = "/var/bmcsim/socket";
std::string socket_path();

inline constexpr auto no_time_limit = std::chrono::milliseconds::zero();

// Connects; every later send and receive of the socket gives up after `time_limit`. Without a descriptor on failure,
// errno says why. Close-on-exec.
Descriptor connect_to(const std::string &path, std::chrono::milliseconds time_limit);

// Both true when every octet has gone or come; they go on after signals, and no SIGPIPE is raised.
bool send_all(int fd, std::span<const std::byte> octets);
bool receive_all(int fd, std::span<std::byte> octets);

// A frame is a 32-bit little-endian length and that many octets of CBOR.
inline constexpr std::size_t request_limit = std::size_t{8} * 1024;        // what the server takes
inline constexpr std::size_t reply_limit = std::size_t{16} * 1024 * 1024;  // what a client takes

bool send_frame(int fd, const nlohmann::json &message);

// Nothing when the peer has closed, sent a frame above `limit` or one that is no CBOR object.
std::optional<nlohmann::json> receive_frame(int fd, std::size_t limit);

}  // namespace tavo::sim
