#include "hardware/smart.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

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

// smartctl's standard output, or the reason for which it could not be run.
struct Run {
  std::string output;
  std::string error;
};

Run run(const std::string &program, const std::string &device) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    return {.output = "", .error = std::strerror(errno)};
  }
  Descriptor out(ends[0]);
  Descriptor in(ends[1]);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in.get(), STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::array<std::string, 7> words{program, "--json", "-n", "standby", "-iH", "-A", device};
  std::array<char *, 8> arguments{};
  for (std::size_t i = 0; i < words.size(); ++i) {
    arguments[i] = words[i].data();
  }
  pid_t child = -1;
  const int error = posix_spawnp(&child, program.c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  in = Descriptor();
  if (error != 0) {
    return {.output = "", .error = program + ": " + std::strerror(error)};
  }
  std::string output(most_output, '\0');
  output.resize(read_up_to(out, std::as_writable_bytes(std::span(output))));
  out = Descriptor();  // ends one that prints more
  while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
  return {.output = output, .error = ""};
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
  const json *degrees = find(report, {"temperature", "current"});
  parsed.serial = text_at(report, {"serial_number"});
  parsed.firmware = text_at(report, {"firmware_version"});
  parsed.model = text_at(report, {"model_name"});
  if (passed != nullptr && passed->is_boolean()) {
    parsed.healthy = passed->get<bool>();
  }
  if (degrees != nullptr && degrees->is_number_integer()) {
    const auto number = degrees->get<std::int64_t>();
    constexpr std::int64_t most = 200;
    if (number > -most && number < most) {
      parsed.temperature = static_cast<int>(number);
    }
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

SmartReport ask_drive(const std::string &program, const std::string &device) {
  const Run done = run(program, device);
  if (!done.error.empty()) {
    SmartReport silent;
    silent.why_silent = done.error;
    return silent;
  }
  return parse_smart(done.output);
}

}  // namespace tavo::service
