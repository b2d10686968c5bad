// Unix stream sockets.
#pragma once

#include <chrono>
#include <cstddef>
#include <span>
#include <string>

#include "core/descriptor.h"

namespace tavo::service {

inline constexpr auto no_time_limit = std::chrono::milliseconds::zero();

// Connects to the socket at `path`. Every later send and receive on the connection fails after `time_limit`. Returns no
// descriptor if that fails, and errno says why. Close-on-exec.
Descriptor connect_to(const std::string &path, std::chrono::milliseconds time_limit);

// Replaces whatever file is at `path` with a socket that listens, to which only its owner may connect, whatever the
// umask. Returns no descriptor if that fails, and errno says why. Close-on-exec and non-blocking.
Descriptor listen_at(const std::string &path);

// Send or receive all of the octets. False on an error, or if the peer has closed. Signals do not interrupt them, and
// none raises SIGPIPE.
bool send_all(int fd, std::span<const std::byte> octets);
bool receive_all(int fd, std::span<std::byte> octets);

}  // namespace tavo::service
