// The daemon's name: it begins its messages on standard error and in syslog, and names its configuration files.
#pragma once

namespace tavo {

inline constexpr const char *daemon_name = "snmp-subagentd";

}  // namespace tavo
