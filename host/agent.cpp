#include "host/agent.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <unistd.h>

#include <CLI/StringTools.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

extern "C" int subagent_startup(int major, int minor, void *server, void *client);  // net-snmp installs no header

namespace tavo {
namespace {

// A lost master is looked for this often, which bounds how long the daemon stays away after the master is back. The
// configuration may say otherwise (agentXPingInterval).
constexpr int ping_seconds = 1;

// Where a file lies, whatever directory the daemon has moved to when it is opened again after SIGHUP.
std::string absolute(const std::string &file) {
  return std::filesystem::absolute(file);
}

void apply_log_option(std::vector<std::string> words) {
  if (words.size() > 1 && (words[0] == "f" || words[0] == "F")) {
    words.back() = absolute(words.back());
  }
  // net-snmp takes the option's letter apart from the words behind it, which it reads where getopt() stands.
  std::vector<char *> arguments(words.size() + 1, nullptr);
  std::transform(words.begin(), words.end(), arguments.begin(), [](std::string &word) { return word.data(); });
  optind = 1;
  if (snmp_log_options(arguments[0], static_cast<int>(words.size()), arguments.data()) != 0) {
    throw StartFailure(ExitStatus::usage, "wrong log option -L" + CLI::detail::join(words, " "));
  }
}

}  // namespace

void set_up_logging(const Options &options) {
  for (const std::vector<std::string> &words : options.log) {
    apply_log_option(words);
  }
  if (options.log.empty() && options.foreground) {
    snmp_enable_stderrlog();
  } else if (options.log.empty()) {
    snmp_enable_syslog_ident(agent_name, LOG_DAEMON);
  }
  if (options.debug_tokens) {
    std::string tokens = options.debug_tokens->empty() ? "ALL" : *options.debug_tokens;
    debug_register_tokens(tokens.data());
    snmp_set_do_debugging(1);
  }
}

void open_agent(const Options &options, const std::function<void()> &before_configuration) {
  std::vector<std::string> configuration_files;
  configuration_files.reserve(options.configuration_files.size());
  for (const std::string &file : options.configuration_files) {
    configuration_files.push_back(absolute(file));
    if (access(file.c_str(), R_OK) != 0) {
      throw StartFailure(ExitStatus::configuration,
                         "cannot read configuration file " + file + ": " + std::strerror(errno));
    }
  }
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, options.stand_alone() ? 0 : 1);
  if (!options.agentx_address.empty()) {
    netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, options.agentx_address.c_str());
  }
  if (options.stand_alone()) {
    netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS,
                          CLI::detail::join(options.listen, ",").c_str());
  }
  if (options.skip_default_configuration) {
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
  }
  if (!configuration_files.empty()) {
    netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_OPTIONALCONFIG,
                          CLI::detail::join(configuration_files, ",").c_str());
  }
  // The agent answers in numbers. Loading MIB texts would cost memory and, where they are absent, hundreds of log
  // lines.
  setenv("MIBS", "", 0);
  // SMUX, an old forerunner of AgentX, would open a port that nobody asked for.
  std::string without_smux = "-smux";
  add_to_init_list(without_smux.data());
  SOCK_STARTUP;
  if (init_agent(agent_name) != 0) {
    throw StartFailure(ExitStatus::failure, "net-snmp's agent cannot be initialised");
  }
  // init_agent() has set its own defaults by now.
  netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL, ping_seconds);
  before_configuration();
  init_snmp(agent_name);
  // Every reading of the configuration would open a session again: beside one that exists, or beside the attempts to
  // find a lost master, which then never end.
  snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_READ_CONFIG, subagent_startup, nullptr, 0);
  if (options.stand_alone() && init_master_agent() != 0) {
    throw StartFailure(ExitStatus::address, "cannot listen on " + CLI::detail::join(options.listen, ", ") +
                                                " (in use, or not an address of this machine)");
  }
}

}  // namespace tavo
