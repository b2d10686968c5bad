// Intercepts the module's socket calls: they can be made to fail, and a Unix-domain address leads to the path that
// fakes/files.h redirects it to.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tavo::fakes {

// After `successes` more, which are real, the next call of `function` ("socket", "setsockopt", "bind", "listen",
// "accept4", "select", "send", "recv") fails with `error`; later ones are real again.
void fail_next_socket_call(std::string_view function, int error, int successes = 0);

// From now on each send takes this many octets at most.
void limit_sends(std::size_t octets);

// What the module has passed, oldest first.
struct BoundAddress {
  unsigned short family;
  std::vector<std::byte> octets;  // as many as the length argument says
};
std::vector<BoundAddress> bound_addresses();
std::vector<int> backlogs();

// Integer options that were set, including those whose call was made to fail.
struct SocketOption {
  int descriptor;
  int level;
  int name;
  int value;
  bool operator==(const SocketOption &) const = default;
};
std::vector<SocketOption> socket_options();

// Descriptors returned by socket and accept4, oldest first, including the sockets that the test itself opens.
struct OpenedSocket {
  std::string function;
  int descriptor;
  bool close_on_exec;
};
std::vector<OpenedSocket> opened_sockets();

// Called at each close of a descriptor, before it is closed.
void on_close(std::function<void(int descriptor)> observer);

// Waits until the module waits for a connection; false when `limit` passes first.
bool wait_until_accepting(std::chrono::seconds limit = std::chrono::seconds(20));

void reset_sockets();

}  // namespace tavo::fakes
