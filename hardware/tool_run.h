// A tool of the system that is run for what it prints.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "core/descriptor.h"

namespace tavo::service {

// One run. Nobody waits for it but who calls wait().
class ToolRun {
 public:
  using Clock = std::chrono::steady_clock;

  enum class State { Runs, Ended, Killed };

  // Starts the program words[0], which is searched in PATH. After `limit` it is killed, with whatever it has started.
  // Its standard error goes nowhere.
  ToolRun(std::vector<std::string> words, std::chrono::milliseconds limit);
  ToolRun(const ToolRun &) = delete;
  ToolRun &operator=(const ToolRun &) = delete;
  ~ToolRun() { kill(); }

  // Takes what has been printed, kills the tool if its time is up, and says how it stands. Does not wait.
  State state();
  // The same, once it no longer runs or `until` has come.
  State wait(Clock::time_point until);
  // Whether nothing is left of it, nor of a child that could still print. A killed one may be left for long, because
  // the kernel waits for a device.
  bool is_gone();
  void kill();

  // Readable when there is something to take; negative: there is nothing any more.
  int descriptor() const { return out_.get(); }
  Clock::time_point started() const { return started_; }
  Clock::time_point deadline() const { return started_ + limit_; }
  // At most 1 MiB; a tool that prints more ends then.
  const std::string &output() const { return output_; }
  // Whether there is no such program.
  bool is_missing() const { return is_missing_; }
  // Why there is no output; empty: it has ended by itself.
  const std::string &error() const { return error_; }

 private:
  void start(std::vector<std::string> &words);
  void take();

  const Clock::time_point started_ = Clock::now();
  const std::chrono::milliseconds limit_;
  const std::string program_;
  State state_ = State::Runs;
  bool is_missing_ = false;
  pid_t child_ = -1;  // negative: it is gone, or never was
  Descriptor out_;
  std::string output_;
  std::string error_;
};

}  // namespace tavo::service
