// Sets up net-snmp's agent from the daemon's options: stand-alone, or a subagent of an AgentX master.
#pragma once

#include <functional>

#include "host/options.h"

namespace tavo {

// Applies -L and -D. Call it before anything else of net-snmp. Throws StartFailure on a wrong -L.
void set_up_logging(const Options &options);

// Opens the agent: reads the configuration, then opens the listening addresses, if there are any.
// `before_configuration` runs once the agent exists, before anything is opened. Throws StartFailure when a
// configuration file cannot be read or an address cannot be opened.
void open_agent(const Options &options, const std::function<void()> &before_configuration);

// Opens the session to the AgentX master, once the module has started: the master asks for objects as soon as it knows
// of them. It may be absent: net-snmp keeps trying.
void connect_to_master();

// Reads the configuration again, and opens log files again.
void reload_agent(const Options &options);

}  // namespace tavo
