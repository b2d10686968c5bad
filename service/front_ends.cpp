#include "service/front_ends.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <random>
#include <thread>

#include "service/control.h"
#include "service/machine.h"
#include "service/protocol.h"
#include "service/queries.h"
#include "service/unix_socket.h"

namespace tavo::service {
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

[[noreturn]] void hang() {
  while (true) {
    pause();
  }
}

// Returns when nobody reads any more.
void flood() {
  // Much faster, and a flood into a file would fill this machine's memory before a daemon ends it.
  constexpr auto pace = std::chrono::milliseconds(5);
  constexpr int lines = 1000;
  std::string part;
  for (int i = 0; i < lines; ++i) {
    part += "this tool prints the same line again and again\n";
  }
  while (std::cout << part << std::flush) {
    std::this_thread::sleep_for(pace);
  }
}

// What a tool prints if it is not made to misbehave.
struct Work {
  std::string output;
  std::string diagnostic;
  int status;
};

Work work(const std::string &name, const json &reply) {
  if (name == "flatkv") {
    const auto lines = flattened(standard_input());
    if (!lines) {
      return {.output = "", .diagnostic = "flatkv: the input is not JSON", .status = 1};
    }
    return {.output = *lines, .diagnostic = "", .status = 0};
  }
  return {.output = reply.at("output"), .diagnostic = reply.at("diagnostic"), .status = reply.at("exit")};
}

int print(const Work &done) {
  if (!done.diagnostic.empty()) {
    std::cerr << done.diagnostic << '\n';
  }
  std::cout << done.output << std::flush;
  return done.status;
}

void die_after_half_of(const Work &done) {
  std::cout << done.output.substr(0, done.output.size() / 2) << std::flush;
  // No other signal ends every process without a core file.
  std::raise(SIGKILL);
}

bool asks_for_help(const std::vector<std::string> &words) {
  return (!words.empty() && words[0] == "help") || std::ranges::find(words, "--help") != words.end();
}

// Help needs no simulator.
int print_help(std::vector<std::string> words) {
  std::erase(words, "--help");
  if (!words.empty() && words[0] == "help") {
    words.erase(words.begin());
  }
  try {
    std::cout << command_help(words);
    return 0;
  } catch (const BadInput &error) {
    std::cerr << "bmcsim ctl: " << error.what() << '\n';
    return wrong_usage;
  }
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
      break;
    case Hangs:
      hang();
    case Floods:
      flood();
      return 1;
    case Forks:
      if (fork() == 0) {
        hang();
      }
      break;
    case Killed:
      die_after_half_of(work(name, *reply));
      break;
    case Works:
      break;
  }
  return print(work(name, *reply));
}

int run_control(const std::vector<std::string> &words, const std::string &socket, unsigned wait_seconds) {
  if (asks_for_help(words)) {
    return print_help(words);
  }
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
    return wrong_usage;
  }
  std::cout << reply->at("output").get<std::string>();
  return 0;
}

}  // namespace tavo::service
