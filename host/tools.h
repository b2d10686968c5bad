// Runs shell commands so that each one ends. The module starts the platform's tools with system() and popen(). A tool
// that hangs would block its caller for ever, and with it the table that the caller has locked, so the daemon replaces
// both functions, and pclose().
//
// A tool is a shell command with a process group of its own. The whole group is killed when the tool runs too long or
// prints too much, and when the daemon stops. When a tool ends, what it leaves running in its group is killed as well.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <list>
#include <memory>
#include <mutex>
#include <optional>

#include "host/deadline_watcher.h"
#include "host/event_descriptor.h"

namespace tavo {

class ToolRunner {
 public:
  // In octets. A tool that prints more into a stream of open() is killed.
  static constexpr std::size_t largest_output = 1 << 20;

  // From now on, system() and popen() run their commands here. Only one runner may exist at a time. A tool may run for
  // `limit`; 0 means without a limit. `tool_starts` is called on the thread that starts a tool. Throws
  // std::system_error.
  explicit ToolRunner(
      std::chrono::milliseconds limit, void (*tool_starts)() = [] {});
  // No tool may be running and no stream open.
  ~ToolRunner();
  ToolRunner(const ToolRunner &) = delete;
  ToolRunner &operator=(const ToolRunner &) = delete;

  // Any thread may call the rest, several at once.

  // As system(), but leaves the caller's signals alone. Returns the tool's status, or -1 with errno when it cannot be
  // started.
  int run(const char *command);
  // As popen() for reading, but the stream has no descriptor. Null with errno when the tool cannot be started. The
  // stream ends when the tool is killed, even if a process outside its group still holds the pipe.
  FILE *open(const char *command);
  // As pclose(). Returns the tool's status, or nothing when the stream is not one of open().
  std::optional<int> close(FILE *stream);

  // Kills all tools and refuses new ones from now on.
  void stop();

  // Since the start.
  struct Counts {
    std::uint64_t started;  // or refused, for want of memory and the like
    std::uint64_t failed;   // did not end with status 0
    std::uint64_t killed;   // ran too long or printed too much
  };
  Counts counts() const { return {.started = started_, .failed = failed_, .killed = killed_}; }

 private:
  using Clock = std::chrono::steady_clock;
  struct Tool;

  std::shared_ptr<Tool> start(const char *command, int output);
  FILE *open_stream(const std::shared_ptr<Tool> &tool);
  static ssize_t read_stream(void *tool, char *to, std::size_t size);
  static int close_stream(void *tool);
  ssize_t read(Tool &tool, char *to, std::size_t size);
  bool wait_for_output(Tool &tool) const;
  void finish(Tool &tool);
  // Returns when the next tool is due, if any can be.
  std::optional<Clock::time_point> kill_overdue();

  const std::chrono::milliseconds limit_;
  void (*const tool_starts_)();
  const EventDescriptor stopping_;  // readable after stop()
  std::atomic<std::uint64_t> started_ = 0;
  std::atomic<std::uint64_t> failed_ = 0;
  std::atomic<std::uint64_t> killed_ = 0;

  std::mutex mutex_;
  // Guarded by mutex_. A listed tool has not been reaped, so its process group cannot be anybody else's.
  std::list<std::shared_ptr<Tool>> running_;
  bool stopped_ = false;

  DeadlineWatcher watcher_;  // the last member, since its thread uses the others
};

}  // namespace tavo
