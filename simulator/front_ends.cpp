#include "simulator/front_ends.h"

#include <chrono>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <random>
#include <thread>

#include "simulator/machine.h"
#include "simulator/protocol.h"
#include "simulator/queries.h"
#include "simulator/unix_socket.h"

namespace tavo::sim {
namespace {

using nlohmann::json;

constexpr std::chrono::seconds tool_time_limit(30);
constexpr int command_not_found = 127;  // as a shell reports it

std::optional<json> ask(const std::string &socket, const json &request, std::chrono::milliseconds time_limit) {
  const Descriptor connection = connect_to(socket, time_limit);
  if (!connection || !send_frame(connection.get(), request)) {
    return std::nullopt;
  }
  return receive_frame(connection.get(), reply_limit);
}

std::string standard_input() {
  return {std::istreambuf_iterator<char>(std::cin), {}};
}

// Random octets, the same ones each time, NULs and line ends among them.
void print_garbage() {
  constexpr int octets = 4096;
  std::minstd_rand random;
  for (int i = 0; i < octets; ++i) {
    std::cout.put(static_cast<char>(random() >> 8));
  }
}

int print_file(const std::string &name, const std::string &tool) {
  std::ifstream file(name, std::ios::binary);
  if (!file.is_open()) {
    std::cerr << tool << ": " << name << " cannot be read\n";
    return 1;
  }
  std::cout << file.rdbuf();
  return 0;
}

// What the tool does if it is not made to misbehave.
int work(const std::string &name, const json &reply) {
  if (name == "flatkv") {
    const auto lines = flattened(standard_input());
    if (!lines) {
      std::cerr << "flatkv: the input is not JSON\n";
      return 1;
    }
    std::cout << *lines;
    return 0;
  }
  const auto diagnostic = reply.at("diagnostic").get<std::string>();
  if (!diagnostic.empty()) {
    std::cerr << diagnostic << '\n';
  }
  std::cout << reply.at("output").get_ref<const std::string &>();
  return reply.at("exit").get<int>();
}

}  // namespace

int run_tool(const std::string &name, const std::vector<std::string> &words) {
  const auto reply = ask(socket_path(), {{"call", call::tool}, {"name", name}, {"words", words}}, tool_time_limit);
  if (!reply || !reply->contains("mode")) {
    std::cerr << name << ": the simulator does not answer at " << socket_path() << '\n';
    return 1;
  }
  using enum ToolMode::Kind;
  switch (static_cast<ToolMode::Kind>(reply->at("mode").get<int>())) {
    case Missing:
      std::cerr << name << ": not found\n";
      return command_not_found;
    case Silent:
      return 0;
    case Garbled:
      print_garbage();
      return 0;
    case Prints:
      return print_file(reply->at("file").get<std::string>(), name);
    case Slow:
      std::this_thread::sleep_for(std::chrono::seconds(reply->at("delay").get<unsigned>()));
      return work(name, *reply);
    case Works:
      break;
  }
  return work(name, *reply);
}

int run_control(const std::vector<std::string> &words, const std::string &socket, unsigned wait_seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(wait_seconds);
  // A storm takes as long as its slowest follower, so a reply may take any time.
  const auto try_once = [&] { return ask(socket, {{"call", call::control}, {"words", words}}, no_time_limit); };
  auto reply = try_once();
  while (!reply && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    reply = try_once();
  }
  if (!reply) {
    std::cerr << "bmcsim ctl: no simulator answers at " << socket << "; is 'bmcsim serve' running there?\n";
    return 1;
  }
  if (reply->contains("error")) {
    std::cerr << "bmcsim ctl: " << reply->at("error").get<std::string>() << '\n';
    return 2;
  }
  std::cout << reply->at("output").get<std::string>();
  return 0;
}

}  // namespace tavo::sim
