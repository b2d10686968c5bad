#include "host/tools.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <new>
#include <string>
#include <system_error>
#include <utility>

#include "host/interposed.h"
#include "host/poll_time.h"

namespace tavo {
namespace {

std::atomic<ToolRunner *> current_runner = nullptr;

// Arguments of posix_spawn() for a tool: a process group of its own, default signals, no input, and its output to
// `output` unless that is -1.
class SpawnSettings {
 public:
  explicit SpawnSettings(int output) {
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawn_file_actions_init(&actions);
    // A tool that reads the daemon's terminal would be stopped, since its group is in the background there.
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (output >= 0) {
      posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    }
  }
  ~SpawnSettings() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }
  SpawnSettings(const SpawnSettings &) = delete;
  SpawnSettings &operator=(const SpawnSettings &) = delete;

  posix_spawnattr_t attributes;
  posix_spawn_file_actions_t actions;
};

// Starts a shell for the command. 0, or an error number.
int spawn(const char *command, int output, pid_t &process) {
  const SpawnSettings settings(output);
  std::string shell = "sh";
  std::string option = "-c";
  std::string script = command;
  const std::array<char *, 4> arguments = {shell.data(), option.data(), script.data(), nullptr};
  return posix_spawn(&process, "/bin/sh", &settings.actions, &settings.attributes, arguments.data(), environ);
}

template <class Call>
auto retry_interrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) {
    result = call();
  }
  return result;
}

// For the C functions below: the module does not expect exceptions.
template <class Result, class Call>
Result or_failure(Result failure, Call call) noexcept {
  try {
    return call();
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return failure;
  }
}

}  // namespace

struct ToolRunner::Tool {
  enum class End { Own, Overdue, TooMuchOutput, DaemonStops };

  // Kills the group, once. The caller holds the runner's lock, and the tool is listed.
  void kill(End reason) {
    if (end == End::Own) {
      end = reason;
      seconds = std::chrono::duration<double>(Clock::now() - started).count();
      ::kill(-process, SIGKILL);
    }
  }

  void log_end() const {
    const char *command_line = command.c_str();
    switch (end) {
      case End::Own:
        break;
      case End::Overdue:
        snmp_log(LOG_WARNING, "tool killed after %.1f s: %s\n", seconds, command_line);
        break;
      case End::TooMuchOutput:
        snmp_log(LOG_WARNING, "tool killed after %.1f s and more than %zu octets of output: %s\n", seconds,
                 largest_output, command_line);
        break;
      case End::DaemonStops:
        snmp_log(LOG_INFO, "tool killed after %.1f s because the daemon stops: %s\n", seconds, command_line);
        break;
    }
  }

  ToolRunner &runner;
  const std::string command;
  const Clock::time_point started;
  const std::optional<Clock::time_point> deadline;

  pid_t process = 0;  // the shell, and leader of the group
  int status = -1;    // set when the process is reaped

  // For the thread that reads the output.
  Descriptor output = Descriptor();
  std::size_t room = largest_output;  // octets still to be accepted

  // Guarded by the runner's lock.
  FILE *stream = nullptr;
  End end = End::Own;
  double seconds = 0;  // age when it was killed
};

ToolRunner::ToolRunner(std::chrono::milliseconds limit, void (*tool_starts)())
    : limit_(limit), tool_starts_(tool_starts) {
  if (limit_.count() > 0) {
    watcher_.start([this] { return kill_overdue(); });
  }
  current_runner = this;
}

ToolRunner::~ToolRunner() {
  current_runner = nullptr;
}

int ToolRunner::run(const char *command) {
  const std::shared_ptr<Tool> tool = start(command, -1);
  if (tool == nullptr) {
    return -1;
  }
  finish(*tool);
  return tool->status;
}

FILE *ToolRunner::open(const char *command) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    return nullptr;
  }
  Descriptor reading(ends[0]);
  const Descriptor writing(ends[1]);
  const std::shared_ptr<Tool> tool = start(command, writing.get());
  if (tool == nullptr) {
    return nullptr;
  }
  tool->output = std::move(reading);
  return open_stream(tool);
}

FILE *ToolRunner::open_stream(const std::shared_ptr<Tool> &tool) {
  const cookie_io_functions_t functions = {
      .read = read_stream, .write = nullptr, .seek = nullptr, .close = close_stream};
  FILE *stream = fopencookie(tool.get(), "r", functions);
  if (stream == nullptr) {
    ::kill(-tool->process, SIGKILL);
    finish(*tool);
    errno = ENOMEM;
    return nullptr;
  }
  const std::lock_guard lock(mutex_);
  tool->stream = stream;
  return stream;
}

ssize_t ToolRunner::read_stream(void *tool, char *to, std::size_t size) {
  auto *const read_from = static_cast<Tool *>(tool);
  return read_from->runner.read(*read_from, to, size);
}

int ToolRunner::close_stream(void *tool) {
  auto *const closed = static_cast<Tool *>(tool);
  closed->runner.finish(*closed);
  return 0;
}

