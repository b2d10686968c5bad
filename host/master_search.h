// How often the daemon looks for a lost AgentX master.
#pragma once

namespace tavo {

// Unless the configuration has another number (agentXPingInterval), which then goes for pings, too. It is about how
// long the daemon stays away once the master is back.
inline constexpr unsigned int search_seconds = 1;

}  // namespace tavo
