// What a client sends to the simulator: CBOR in a frame. The door adds the frame's length.
#include <sys/socket.h>

#include <array>
#include <nlohmann/json.hpp>
#include <string>

#include "core/descriptor.h"
#include "fuzz/harness/door.h"
#include "fuzz/harness/simulated_server.h"
#include "service/little_endian.h"
#include "service/protocol.h"
#include "service/requests.h"
#include "service/unix_socket.h"

namespace tavo::fuzz {
namespace {

// Commands have a door of their own, and some repeat something a hundred million times.
bool is_command(const nlohmann::json &request) {
  const auto name = request.find("call");
  return name != request.end() && *name == service::call::control;
}

}  // namespace

void try_input(Octets input) {
  static service::Machine machine(service::small_inventory(), service::temporary_surroundings());
  if (input.size() > service::request_limit) {
    return;
  }
  std::array<int, 2> ends{};
  expect(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0, "there are sockets");
  Descriptor client(ends[0]);
  const Descriptor server(ends[1]);
  std::array<std::byte, 4> length{};
  service::put_little_endian(length, input.size());
  service::send_all(client.get(), length);
  service::send_all(client.get(), std::as_bytes(input));
  const auto request = service::receive_frame(server.get(), service::request_limit);
  client = Descriptor();
  if (request && !is_command(*request)) {
    nlohmann::json::to_cbor(service::answer(machine, *request));
  }
}

}  // namespace tavo::fuzz
