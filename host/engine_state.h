// What the SNMPv3 engine of a stand-alone agent must remember: its id, its users, and how often it has started
// (engineBoots). A manager rejects messages from an engine whose id is new, or that has the same count of starts as
// before but less time since the last one.
//
// net-snmp keeps all this in a file of its persistent directory, and counts a start whenever it reads the file. But it
// writes the file only in snmp_shutdown(), which the daemon does not reach if a thread of the module is blocked, and
// never after SIGKILL.
#pragma once

#include <string>

namespace tavo {

// Where net-snmp keeps the state. The directory is net-snmp's: SNMP_PERSISTENT_DIR, or /var/lib/snmp. Throws
// std::bad_alloc.
std::string engine_state_file();

// Writes the state. Call it whenever net-snmp has read the file. Logs a warning when that fails.
void store_engine_state();

// Logs a warning when a reboot removes the file.
void warn_if_engine_state_is_volatile();

}  // namespace tavo
