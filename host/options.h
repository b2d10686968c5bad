// The command line: snmpd's letters for the options that snmpd has, long options for the daemon's own.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/exit_status.h"

namespace tavo {

struct Options {
  bool foreground = false;                        // -f
  bool skip_default_configuration = false;        // -C
  std::vector<std::string> configuration_files;   // -c, in the order given
  std::vector<std::vector<std::string>> log;      // -L; for each, its letter and the words after it
  std::optional<std::string> debug_tokens;        // -D; empty text means all tokens
  std::string pid_file;                           // -p; empty means none
  std::string agentx_address;                     // -x; empty means net-snmp's default
  std::vector<std::string> listen;                // --listen; empty means an AgentX subagent
  std::vector<std::string> platforms;             // --platform, in loading order
  std::string module = "libsnmpextmibmodule.so";  // --module
  std::size_t notification_limit = 2048;          // --notification-limit
  std::size_t change_limit = 1000;                // --change-limit
  std::chrono::seconds tool_timeout{30};          // --tool-timeout; 0 means none
  std::chrono::milliseconds answer_within{0};     // --answer-within; 0 means none
  std::string chassis_block;                      // --chassis-block; empty means no chassis link
  std::string chassis_listen;                     // --chassis-listen; empty means all addresses
  std::vector<std::string> chassis_peers;         // --chassis-peer; empty means anybody
  std::chrono::seconds chassis_idle_limit{0};     // --chassis-idle-limit; 0 means none

  bool stand_alone() const { return !listen.empty(); }
  // Whether an -L names standard output or standard error.
  bool logs_to_output() const;
};

// The parsed options. For -h, -v and a bad command line, the text to print and the exit status instead.
struct CommandLine {
  Options options;
  std::optional<ExitStatus> leave;
  std::string text;
};

// The words with the separator between them.
std::string join(const std::vector<std::string> &words, std::string_view separator);

CommandLine parse_command_line(int argc, const char *const *argv);

}  // namespace tavo
