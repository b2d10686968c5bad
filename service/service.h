// The service's socket: one thread per connection, so that no client waits for another.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>

#include "core/descriptor.h"
#include "service/machine.h"

namespace tavo::service {

class Service {
 public:
  // Listens at `path`. Makes its directory, and replaces the socket file of a simulator that was killed. Throws
  // std::system_error, or BadInput if another simulator serves there.
  Service(Machine &machine, std::string path);
  ~Service();
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;

  // Serves until the descriptor `stop` is readable. Calls `advance` about once a second, with the seconds since it was
  // called last. The destructor ends the connections and removes the socket file.
  void run(int stop, const std::function<void(unsigned seconds)> &advance);

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
  Descriptor lock_;  // the file beside the socket, locked while the socket is served
  Descriptor listener_;
  std::list<Connection> connections_;  // changed only by the thread in run()
};

}  // namespace tavo::service
