// Who the stand-alone agent says it is.
#pragma once

namespace tavo {

// Serves net-snmp's own system group and sysORTable, with the system's object identifier and description. The
// configuration may replace both, so this comes before it is read, and after net-snmp's agent is set up.
void serve_system_group();

}  // namespace tavo
