#include "service/service.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <span>
#include <system_error>
#include <utility>

#include "service/protocol.h"
#include "service/requests.h"
#include "service/unix_socket.h"

namespace tavo::service {
namespace {

using nlohmann::json;

[[noreturn]] void fail(const std::string &what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// A killed simulator leaves its socket file behind. The lock on the file beside it tells whether anybody serves it.
Descriptor lock_path(const std::string &path) {
  const std::string name = path + ".lock";
  Descriptor lock(open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!lock) {
    fail(name);
  }
  if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK) {
      throw BadInput("another bmcsim serves " + path);
    }
    fail(name);
  }
  return lock;
}

// Sends the reply; the records of faults follow it. False if the peer takes no more.
bool send_reply(int fd, json reply, bool has_faults) {
  json::binary_t records;
  if (has_faults && reply.contains("records")) {
    records = std::move(reply.at("records").get_binary());
    reply.erase("records");
  }
  return send_frame(fd, reply) && send_all(fd, std::as_bytes(std::span(records)));
}

}  // namespace

Service::Service(Machine &machine, std::string path) : machine_(machine), path_(std::move(path)) {
  const std::filesystem::path directory = std::filesystem::path(path_).parent_path();
  if (!directory.empty()) {
    std::filesystem::create_directories(directory);
  }
  lock_ = lock_path(path_);
  listener_ = listen_at(path_);
  if (!listener_) {
    fail(path_);
  }
}

Service::~Service() {
  unlink(path_.c_str());
  machine_.stop();
  for (Connection &connection : connections_) {
    shutdown(connection.socket.get(), SHUT_RDWR);
  }
  for (Connection &connection : connections_) {
    connection.thread.join();
  }
}

void Service::run(int stop, const std::function<void(unsigned seconds)> &advance) {
  constexpr int interval = 1000;  // ms
  auto advanced = std::chrono::steady_clock::now();
  for (;;) {
    std::array<pollfd, 2> watched{
        {{.fd = stop, .events = POLLIN, .revents = 0}, {.fd = listener_.get(), .events = POLLIN, .revents = 0}}};
    poll(watched.data(), watched.size(), interval);
    if (watched[0].revents != 0) {
      return;
    }
    join_ended();
    const auto passed = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - advanced);
    if (passed.count() > 0) {
      advanced += passed;
      advance(static_cast<unsigned>(passed.count()));
    }
    if (watched[1].revents != 0) {
      accept_one();
    }
  }
}

void Service::accept_one() {
  Descriptor socket(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!socket) {
    // Out of descriptors: other connections will end.
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return;
  }
  if (connections_.size() >= connection_limit) {
    return;
  }
  Connection &connection = connections_.emplace_back();
  connection.socket = std::move(socket);
  connection.thread = std::thread([this, &connection] { serve(connection); });
}

void Service::serve(Connection &connection) {
  const int fd = connection.socket.get();
  try {
    serve_requests(fd);
  } catch (const std::exception &error) {
    std::cerr << "bmcsim: a connection failed: " << error.what() << '\n';
  }
  shutdown(fd, SHUT_RDWR);  // tells the peer at once; the descriptor is closed later
  connection.ended = true;
}

void Service::serve_requests(int fd) {
  while (const auto request = receive_frame(fd, request_limit)) {
    const std::string name = request->contains("call") && request->at("call").is_string() ? request->at("call") : "";
    if (name == call::follow_faults) {
      machine_.faults().broadcaster().serve(fd);
      break;
    }
    if (name == call::follow_storage_events) {
      machine_.storage_events().serve(fd);
      break;
    }
    if (!send_reply(fd, answer(machine_, *request), name == call::faults)) {
      break;
    }
  }
}

void Service::join_ended() {
  std::erase_if(connections_, [](Connection &connection) {
    if (!connection.ended) {
      return false;
    }
    connection.thread.join();
    return true;
  });
}

}  // namespace tavo::service
