#include "hardware/tool_run.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <span>
#include <thread>

namespace tavo::service {
namespace {

constexpr std::size_t most_output = 1 << 20;

// How often to look whether a tool has ended that prints no more.
constexpr std::chrono::milliseconds step(5);

std::string seconds_text(std::chrono::milliseconds time) {
  return std::to_string(std::chrono::ceil<std::chrono::seconds>(time).count()) + " s";
}

// Starts the program in a process group of its own, writing to `out`. An error number, or 0.
int spawn(std::vector<std::string> &words, const Descriptor &out, pid_t &child) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out.get(), STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  // This program may have blocked the signals that should end the other.
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
  posix_spawnattr_setsigmask(&attributes, &none);
  std::vector<char *> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string &word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  const int error = posix_spawnp(&child, arguments[0], &actions, &attributes, arguments.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

}  // namespace

ToolRun::ToolRun(std::vector<std::string> words, std::chrono::milliseconds limit)
    : limit_(limit), program_(words.front()) {
  start(words);
}

void ToolRun::start(std::vector<std::string> &words) {
  std::array<int, 2> ends{};
  int error = pipe2(ends.data(), O_CLOEXEC) == 0 ? 0 : errno;
  if (error == 0) {
    out_ = Descriptor(ends[0]);
    const Descriptor in(ends[1]);
    fcntl(out_.get(), F_SETFL, O_NONBLOCK);
    error = spawn(words, in, child_);
  }
  if (error != 0) {
    child_ = -1;
    out_ = Descriptor();
    state_ = State::Ended;
    is_missing_ = error == ENOENT;
    error_ = program_ + ": " + std::strerror(error);
  }
}

void ToolRun::take() {
  while (out_) {
    std::array<std::byte, 4096> octets{};
    const ssize_t got = read_some(out_, octets);
    if (got < 0 && errno == EAGAIN) {
      return;
    }
    if (got > 0) {
      output_.append(reinterpret_cast<const char *>(octets.data()), static_cast<std::size_t>(got));
    }
    if (got <= 0 || output_.size() >= most_output) {
      out_ = Descriptor();
    }
  }
}

ToolRun::State ToolRun::state() {
  if (state_ != State::Runs) {
    return state_;
  }
  take();
  if (!out_ && is_gone()) {
    state_ = State::Ended;
  } else if (Clock::now() >= deadline()) {
    error_ = program_ + " has not answered within " + seconds_text(limit_);
    kill();
  }
  return state_;
}

ToolRun::State ToolRun::wait(Clock::time_point until) {
  while (state() == State::Runs && Clock::now() < until) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(std::min(until, deadline()) - Clock::now());
    if (out_) {
      pollfd printed{.fd = out_.get(), .events = POLLIN, .revents = 0};
      poll(&printed, 1, std::max(0, static_cast<int>(left.count())));
    } else {
      std::this_thread::sleep_for(std::min(left, step));
    }
  }
  return state_;
}

// As long as the pipe is open, a child of the tool may have it. Until then nobody else gets the number of the tool's
// group, because the tool is not waited for.
bool ToolRun::is_gone() {
  if (child_ >= 0 && !out_ && waitpid(child_, nullptr, WNOHANG) != 0) {
    child_ = -1;
  }
  return child_ < 0;
}

void ToolRun::kill() {
  if (is_gone()) {
    return;
  }
  ::kill(-child_, SIGKILL);
  out_ = Descriptor();
  state_ = State::Killed;
  constexpr std::chrono::milliseconds to_die(100);
  const auto deadline = Clock::now() + to_die;
  while (!is_gone() && Clock::now() < deadline) {
    std::this_thread::sleep_for(step);
  }
}

}  // namespace tavo::service
