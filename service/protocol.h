// What the simulator and its clients say to each other over a Unix socket: frames, each a 32-bit little-endian length
// and that many octets of CBOR.
//
// A client sends a request, {"call": NAME, ...}, and gets one reply. The records of faults that were asked for follow
// their reply raw, so that the client receives them where they belong: 1,024 of them are a megabyte, of which a frame
// and the value parsed from it would be two copies more. A follow_... call turns the connection into a stream of raw
// records after its reply.
#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace tavo::service {

// Where the simulator listens: the environment variable BMCSIM_SOCKET or, without it, /var/bmcsim/socket.
std::string socket_path();

// The calls that make up the protocol.
namespace call {

inline constexpr const char *ping = "ping";
inline constexpr const char *processors = "processors";
inline constexpr const char *dimms = "dimms";
inline constexpr const char *dimm_number = "dimm-number";
inline constexpr const char *sensor = "sensor";
inline constexpr const char *presence = "presence";
inline constexpr const char *fru_board = "fru-board";
inline constexpr const char *fru_product = "fru-product";
inline constexpr const char *fault_count = "fault-count";
inline constexpr const char *faults = "faults";
inline constexpr const char *sd_cards = "velt";
inline constexpr const char *tool = "tool";
inline constexpr const char *control = "control";
inline constexpr const char *follow_faults = "follow-faults";
inline constexpr const char *follow_storage_events = "follow-storage-events";

}  // namespace call

// The longest frame that each side accepts, in octets.
inline constexpr std::size_t request_limit = std::size_t{8} * 1024;
inline constexpr std::size_t reply_limit = std::size_t{16} * 1024 * 1024;

bool send_frame(int fd, const nlohmann::json &message);

// Nothing if the peer has closed, or if the frame is longer than `limit`, is not a CBOR object or is nested deeply.
std::optional<nlohmann::json> receive_frame(int fd, std::size_t limit);

}  // namespace tavo::service
