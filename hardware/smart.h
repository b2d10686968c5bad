// What a drive says of its own health, by smartctl of smartmontools.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tavo::service {

struct SmartReport {
  enum class State { Answers, Sleeps, Silent };
  State state = State::Silent;
  std::string why_silent;       // Silent
  std::optional<bool> healthy;  // nothing: the drive does not tell
  std::string firmware;         // empty: not known, like the next
  std::string model;
};

// What smartctl's JSON says. Never throws: what is no JSON, or lacks everything, is a silent drive.
SmartReport parse_smart(std::string_view json);

// The program smartctl.
class Smartctl {
 public:
  // `program` is searched in PATH. A drive that takes longer than `limit` is silent.
  explicit Smartctl(std::string program, std::chrono::milliseconds limit = std::chrono::seconds(30))
      : program_(std::move(program)), limit_(limit) {}

  // Asks a drive, and does not wake it if it sleeps. A drive on which an earlier process still hangs is not asked
  // again.
  SmartReport ask(const std::string &device);

 private:
  // Standard output, or the reason for which there is none.
  struct Run {
    std::string output;
    std::string error;
  };

  Run run(const std::string &device);

  const std::string program_;
  const std::chrono::milliseconds limit_;
  // By device: processes that have been killed and cannot end, because the kernel waits for the drive.
  std::map<std::string, pid_t> hanging_;
};

}  // namespace tavo::service
