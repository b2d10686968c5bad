// Sending over TCP to a peer that may not read. net-snmp's sends wait for the peer, and the agent's loop with them, so
// the daemon replaces sendto(), through which net-snmp sends over a connection: it waits for `longest_send` at most.
// The connection is useless after that, because a part of a message may be out, so it is shut down: net-snmp finds its
// end and closes it.
#pragma once

#include <chrono>

namespace tavo {

constexpr std::chrono::seconds longest_send{1};

// Whether a TCP socket takes a message of usual size now.
bool writable(int socket);

}  // namespace tavo
