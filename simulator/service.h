// The simulator's socket: one thread a connection, so that no client waits for another.
#pragma once

#include <atomic>
#include <list>
#include <mutex>
#include <string>
#include <thread>

#include "simulator/machine.h"
#include "simulator/unix_socket.h"

namespace tavo::sim {

class Service {
 public:
  // Listens at `path`; makes its directory, and takes over a socket file that nobody serves any more. Throws
  // std::system_error, or BadInput when another simulator serves there.
  Service(Machine &machine, std::string path);
  ~Service();
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;

  // Serves until `stop` (a descriptor) is readable, then ends every connection and removes the socket file.
  void run(int stop);

 private:
  struct Connection {
    Descriptor socket;
    std::atomic<bool> ended = false;
    std::thread thread;
  };

  static constexpr std::size_t connection_limit = 1024;

  void accept_one();
  void serve(Connection &connection);
  void serve_requests(int fd);
  void join_ended();

  Machine &machine_;
  const std::string path_;
  Descriptor lock_;  // held by flock as long as the socket is served
  Descriptor listener_;
  std::list<Connection> connections_;  // touched by the thread in run() only, its sockets and flags aside
};

}  // namespace tavo::sim