std::optional<int> ToolRunner::close(FILE *stream) {
  std::shared_ptr<Tool> tool;
  {
    const std::lock_guard lock(mutex_);
    const auto found = std::ranges::find_if(running_, [&](const auto &listed) { return listed->stream == stream; });
    if (found == running_.end()) {
      return std::nullopt;
    }
    tool = *found;
  }
  std::fclose(stream);  // finishes the tool
  return tool->status;
}

void ToolRunner::stop() {
  const std::lock_guard lock(mutex_);
  stopped_ = true;
  for (const std::shared_ptr<Tool> &tool : running_) {
    tool->kill(Tool::End::DaemonStops);
  }
  stopping_.signal();
}

std::shared_ptr<ToolRunner::Tool> ToolRunner::start(const char *command, int output) {
  tool_starts_();
  const auto now = Clock::now();
  const auto deadline = limit_.count() > 0 ? std::optional(now + limit_) : std::nullopt;
  auto tool =
      std::shared_ptr<Tool>(new Tool{.runner = *this, .command = command, .started = now, .deadline = deadline});
  int error = ECANCELED;
  {
    // The lock is held while the process starts, so that stop() misses none.
    const std::lock_guard lock(mutex_);
    running_.push_front(tool);
    if (!stopped_) {
      error = spawn(command, output, tool->process);
    }
    ++started_;
    if (error != 0) {
      ++failed_;
      running_.pop_front();
      errno = error;
      return nullptr;
    }
  }
  watcher_.wake();
  return tool;
}

// Returns how many octets were read, 0 at the end of the output or when the tool had to be killed, or -1.
ssize_t ToolRunner::read(Tool &tool, char *to, std::size_t size) {
  if (!wait_for_output(tool)) {
    const std::lock_guard lock(mutex_);
    tool.kill(stopped_ ? Tool::End::DaemonStops : Tool::End::Overdue);
    return 0;
  }
  const ssize_t got = retry_interrupted([&] { return ::read(tool.output.get(), to, size); });
  if (got > static_cast<ssize_t>(tool.room)) {
    const std::lock_guard lock(mutex_);
    tool.kill(Tool::End::TooMuchOutput);
    return static_cast<ssize_t>(std::exchange(tool.room, 0));
  }
  tool.room -= static_cast<std::size_t>(std::max<ssize_t>(got, 0));
  return got;
}

// False when the tool's time is up or the daemon stops.
bool ToolRunner::wait_for_output(Tool &tool) const {
  std::array<pollfd, 2> readable = {
      pollfd{.fd = tool.output.get(), .events = POLLIN, .revents = 0},
      pollfd{.fd = stopping_.get(), .events = POLLIN, .revents = 0},
  };
  const int ready = retry_interrupted([&] { return poll(readable.data(), readable.size(), poll_time(tool.deadline)); });
  return ready > 0 && readable[1].revents == 0;
}

// Waits for the tool to end, kills what it has left in its group, and reaps it. The zombie keeps the group's number
// from being used again until then.
void ToolRunner::finish(Tool &tool) {
  tool.output = Descriptor();
  siginfo_t ended;
  retry_interrupted([&] { return waitid(P_PID, static_cast<id_t>(tool.process), &ended, WEXITED | WNOWAIT); });
  std::shared_ptr<Tool> keep;
  {
    const std::lock_guard lock(mutex_);
    ::kill(-tool.process, SIGKILL);
    const auto found = std::ranges::find_if(running_, [&](const auto &listed) { return listed.get() == &tool; });
    keep = std::move(*found);
    running_.erase(found);
  }
  retry_interrupted([&] { return waitpid(tool.process, &tool.status, 0); });
  failed_ += tool.status != 0 ? 1 : 0;
  killed_ += tool.end == Tool::End::Overdue || tool.end == Tool::End::TooMuchOutput ? 1 : 0;
  tool.log_end();
}

std::optional<ToolRunner::Clock::time_point> ToolRunner::kill_overdue() {
  const auto now = Clock::now();
  std::optional<Clock::time_point> next;
  const std::lock_guard lock(mutex_);
  for (const std::shared_ptr<Tool> &tool : running_) {
    if (*tool->deadline <= now) {
      tool->kill(Tool::End::Overdue);
    } else {
      next = std::min(next.value_or(*tool->deadline), *tool->deadline);
    }
  }
  return next;
}

extern "C" {

int system(const char *command) {
  static auto *const original = next_definition<int(const char *)>("system");
  ToolRunner *runner = current_runner;
  // Null asks whether there is a shell.
  if (runner == nullptr || command == nullptr) {
    return original(command);
  }
  return or_failure(-1, [&] { return runner->run(command); });
}

FILE *popen(const char *command, const char *type) {
  static auto *const original = next_definition<FILE *(const char *, const char *)>("popen");
  ToolRunner *runner = current_runner;
  if (runner == nullptr || (std::string_view(type) != "r" && std::string_view(type) != "re")) {
    return original(command, type);
  }
  return or_failure<FILE *>(nullptr, [&] { return runner->open(command); });
}

int pclose(FILE *stream) {
  static auto *const original = next_definition<int(FILE *)>("pclose");
  ToolRunner *runner = current_runner;
  const std::optional<int> status = runner != nullptr ? runner->close(stream) : std::nullopt;
  return status ? *status : original(stream);
}
}

}  // namespace tavo
