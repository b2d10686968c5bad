#include "host/agent.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

#include "host/engine_state.h"
#include "host/master_search.h"
#include "host/name.h"
#include "host/system_group.h"

namespace tavo {

extern "C" int subagent_startup(int major, int minor, void *server, void *client);  // no installed header declares it

namespace {

// SIGHUP opens files again, when the daemon may have changed to another directory.
std::string absolute(const std::string &file) {
  return std::filesystem::absolute(file);
}

// net-snmp drops the old value when it has no memory for the new one, and says nothing.
void set_string(int storage, int which, const std::string &value) {
  netsnmp_ds_set_string(storage, which, value.c_str());
  if (netsnmp_ds_get_string(storage, which) == nullptr) {
    throw std::bad_alloc();
  }
}

void apply_log_option(std::vector<std::string> words) {
  if (words.size() > 1 && (words[0] == "f" || words[0] == "F")) {
    words.back() = absolute(words.back());
  }
  // net-snmp expects the words after the option's letter where getopt() stands.
  std::vector<char *> arguments(words.size() + 1, nullptr);
  std::transform(words.begin(), words.end(), arguments.begin(), [](std::string &word) { return word.data(); });
  optind = 1;
  if (snmp_log_options(arguments[0], static_cast<int>(words.size()), arguments.data()) != 0) {
    throw StartFailure(ExitStatus::Usage, "wrong log option -L" + join(words, " "));
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
    snmp_enable_syslog_ident(daemon_name, LOG_DAEMON);
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
      throw StartFailure(ExitStatus::Configuration,
                         "cannot read configuration file " + file + ": " + std::strerror(errno));
    }
  }
  // With -C, net-snmp does not read the state that it has stored itself, either.
  if (options.skip_default_configuration && options.stand_alone() && access(engine_state_file().c_str(), R_OK) == 0) {
    configuration_files.push_back(absolute(engine_state_file()));
  }
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, options.stand_alone() ? 0 : 1);
  if (!options.agentx_address.empty()) {
    set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, options.agentx_address);
  }
  if (options.stand_alone()) {
    set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS, join(options.listen, ","));
  }
  if (options.skip_default_configuration) {
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
  }
  if (!configuration_files.empty()) {
    set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_OPTIONALCONFIG, join(configuration_files, ","));
  }
  // The agent needs no MIB texts. They cost memory where they are installed, and hundreds of log lines where they are
  // not.
  setenv("MIBS", "", 0);
  // SMUX, a predecessor of AgentX, would open a port that nobody asked for.
  std::string without_smux = "-smux";
  add_to_init_list(without_smux.data());
  SOCK_STARTUP;
  if (init_agent(daemon_name) != 0) {
    throw StartFailure(ExitStatus::Failure, "net-snmp's agent cannot be set up");
  }
  // After init_agent(), which sets its own default.
  netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL, search_seconds);
  before_configuration();
  if (options.stand_alone()) {
    serve_system_group();
  }
  // connect_to_master() opens the session. net-snmp would open one whenever it has read the configuration: before the
  // module has started, and after each reload another, beside the one that exists or beside the search for a lost
  // master, which then never ends.
  snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_READ_CONFIG, subagent_startup, nullptr, 0);
  init_snmp(daemon_name);
  if (options.stand_alone() && init_master_agent() != 0) {
    throw StartFailure(ExitStatus::Address, "cannot listen on " + join(options.listen, ", ") +
                                                " (in use, or not an address of this machine)");
  }
  if (options.stand_alone()) {
    store_engine_state();
    warn_if_engine_state_is_volatile();
  }
}

void connect_to_master() {
  subagent_startup(0, 0, nullptr, nullptr);
}

void reload_agent(const Options &options) {
  update_config();
  netsnmp_logging_restart();
  if (options.stand_alone()) {
    store_engine_state();
  }
}

}  // namespace tavo
