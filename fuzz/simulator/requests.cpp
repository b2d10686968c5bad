// What a client sends to the simulator: CBOR in a frame. The door adds the frame's length.
#include <sys/socket.h>

#include <array>
#include <nlohmann/json.hpp>
#include <string>

#include "core/descriptor.h"
#include "fuzz/harness/door.h"
#include "fuzz/harness/simulated_server.h"
#include "simulator/little_endian.h"
#include "simulator/protocol.h"
#include "simulator/requests.h"
#include "simulator/unix_socket.h"

namespace tavo::fuzz {
namespace {

// Commands have a door of their own, and some repeat something a hundred million times.
bool is_command(const nlohmann::json &request) {
  const auto name = request.find("call");
  return name != request.end() && *name == sim::call::control;
}

}  // namespace

void try_input(Octets input) {
  static sim::Machine machine(sim::small_inventory(), sim::temporary_surroundings());
  if (input.size() > sim::request_limit) {
    return;
  }
  std::array<int, 2> ends{};
  expect(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0, "there are sockets");
  Descriptor client(ends[0]);
  const Descriptor server(ends[1]);
  std::array<std::byte, 4> length{};
  sim::put_little_endian(length, input.size());
  sim::send_all(client.get(), length);
  sim::send_all(client.get(), std::as_bytes(input));
  const auto request = sim::receive_frame(server.get(), sim::request_limit);
  client = Descriptor();
  if (request && !is_command(*request)) {
    nlohmann::json::to_cbor(sim::answer(machine, *request));
  }
}

}  // namespace tavo::fuzz
