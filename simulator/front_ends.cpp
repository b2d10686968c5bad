#include "simulator/front_ends.h"

#include <unistd.h>

#include <chrono>
#include <ctime>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <random>

#include "simulator/machine.h"
#include "simulator/queries.h"
#include "simulator/unix_socket.h"

namespace tavo::sim {
namespace {

using nlohmann::json;

constexpr std::chrono::seconds tool_patience(30);
constexpr int command_not_found = 127;

std::optional<json> ask(const std::string &socket, const json &request, std::chrono::milliseconds patience) {
  const Descriptor connection = connect_to(socket, patience);
  if (!connection || !send_frame(connection.get(), request)) {
    return std::nullopt;
  }
  return receive_frame(connection.get(), reply_limit);
}

std::string standard_input() {
  return {std::istreambuf_iterator<char>(std::cin), {}};
}

// Octets of every kind, NULs and line ends among them, always the same.
void print_rubbish() {
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

// Does what the tool does when nothing is wrong with it.
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
  if (reply.contains("diagnostic")) {
    std::cerr << reply.at("diagnostic").get<std::string>() << '\n';
  }
  if (reply.contains("output")) {
    std::cout << reply.at("output").get_ref<const std::string &>();
  }
  return reply.at("exit").get<int>();
}

}  // namespace

int run_tool(const std::string &name, const std::vector<std::string> &words) {
  const auto reply = ask(socket_path(), {{"call", "tool"}, {"name", name}, {"words", words}}, tool_patience);
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
      print_rubbish();
      return 0;
    case Prints:
      return print_file(reply->at("file").get<std::string>(), name);
    case Slow:
      sleep(reply->at("delay").get<unsigned>());
      return work(name, *reply);
    case Works:
      break;
  }
  return work(name, *reply);
}

int run_control(const std::vector<std::string> &words, const std::string &socket, unsigned wait_seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(wait_seconds);
  // A storm or a slow listener may take its time, so the reply is waited for without a limit.
  auto reply = ask(socket, {{"call", "control"}, {"words", words}}, no_time_limit);
  while (!reply && std::chrono::steady_clock::now() < deadline) {
    constexpr timespec pause{.tv_sec = 0, .tv_nsec = 20'000'000};
    nanosleep(&pause, nullptr);
    reply = ask(socket, {{"call", "control"}, {"words", words}}, no_time_limit);
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
