// The command line: snmpd's own letters where snmpd has them, long options for what is ours.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "host/exit_status.h"

namespace tavo {

struct Options {
  bool foreground = false;                        // -f
  bool skip_default_configuration = false;        // -C
  std::vector<std::string> configuration_files;   // -c, in the order given
  std::vector<std::vector<std::string>> log;      // one element per -L: its letter, then the words after it
  std::optional<std::string> debug_tokens;        // -D; empty text: everything
  std::string pid_file;                           // -p; empty: none
  std::string agentx_address;                     // -x; empty: net-snmp's default
  std::vector<std::string> listen;                // --listen; empty: an AgentX subagent
  std::vector<std::string> platforms;             // --platform, loaded in this order
  std::string module = "libsnmpextmibmodule.so";  // --module
  std::size_t notification_limit = 16384;         // --notification-limit
  std::string chassis_block;                      // --chassis-block; empty: no chassis link

  bool stand_alone() const { return !listen.empty(); }
  // Whether an -L names standard output or error.
  bool logs_to_output() const;
};

// The parsed options, or, when the command line asks for nothing more (-h, -v) or is wrong, the text to print and the
// status to leave with.
struct CommandLine {
  Options options;
  std::optional<ExitStatus> leave;
  std::string text;
};

CommandLine parse_command_line(int argc, const char *const *argv);

}  // namespace tavo
