#include "hardware/smart.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <nlohmann/json.hpp>
#include <span>
#include <thread>

#include "core/descriptor.h"

extern char **environ;

namespace tavo::service {
namespace {

using nlohmann::json;

// Deeper than anything that smartctl prints.
constexpr int deepest = 32;
constexpr std::size_t most_output = 1 << 20;

// A member of an object in an object; null if it is not there or of another type.
const json *find(const json &object, std::initializer_list<const char *> path) {
  const json *at = &object;
  for (const char *name : path) {
    if (!at->is_object() || !at->contains(name)) {
      return nullptr;
    }
    at = &at->at(name);
  }
  return at;
}

std::string text_at(const json &object, std::initializer_list<const char *> path) {
  const json *found = find(object, path);
  return found != nullptr && found->is_string() ? found->get<std::string>() : "";
}

std::string first_message(const json &report) {
  const json *messages = find(report, {"smartctl", "messages"});
  if (messages == nullptr || !messages->is_array() || messages->empty()) {
    return "no answer";
  }
  const std::string text = text_at(messages->front(), {"string"});
  return text.empty() ? "no answer" : text;
}

using Clock = std::chrono::steady_clock;

// Starts the program, which writes to `out`. An error number, or 0.
int start(const std::string &program, const std::string &device, const Descriptor &out, pid_t &child) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out.get(), STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  // This program may have blocked the signals that should end the other.
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  posix_spawnattr_setsigmask(&attributes, &none);
  std::array<std::string, 6> words{program, "--json", "-n", "standby", "-iH", device};
  std::array<char *, 7> arguments{};
  for (std::size_t i = 0; i < words.size(); ++i) {
    arguments[i] = words[i].data();
  }
  const int error = posix_spawnp(&child, program.c_str(), &actions, &attributes, arguments.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

// Until the output ends, is too long or `deadline` has passed.
std::string read_until(Clock::time_point deadline, const Descriptor &from) {
  std::string output(most_output, '\0');
  std::size_t filled = 0;
  while (filled < output.size()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd ready{.fd = from.get(), .events = POLLIN, .revents = 0};
    const int count = left.count() > 0 ? poll(&ready, 1, static_cast<int>(left.count())) : 0;
    if (count < 0 && errno == EINTR) {
      continue;
    }
    const auto rest = std::as_writable_bytes(std::span(output)).subspan(filled);
    const ssize_t got = count > 0 ? read_some(from, rest) : 0;
    if (got <= 0) {
      break;
    }
    filled += static_cast<std::size_t>(got);
  }
  output.resize(filled);
  return output;
}

bool has_ended(pid_t child) {
  return waitpid(child, nullptr, WNOHANG) != 0;
}

bool ends_until(Clock::time_point deadline, pid_t child) {
  constexpr std::chrono::milliseconds step{5};
  while (!has_ended(child)) {
    if (Clock::now() >= deadline) {
      return false;
    }
    std::this_thread::sleep_for(step);
  }
  return true;
}

std::string seconds_text(std::chrono::milliseconds time) {
  return std::to_string(std::chrono::ceil<std::chrono::seconds>(time).count()) + " s";
}

}  // namespace

SmartReport parse_smart(std::string_view text) {
  const auto is_within = [](int depth, json::parse_event_t, const json &) { return depth <= deepest; };
  const json report = json::parse(text, is_within, false);
  SmartReport parsed;
  if (!report.is_object()) {
    parsed.why_silent = "smartctl printed no JSON";
    return parsed;
  }
  const json *passed = find(report, {"smart_status", "passed"});
  parsed.firmware = text_at(report, {"firmware_version"});
  parsed.model = text_at(report, {"model_name"});
  if (passed != nullptr && passed->is_boolean()) {
    parsed.healthy = passed->get<bool>();
  }
  // A SCSI drive has another name for its model, and need not know SMART.
  if (parsed.healthy || !parsed.model.empty() || !text_at(report, {"scsi_product"}).empty()) {
    parsed.state = SmartReport::State::Answers;
    return parsed;
  }
  parsed.why_silent = first_message(report);
  if (parsed.why_silent.find("STANDBY") != std::string::npos || parsed.why_silent.find("SLEEP") != std::string::npos) {
    parsed.state = SmartReport::State::Sleeps;
  }
  return parsed;
}

SmartReport Smartctl::ask(const std::string &device) {
  const Run done = run(device);
  if (!done.error.empty()) {
    SmartReport silent;
    silent.why_silent = done.error;
    return silent;
  }
  return parse_smart(done.output);
}

Smartctl::Run Smartctl::run(const std::string &device) {
  const auto hanging = hanging_.find(device);
  if (hanging != hanging_.end() && !has_ended(hanging->second)) {
    return {.output = "", .error = program_ + " still hangs"};
  }
  hanging_.erase(device);
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    return {.output = "", .error = std::strerror(errno)};
  }
  Descriptor out(ends[0]);
  Descriptor in(ends[1]);
  pid_t child = -1;
  const int error = start(program_, device, in, child);
  in = Descriptor();
  if (error != 0) {
    return {.output = "", .error = program_ + ": " + std::strerror(error)};
  }
  const auto deadline = Clock::now() + limit_;
  const std::string output = read_until(deadline, out);
  out = Descriptor();  // ends one that prints more
  if (ends_until(deadline, child)) {
    return {.output = output, .error = ""};
  }
  kill(child, SIGKILL);
  constexpr std::chrono::seconds to_die{1};
  if (!ends_until(Clock::now() + to_die, child)) {
    hanging_[device] = child;
  }
  return {.output = "", .error = program_ + " has not answered within " + seconds_text(limit_)};
}

}  // namespace tavo::service
